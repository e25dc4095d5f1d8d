#!/usr/bin/env python3
"""Measure pulls, error rates, coverage and speed of activities on simulated spectra.

    activity_results.py [--samples N] [PART ...]

Parts: pulls, blanks, detection, coverage, speed (default: all). Prints tables in Markdown.
PYTHONPATH is the directory with the built package.
"""

import argparse
import math
import os
import random
import statistics
import tempfile
import time

from qar.analysis.results import GammaLine, Nuclide, results, run_engine
from qar.nuclides import builtin_library
from qar.source import open as open_source

CHANNELS, PER_CHANNEL = 4096, 0.5  # keV
SHAPE = (0.6, 0.0021)
EFFICIENCY = (-14.3, 4.1, -0.42)  # ln(efficiency), about 1 % at 660 keV
EFFICIENCY_UNCERTAINTY = 0.03
LIVE_TIME = 20000.0
LEVEL = 20.0  # counts of the continuum
# Activities in Bq: of the blank, which are in the sample as well, and of the sources.
BACKGROUND = {"K-40": 60.0, "Pb-214": 4.0, "Bi-214": 4.0, "Cs-137": 0.5}
SOURCES = {"Cs-137": 3.0, "Co-60": 3.0, "Mn-54": 3.0, "Ba-133": 5.0, "Eu-152": 10.0}
CS_137 = Nuclide("Cs-137", 9.5e8, (GammaLine(661.657, 0.8499, 0.003, 0.002),))


# ---- Simulation --------------------------------------------------------------------------------


def efficiency_at(energy):
    return math.exp(sum(c * math.log(energy) ** k for k, c in enumerate(EFFICIENCY)))


def add_peak(means, energy, area):
    sigma = math.sqrt(SHAPE[0] + SHAPE[1] * energy) / 2.35482 / PER_CHANNEL
    centre = energy / PER_CHANNEL
    for channel in range(int(centre - 7 * sigma), int(centre + 7 * sigma) + 2):
        low, high = ((channel + half - centre) / sigma / math.sqrt(2) for half in (-0.5, 0.5))
        if 1 <= channel <= CHANNELS:
            means[channel - 1] += 0.5 * area * (math.erf(high) - math.erf(low))


def continuum(level):
    return [level * (0.1 + 4 * math.exp(-channel / 700)) for channel in range(CHANNELS)]


def add_nuclides(means, nuclides, activities, live_time, scale=1.0):
    for nuclide, activity in zip(nuclides, activities):
        for line in nuclide.lines:
            counts = scale * activity * line.photons * efficiency_at(line.energy) * live_time
            add_peak(means, line.energy, counts)


def poisson(rng, mean):
    if mean > 50:
        return max(0, round(rng.gauss(mean, math.sqrt(mean))))
    limit, count, product = math.exp(-mean), 0, rng.random()
    while product > limit:
        count += 1
        product *= rng.random()
    return count


def redrawn(rng, nuclide):
    """Return the nuclide with yields redrawn within their uncertainties."""
    lines = [
        line._replace(photons=max(0.0, rng.gauss(line.photons, line.photons_uncertainty or 0.0)))
        for line in nuclide.lines
    ]
    return nuclide._replace(lines=tuple(lines))


class Laboratory:
    """A file with calibrations and a library, in which spectra are analysed one by one."""

    def __init__(self, directory, library):
        self.source = open_source(os.path.join(tempfile.mkdtemp(dir=directory), "a.qar"), "x")
        self.source["QAR_D_LIVETIME"] = self.source["QAR_D_REALTIME"] = LIVE_TIME
        self.source.set_calibration((0.0, PER_CHANNEL), SHAPE, EFFICIENCY)
        self.source["QAR_D_EFFICUNC"] = EFFICIENCY_UNCERTAINTY
        self.source.set_nuclide_library(library)

    def analyse(self, means, rng=None, blank=None, live_time=0.0):
        """Return the results by nuclide of counts drawn from their means, or rounded."""
        draw = round if rng is None else lambda mean: poisson(rng, mean)
        self.source.set_spectrum([draw(mean) for mean in means])
        if blank:
            self.source["QAR_D_BLANKLIVE"] = live_time
            self.source.set_column("QAR_D_BLANKENERGY", (0.0, PER_CHANNEL))
            self.source.set_column("QAR_D_BLANKSHAPE", SHAPE)
            self.source.set_column("QAR_L_BLANKCOUNTS", [draw(mean) for mean in blank])
        run_engine(self.source)
        analysis = results(self.source)
        return {one.name: one for one in (*analysis.nuclides, *analysis.not_found)}


# ---- Measurements ------------------------------------------------------------------------------


def row(*cells):
    print("| " + " | ".join(str(cell) for cell in cells) + " |", flush=True)


def head(*cells):
    row(*cells)
    row(*["---"] * len(cells))


def known_nuclides():
    return {entry.nuclide.name: entry.nuclide for entry in builtin_library.entries()}


def pulls(directory, samples, rng):
    nuclides = known_nuclides()
    laboratory = Laboratory(directory, [nuclides[name] for name in {**BACKGROUND, **SOURCES}])
    head("nuclide", "mean of the pulls", "standard deviation", "values")
    for name, activity in SOURCES.items():
        values = []
        for _ in range(samples):
            scale = rng.gauss(1, EFFICIENCY_UNCERTAINTY)
            natural = [redrawn(rng, nuclides[key]) for key in BACKGROUND]
            blank = continuum(LEVEL)
            add_nuclides(blank, natural, BACKGROUND.values(), LIVE_TIME, scale)
            sample = list(blank)
            add_nuclides(sample, [redrawn(rng, nuclides[name])], [activity], LIVE_TIME, scale)
            longer = [3 * mean for mean in blank]
            result = laboratory.analyse(sample, rng, longer, 3 * LIVE_TIME)[name]
            if result.activity is not None:
                values.append((result.activity - activity) / result.activity_uncertainty)
        mean, deviation = statistics.mean(values), statistics.pstdev(values)
        row(name, f"{mean:+.2f}", f"{deviation:.2f}", len(values))
    laboratory.source.close()


def level_for(counts, energy):
    """Return the level of the continuum for a number of counts within 1.25 FWHM of an energy."""
    width = 2.5 * math.sqrt(SHAPE[0] + SHAPE[1] * energy) / PER_CHANNEL
    return counts / width / continuum(1.0)[int(energy / PER_CHANNEL)]


def repeated(laboratory, samples, rng, background, activity_of):
    """Return an activity that a spectrum without it determines, and results of samples with it."""
    means = continuum(level_for(background, CS_137.lines[0].energy))
    activity = activity_of(laboratory.analyse(means, random.Random(2))["Cs-137"])
    add_nuclides(means, [CS_137], [activity], LIVE_TIME)
    return activity, [laboratory.analyse(means, rng)["Cs-137"] for _ in range(samples)]


def rates(directory, samples, rng, title, activity_of, is_counted):
    laboratory = Laboratory(directory, [CS_137])
    head("counts under the line", "activity, Bq", title)
    for background in (3, 30, 3000):
        activity, found = repeated(laboratory, samples, rng, background, activity_of)
        part = 100 * sum(is_counted(one, activity) for one in found) / samples
        row(background, f"{activity:.3g}", f"{part:.1f} %")
    laboratory.source.close()


def is_above(one, _):
    return one.activity > one.decision_threshold


def is_missed(one, _):
    return not is_above(one, None)


def is_covered(one, activity):
    return one.lower_limit <= activity <= one.upper_limit


def blanks(*arguments):
    rates(*arguments, "above the decision threshold", lambda one: 0.0, is_above)


def detection(*arguments):
    title = "not above the decision threshold"
    rates(*arguments, title, lambda one: one.detection_limit, is_missed)


def coverage(*arguments):
    title = "inside the coverage interval"
    rates(*arguments, title, lambda one: 3 * one.decision_threshold, is_covered)


def speed(directory, samples, rng):
    nuclides = known_nuclides()
    laboratory = Laboratory(directory, list(nuclides.values()))
    sources = {**BACKGROUND, **SOURCES}
    means = continuum(LEVEL)
    add_nuclides(means, [nuclides[name] for name in sources], sources.values(), LIVE_TIME)
    head("295 nuclides", "CPU, s", "found", "not found")
    for title in ("with efficiency", "without efficiency"):
        seconds = time.process_time()
        laboratory.analyse(means, rng)
        seconds = time.process_time() - seconds
        analysis = results(laboratory.source)
        row(title, f"{seconds:.2f}", len(analysis.nuclides), len(analysis.not_found))
        laboratory.source.clear("QAR_CLS_CALIBRATION")
        laboratory.source.set_calibration((0.0, PER_CHANNEL), SHAPE)
    laboratory.source.close()


PARTS = {part.__name__: part for part in (pulls, blanks, detection, coverage, speed)}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--samples", type=int, default=200, help="for each row of a table")
    parser.add_argument("parts", nargs="*", metavar="PART", help=", ".join(PARTS))
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory() as directory:
        for name in arguments.parts or PARTS:
            print(f"\n### {name}\n")
            PARTS[name](directory, arguments.samples, random.Random(1))


if __name__ == "__main__":
    main()
