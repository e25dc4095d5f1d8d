#!/usr/bin/env python3
"""Analyses a spectrum of any format and makes a report and a picture of it.

    peak_report.py FILE LIBRARY FOLDER

FILE: a .qar, .spe, .n42, .csv or .txt file with energy and shape calibration; it stays as it is.
LIBRARY: a nuclide library as CSV, a line for each gamma line (see docs/command-line.md). Into
FOLDER go the analysed QAR file, the report (HTML) and, where matplotlib is installed, a picture.
"""

import os
import sys

import qar
from qar.atomic_files import write_text
from qar.display import layout, plot, report, tables
from qar.formats import nuclide_csv
from qar.transfer import conversion

LEAST_SIGNIFICANCE = 4.0  # sigma
TOLERANCE = 1.0  # keV


def main(path: str, library: str, folder: str) -> None:
    os.makedirs(folder, exist_ok=True)
    stem = os.path.join(folder, os.path.splitext(os.path.basename(path))[0])
    measurement = conversion.read_any(path)[0]
    for note in conversion.store(measurement, stem + ".qar", replace=True):
        print(note)
    with qar.open(stem + ".qar", "r+") as source:
        source.set_nuclide_library(nuclide_csv.read(library))
        found = source.analyse(QAR_D_PEAKLIMIT=LEAST_SIGNIFICANCE, QAR_D_MATCHTOL=TOLERANCE)
        print("\n".join(tables.results(found)))
        axis = layout.axis_of(source.calibration())
        write_text(stem + ".html", report.html_of(source, found, axis), replace=True)
        try:
            plot.save(stem + ".png", source.spectrum(), found.peaks, axis, measurement.title)
        except ImportError as error:
            print(error)


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    main(*sys.argv[1:])
