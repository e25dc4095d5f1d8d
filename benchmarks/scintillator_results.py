#!/usr/bin/env python3
"""Print which nuclides the engine finds in spectra of scintillators, as tables.

    PYORV3_SPECTRA=DIRECTORY PYTHONPATH=build/linux/product benchmarks/scintillator_results.py
    PYTHONPATH=build/linux/product benchmarks/scintillator_results.py --simulated COUNT [--seed SEED] [--cases]

Analyses the real spectra or, with `--simulated`, so many of scintillator_simulation.py. A nuclide is
found if its confidence is at least 0.5, and wrong if it is neither in the source, nor in the natural
background, nor in the decay chain of either. `--cases` prints a line for each simulated spectrum.
"""

import argparse
import json
import os
import tempfile
import time
import warnings

import nuclide_results
import qar
import scintillator_simulation as simulation
from qar import formats
from qar.nuclides import builtin_library

CONFIDENT = 0.5


def nuclide_library():
    """Return all nuclides of the built-in library."""
    return [entry.nuclide for entry in builtin_library.entries()]


def counts_of(case):
    """Return the counts of a real spectrum."""
    spectra = formats.read(str(nuclide_results.spectra() / "field" / case["file"]))
    return max((one.counts for one in spectra), key=lambda one: sum(one) == case["counts"])


def analysed(counts, energy, shape, library, path):
    """Return the results of a spectrum and the CPU time in seconds."""
    with qar.open(path, "x") as source:
        source.set_spectrum(counts)
        source.set_column("QAR_D_ENERGYCAL", energy)
        source.set_column("QAR_D_SHAPECAL", shape)
        source.set_nuclide_library(library)
        start = time.process_time()
        return source.analyse(QAR_D_PEAKLIMIT=5.0), time.process_time() - start


def confidences(results):
    """Return the confidence of each nuclide that was found."""
    return {one.name: one.confidence for one in results.nuclides if one.confidence >= CONFIDENT}


def show_real(library, directory):
    """Analyse each real spectrum and print a row for it."""
    with (nuclide_results.spectra() / "field/field.json").open(encoding="utf-8") as file:
        cases = [case for case in json.load(file) if "germanium" not in case["detector"]]
    print("| spectrum | known | found, with confidence | CPU / s |\n|---|---|---|---|")
    for case in cases:
        path = f"{directory}/{case['file']}.qar"
        results, seconds = analysed(counts_of(case), case["energy"], case["shape"], library, path)
        found = ", ".join(f"{name} ({value:.2f})" for name, value in confidences(results).items())
        print(f"| {case['file']} | {', '.join(case['known'])} | {found} | {seconds:.1f} |")


def judged(case, found, annihilation):
    """Return the sources that were found, those that were not, and the wrong nuclides.

    annihilation: nuclides with no other line, which a spectrum does not distinguish.
    """
    allowed = set(nuclide_results.BACKGROUND)
    if case.kind == "LSO":
        allowed.add("Lu-176")
    outcome = {True: [], False: []}
    for source, group in zip(case.sources, case.groups):
        own = set(group) | (annihilation if source in annihilation else set())
        allowed |= own
        outcome[bool(own & set(found))].append(source)
    return outcome[True], outcome[False], [name for name in found if name not in allowed]


def show_simulated(library, directory, count, seed, prints_cases):
    """Analyse simulated spectra and print a row for each kind of detector and range of counts."""
    nuclides = simulation.Library()
    annihilation = nuclides.annihilation_only()
    rows = {}
    times = []
    for number in range(count):
        case = simulation.simulated(nuclides, number, seed)
        path = f"{directory}/{number}.qar"
        results, seconds = analysed(case.counts, case.energy, case.shape, library, path)
        os.remove(path)
        times.append(seconds)
        found, missed, wrong = judged(case, confidences(results), annihilation)
        if prints_cases:
            print(f"{number} {case.kind} {case.sources} missed {missed} wrong {wrong}")
        total = sum(case.counts)
        size = "below 10,000 counts" if total < 1e4 else "above 100,000 counts"
        size = "10,000 to 100,000 counts" if 1e4 <= total <= 1e5 else size
        for key in (case.kind, size, "all"):
            row = rows.setdefault(key, [0, 0, 0, 0])
            for column, value in enumerate((1, len(case.sources), len(found), len(wrong))):
                row[column] += value
    print("| spectra | number | nuclides | found | wrong |\n|---|---|---|---|---|")
    for key in sorted(rows):
        print(f"| {key} | {' | '.join(map(str, rows[key]))} |")
    print(f"\nCPU: {sum(times) / len(times):.2f} s on average, {max(times):.2f} s at most")


def main():
    """Print the tables."""
    parser = argparse.ArgumentParser(description="Measure the identification in scintillators.")
    parser.add_argument("--simulated", type=int, metavar="COUNT", help="simulate so many spectra")
    parser.add_argument("--seed", type=int, default=1, help="of the simulation (default: 1)")
    parser.add_argument("--cases", action="store_true", help="print each simulated spectrum")
    arguments = parser.parse_args()
    warnings.simplefilter("ignore")
    with tempfile.TemporaryDirectory() as directory:
        if arguments.simulated:
            show_simulated(
                nuclide_library(), directory, arguments.simulated, arguments.seed, arguments.cases
            )
        else:
            show_real(nuclide_library(), directory)


if __name__ == "__main__":
    main()
