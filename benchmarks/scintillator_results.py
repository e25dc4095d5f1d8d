#!/usr/bin/env python3
"""Print which nuclides the engine finds in real spectra of scintillators, as a table.

    PYORV3_SPECTRA=DIRECTORY PYORV3_NUCLIDES=DIRECTORY PYTHONPATH=build/linux/product \\
        benchmarks/scintillator_results.py
"""

import json
import os
import tempfile
import time
import warnings

import qar
from qar import formats
from qar.formats import nuclide_csv

FIELD = os.path.join(os.environ["PYORV3_SPECTRA"], "field")
LIBRARY = os.path.join(os.environ["PYORV3_NUCLIDES"], "nuclides.csv")
CONFIDENT = 0.5


def nuclide_library():
    """Return the nuclides of the library file."""
    return nuclide_csv.read(LIBRARY)


def analysed(case, library, path):
    """Return the results of a spectrum and the CPU time in seconds."""
    spectra = formats.read(os.path.join(FIELD, case["file"]))
    counts = max((one.counts for one in spectra), key=lambda one: sum(one) == case["counts"])
    with qar.open(path, "x") as source:
        source.set_spectrum(counts)
        source.set_column("QAR_D_ENERGYCAL", case["energy"])
        source.set_column("QAR_D_SHAPECAL", case["shape"])
        source.set_nuclide_library(library)
        start = time.process_time()
        return source.analyse(QAR_D_PEAKLIMIT=5.0), time.process_time() - start


def main():
    """Analyse each scintillator spectrum and print a row for it."""
    warnings.simplefilter("ignore")
    library = nuclide_library()
    print("| spectrum | known | found, with confidence | CPU / s |\n|---|---|---|---|")
    with open(os.path.join(FIELD, "field.json"), encoding="utf-8") as file:
        cases = [case for case in json.load(file) if "germanium" not in case["detector"]]
    with tempfile.TemporaryDirectory() as directory:
        for case in cases:
            results, seconds = analysed(case, library, f"{directory}/{case['file']}.qar")
            found = ", ".join(
                f"{one.name} ({one.confidence:.2f})"
                for one in results.nuclides
                if one.confidence >= CONFIDENT
            )
            print(f"| {case['file']} | {', '.join(case['known'])} | {found} | {seconds:.1f} |")


if __name__ == "__main__":
    main()
