#!/usr/bin/env python3
"""Print how well nuclides behind absorbers and with shortened line lists are identified.

    PYORV3_SPECTRA=DIRECTORY PYTHONPATH=build/linux/product benchmarks/shielded_results.py

Simulates a germanium detector with 100,000 counts in the strongest peak before the absorber.
"""

import csv
import math
import os
import random
import tempfile
from pathlib import Path

import nuclide_results
from qar.analysis.results import results, run_engine
from qar.nuclides import builtin_library
from qar.source import open as open_source

ATTENUATION = Path(__file__).resolve().parent.parent / "scripts/tables/attenuation.csv"
DENSITIES = {"lead": 11.35, "iron": 7.87}  # g/cm3
THICKNESSES = {"lead": (0, 1, 2, 3, 5, 8, 12), "iron": (5, 10, 20, 30, 50)}  # mm
CHANNELS, GAIN = 4096, 0.4  # keV
SHAPE = [0.8, 0.0017]  # (FWHM / keV)^2
COUNTS = 1e5
LINES = (8, 19, 26, 60)


def transmission(material, thickness, energy):
    with ATTENUATION.open(encoding="utf-8") as file:
        rows = list(csv.DictReader(line for line in file if not line.startswith("#")))
    low, high = rows[0], rows[-1]
    for one, other in zip(rows, rows[1:]):
        if float(one["energy"]) <= energy < float(other["energy"]):
            low, high = one, other
    energies = float(low["energy"]), float(high["energy"])
    part = math.log(energy / energies[0]) / math.log(energies[1] / energies[0])
    coefficient = float(low[material]) ** (1 - part) * float(high[material]) ** part
    return math.exp(-coefficient * DENSITIES[material] * thickness / 10)


def efficiency(energy):
    return (energy / 300) ** -0.9 * -math.expm1(-((energy / 60) ** 2))


def simulated(nuclide, material, thickness, generator):
    """Return the counts of a spectrum with the lines, their Compton continuum and background."""
    strongest = max(line.photons * efficiency(line.energy) for line in nuclide.lines)
    means = [20 + 200 * math.exp(-channel / 700) for channel in range(CHANNELS)]
    for line in nuclide.lines:
        behind = transmission(material, thickness, line.energy)
        area = COUNTS * line.photons * efficiency(line.energy) / strongest * behind
        sigma = math.sqrt(SHAPE[0] + SHAPE[1] * line.energy) / 2.3548 / GAIN
        centre = line.energy / GAIN
        edge = min(CHANNELS, int(centre / (1 + 511 / 2 / line.energy)))
        for channel in range(edge):
            means[channel] += 2 * area / edge
        for channel in range(int(centre - 6 * sigma), min(CHANNELS, int(centre + 7 * sigma))):
            below = math.erf((channel - 0.5 - centre) / sigma / math.sqrt(2))
            above = math.erf((channel + 0.5 - centre) / sigma / math.sqrt(2))
            means[channel] += area * (above - below) / 2
    return [max(0, round(generator.gauss(mean, math.sqrt(mean)))) for mean in means]


def analysed(counts, energy, shape, library):
    with tempfile.TemporaryDirectory() as directory:
        with open_source(os.path.join(directory, "spectrum.qar"), "x") as source:
            source.set_spectrum(counts)
            source.set_column("QAR_D_ENERGYCAL", energy)
            source.set_column("QAR_D_SHAPECAL", shape)
            source.set_nuclide_library(library)
            run_engine(source)
            return results(source)


def show_shields(library):
    nuclide_results.row("nuclide", "absorber", "lines found", "confidence", "wrong")
    nuclide_results.row(*["---"] * 5)
    generator = random.Random(1)
    for name in ("Eu-152", "Ba-133"):
        nuclide = next(one for one in library if one.name == name)
        for material, thicknesses in THICKNESSES.items():
            for thickness in thicknesses:
                counts = simulated(nuclide, material, thickness, generator)
                analysis = analysed(counts, [-GAIN, GAIN], SHAPE, library)
                everything = [*analysis.nuclides, *analysis.not_found]
                own = next((one for one in everything if one.name == name), None)
                wrong = [one.name for one in analysis.nuclides if one.name != name]
                nuclide_results.row(
                    *(name, f"{thickness} mm of {material}", own.lines if own else 0),
                    *(f"{own.confidence:.2f}" if own else "", ", ".join(wrong) or 0),
                )


def show_line_lists(library):
    nuclide_results.row("spectrum", *(f"{count} lines" for count in LINES))
    nuclide_results.row(*["---"] * (1 + len(LINES)))
    europium = next(one for one in library if one.name == "Eu-152")
    strongest = sorted(europium.lines, key=lambda line: -line.photons)
    for file, case, known, _ in nuclide_results.cases():
        if "Eu-152" in known:
            confidences = []
            for count in LINES:
                shorter = europium._replace(lines=strongest[:count])
                others = [shorter if one.name == "Eu-152" else one for one in library]
                counts = nuclide_results.counts_of(file, case)
                analysis = analysed(counts, case["energy"], case["shape"], others)
                found = {one.name: one.confidence for one in analysis.nuclides}
                confidences.append(f"{found.get('Eu-152', 0):.2f}")
            nuclide_results.row(os.path.basename(file), *confidences)


def main():
    library = [entry.nuclide for entry in builtin_library.entries()]
    show_shields(library)
    print()
    show_line_lists(library)


if __name__ == "__main__":
    main()
