#!/usr/bin/env python3
"""Print how well nuclides behind absorbers and with shortened line lists are identified.

    PYORV3_SPECTRA=DIRECTORY PYTHONPATH=build/linux/product benchmarks/shielded_results.py

Simulates a germanium detector with 100,000 counts in the strongest peak before the absorber.
"""

import math
import os
import random
import tempfile

import nuclide_results
import simulated_detector
from qar.analysis.results import results, run_engine
from qar.nuclides import builtin_library
from qar.source import open as open_source
from simulated_detector import Detector, Spectrum, compton_edge, transmission

THICKNESSES = {"lead": (0, 1, 2, 3, 5, 8, 12), "iron": (5, 10, 20, 30, 50)}  # mm
CHANNELS, GAIN = 4096, 0.4  # keV
DETECTOR = Detector(CHANNELS, (-GAIN, GAIN), shape=(0.8, 0.0017))
COUNTS = 1e5
LINES = (8, 19, 26, 60)


def efficiency(energy):
    return (energy / 300) ** -0.9 * -math.expm1(-((energy / 60) ** 2))


def simulated(nuclide, material, thickness, generator):
    """Return the counts of a spectrum with the lines, their Compton continuum and background."""
    strongest = max(line.photons * efficiency(line.energy) for line in nuclide.lines)
    spectrum = Spectrum(DETECTOR)
    for line in nuclide.lines:
        behind = transmission(material, thickness, line.energy)
        area = COUNTS * line.photons * efficiency(line.energy) / strongest * behind
        spectrum.add_peak(line.energy, area)
        spectrum.add_continuum(2 * area, lambda energy: 1.0, compton_edge(line.energy))
    background = (20 + 200 * math.exp(-channel / 700) for channel in range(CHANNELS))
    means = (sum(pair) for pair in zip(spectrum.finished(), background))
    return simulated_detector.counted(means, generator)


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
                analysis = analysed(counts, DETECTOR.energy, DETECTOR.shape, library)
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
