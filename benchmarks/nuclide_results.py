#!/usr/bin/env python3
"""Measure recall, wrong nuclides and speed of the identification with the built-in library.

    nuclide_results.py [--records]

Prints tables in Markdown, with `--records` also the nuclides of each spectrum. PYORV3_SPECTRA names
the directory of the spectra, PYTHONPATH the directory with the built package.
"""

import argparse
import json
import os
import sys
import tempfile
import time
from pathlib import Path

from qar import formats
from qar.analysis.results import results, run_engine
from qar.nuclides import builtin_library
from qar.source import open as open_source

SEARCH, IDENTIFY = 1, 2

# Nuclides of the natural background, which are never wrong.
BACKGROUND = set(
    "K-40 Cs-137 Be-7 U-238 Th-234 Pa-234m Pa-234 U-234 Th-230 Ra-226 Rn-222 Pb-214 Bi-214 Pb-210 "
    "Bi-210 Po-210 U-235 Th-231 Pa-231 Ac-227 Th-227 Ra-223 Rn-219 Pb-211 Bi-211 Tl-207 Th-232 "
    "Ra-228 Ac-228 Th-228 Ra-224 Rn-220 Pb-212 Bi-212 Tl-208".split()
)


def spectra():
    """Return the directory of the spectra. Exits if the environment does not name it."""
    folder = os.environ.get("PYORV3_SPECTRA")
    if not folder:
        sys.exit("PYORV3_SPECTRA must name the directory of the spectra.")
    return Path(folder)


def cases():
    """Yield (file, description, known nuclides, other possible nuclides) of germanium spectra."""
    for case in json.loads((spectra() / "field/field.json").read_text(encoding="utf-8")):
        if case["detector"].startswith("germanium"):
            yield "field/" + case["file"], case, set(case["known"]), set(case["may"])


def counts_of(file, case):
    for measurement in formats.read(str(spectra() / file)):
        if measurement.name == case.get("spectrum", measurement.name):
            return measurement.counts
    raise ValueError(f"{file}: no spectrum {case['spectrum']!r}")


def timed(source, options):
    start = time.process_time()
    run_engine(source, options=options)
    return time.process_time() - start


def measure(file, case, library, directory):
    """Return the results and the CPU seconds of search and identification."""
    with open_source(os.path.join(directory, os.path.basename(file) + ".qar"), "x") as source:
        source.set_spectrum(counts_of(file, case))
        source.set_column("QAR_D_ENERGYCAL", case["energy"])
        source.set_column("QAR_D_SHAPECAL", case["shape"])
        source.set_nuclide_library(library)
        seconds = timed(source, SEARCH), timed(source, IDENTIFY)
        return results(source), seconds


def row(*cells):
    print("| " + " | ".join(str(cell) for cell in cells) + " |")


def show_records(file, analysis):
    print(f"\n### {os.path.basename(file)}\n")
    row("nuclide (in brackets: not found)", "confidence", "lines", "reason")
    row(*["---"] * 4)
    for nuclide in analysis.nuclides:
        row(nuclide.name, f"{nuclide.confidence:.2f}", nuclide.lines, nuclide.reason)
    near = [one for one in analysis.not_found if one.confidence >= 0.1]
    for nuclide in near:
        row(f"({nuclide.name})", f"{nuclide.confidence:.2f}", nuclide.lines, nuclide.reason)


def analyse_all():
    """Return (file, known, wrong, results, seconds) of all spectra."""
    library = [entry.nuclide for entry in builtin_library.entries()]
    measured = []
    with tempfile.TemporaryDirectory() as directory:
        for file, case, known, possible in cases():
            analysis, seconds = measure(file, case, library, directory)
            found = {nuclide.name for nuclide in analysis.nuclides}
            wrong = sorted(found - known - possible - BACKGROUND)
            measured.append((file, known, wrong, analysis, seconds))
    return measured


def show_table(measured):
    row("spectrum", "peaks", "known", "found", "wrong", "search, s", "identification, s")
    row(*["---"] * 7)
    totals = [0, 0, 0]
    for file, known, wrong, analysis, (search, identification) in measured:
        found = len(known & {nuclide.name for nuclide in analysis.nuclides})
        totals = [sum(pair) for pair in zip(totals, (len(known), found, len(wrong)))]
        row(
            *(os.path.basename(file), len(analysis.peaks), len(known), found),
            *(", ".join(wrong) or 0, f"{search:.2f}", f"{identification:.2f}"),
        )
    row("all", "", *totals, "", "")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--records", action="store_true", help="also print all nuclides")
    records = parser.parse_args().records
    measured = analyse_all()
    show_table(measured)
    if records:
        for file, _, _, analysis, _ in measured:
            show_records(file, analysis)


if __name__ == "__main__":
    main()
