#!/usr/bin/env python3
"""Analyse a spectrum of any format and create a report and a picture.

    peak_report.py FILE LIBRARY FOLDER

FILE: a .qar, .spe, .n42, .csv or .txt file with energy and shape calibration; it is not changed.
LIBRARY: a nuclide library as CSV with one line for each gamma line (see docs/command-line.md).
FOLDER: for the analysed QAR file, the report (HTML) and, if matplotlib is installed, the picture.
"""

import os
import sys

import qar
from qar import formats
from qar.atomic_files import write_text
from qar.display import report, tables
from qar.formats import nuclide_csv

MIN_SIGNIFICANCE = 4.0  # sigma
TOLERANCE = 1.0  # keV


def main(path: str, library: str, folder: str) -> None:
    os.makedirs(folder, exist_ok=True)
    stem = os.path.join(folder, os.path.splitext(os.path.basename(path))[0])
    measurement = formats.read(path)[0]
    for note in formats.write(stem + ".qar", measurement, replace=True):
        print(note)
    with qar.open(stem + ".qar", "r+") as source:
        source.set_nuclide_library(nuclide_csv.read(library))
        results = source.analyse(QAR_D_PEAKLIMIT=MIN_SIGNIFICANCE, QAR_D_MATCHTOL=TOLERANCE)
        print("\n".join(tables.results(results)))
        write_text(stem + ".html", report.page(source, results), replace=True)
        try:
            results.plot().savefig(stem + ".png")
        except ImportError as error:
            print(error)


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    main(*sys.argv[1:])
