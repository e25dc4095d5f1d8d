#!/usr/bin/env python3
"""Measure the error of efficiency calibrations with simulated certified sources.

    efficiency_results.py [--sources N] [--total VALUE]

Each source has other activities and yields, drawn within their uncertainties. Prints the largest
deviation from the true efficiency from 70 to 1,800 keV and the pulls (deviation over uncertainty) as
a table in Markdown. PYTHONPATH names the directory with the built package.
"""

import argparse
import math
import os
import random
import statistics
import sys
import tempfile
from datetime import datetime, timezone
from pathlib import Path

import qar
from qar.analysis import summing
from qar.analysis.calibration import FWHM_PER_SIGMA
from qar.analysis.certified_source import CertifiedActivity
from qar.analysis.summing import TotalEfficiency
from qar.nuclides import builtin_library, coincidences, efficiency_calibration

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "examples"))

import simulation  # noqa: E402

CHANNELS, ENERGY, SHAPE = 8192, (0.1, 0.25), (0.6, 0.0016)
LIVE_TIME, REAL_TIME = 20000.0, 20400.0  # s
START = datetime(2024, 6, 3, 8, 0, tzinfo=timezone.utc)
REFERENCE = datetime(2024, 1, 1, 12, 0, tzinfo=timezone.utc)
ENERGIES = (70, 90, 120, 180, 250, 350, 500, 700, 900, 1200, 1500, 1800)  # keV
SOURCES = {  # Bq and the relative uncertainty of the certificate
    "mixed": {
        "Am-241": (4000, 0.015), "Cd-109": (16000, 0.02), "Co-57": (700, 0.012), "Ce-139": (900, 0.012),
        "Sn-113": (2500, 0.015), "Sr-85": (4000, 0.012), "Cs-137": (3000, 0.012), "Y-88": (6000, 0.012),
        "Co-60": (3500, 0.01),
    },
    "Eu-152, Am-241": {"Eu-152": (8000, 0.012), "Am-241": (4000, 0.015)},
    "Eu-152, Ba-133, Co-60": {
        "Eu-152": (6000, 0.012), "Ba-133": (4000, 0.012), "Co-60": (3500, 0.01), "Am-241": (3000, 0.015),
    },
}  # fmt: skip


def true_efficiency(energy):
    """The efficiency of a coaxial detector: absorbers in front, a crystal that gets transparent."""
    absorbed = 1 - math.exp(-((energy / 62) ** 2.2))
    return 0.021 * absorbed * (1 + (energy / 190) ** 2.4) ** (-0.42)


def expected_areas(activities, generator, total):
    """Return the energy and the expected area of each peak, with redrawn activities and yields."""
    areas = []
    for name, (activity, relative) in activities.items():
        nuclide = builtin_library.named(name)[0].nuclide
        constant = math.log(2) / nuclide.half_life
        decay = math.exp(-constant * (START - REFERENCE).total_seconds())
        decay *= -math.expm1(-constant * REAL_TIME) / (constant * REAL_TIME)
        true = activity * generator.gauss(1, relative) * decay * LIVE_TIME
        factors = summing.factors(
            nuclide.lines, coincidences.pairs().get(name, ()), total, true_efficiency
        )
        for line, factor in zip(nuclide.lines, factors):
            photons = max(0.0, generator.gauss(line.photons, line.photons_uncertainty or 0.0))
            areas.append(
                (line.energy, true * photons * true_efficiency(line.energy) * factor.factor)
            )
    return areas


def spectrum(areas, generator):
    counts = [30 + 3000 * math.exp(-(0.1 + 0.25 * channel) / 300) for channel in range(CHANNELS)]
    for energy, area in areas:
        sigma = math.sqrt(SHAPE[0] + SHAPE[1] * energy) / FWHM_PER_SIGMA
        middle = (energy - ENERGY[0]) / ENERGY[1]
        reach = math.ceil(6 * sigma / ENERGY[1])
        for channel in range(max(1, int(middle) - reach), min(CHANNELS, int(middle) + reach) + 1):
            low = (channel - 0.5 - middle) * ENERGY[1] / sigma
            high = low + ENERGY[1] / sigma
            counts[channel - 1] += area * (simulation.normal_cdf(high) - simulation.normal_cdf(low))
    return [simulation.poisson(mean, generator) for mean in counts]


def write_source(path, activities, generator, total):
    """Create a QAR file with the spectrum of a certified source; return its certificate."""
    with qar.open(path, "x") as source:
        source.set_spectrum(spectrum(expected_areas(activities, generator, total), generator))
        source.set_calibration(ENERGY, SHAPE)
        source.update({"QAR_D_LIVETIME": LIVE_TIME, "QAR_D_REALTIME": REAL_TIME})
        source["QAR_T_ACQSTART"] = START
    return [
        CertifiedActivity(name, activity, activity * relative, REFERENCE)
        for name, (activity, relative) in activities.items()
    ]


def deviations(path, activities, generator, true_total, known_total):
    """Return the pull and the relative deviation at each energy."""
    certificate = write_source(path, activities, generator, true_total)
    with qar.open(path) as source:
        method = efficiency_calibration.Method(total=known_total)
        library = builtin_library.load(short_lived=True)
        curve = efficiency_calibration.calibrate(source, certificate, library, method).curve
    result = []
    for energy in ENERGIES:
        deviation = math.log(curve.value_at(energy) / true_efficiency(energy))
        result.append((deviation / curve.uncertainty_at(energy), deviation))
    return result


def show(name, sources, total, is_known):
    generator = random.Random(2024)
    true_total = TotalEfficiency((45.0, 3000.0), (max(total, 1e-9),) * 2)
    measured = []
    with tempfile.TemporaryDirectory() as directory:
        for number in range(sources):
            shift = math.exp(generator.gauss(0, true_total.uncertainty))
            drawn = true_total._replace(
                efficiencies=tuple(value * shift for value in true_total.efficiencies)
            )
            path = os.path.join(directory, f"{number}.qar")
            known = true_total if is_known else None
            measured += deviations(path, SOURCES[name], generator, drawn, known)
    pulls, errors = zip(*measured)
    corrected = "corrected" if is_known else "not corrected"
    cells = (
        *(name, f"{100 * total:g} %", corrected, sources),
        *(f"{100 * max(map(abs, errors)):.1f} %", f"{100 * statistics.pstdev(errors):.1f} %"),
        *(f"{statistics.mean(pulls):+.2f}", f"{statistics.pstdev(pulls):.2f}"),
    )
    print("| " + " | ".join(map(str, cells)) + " |", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--sources", type=int, default=20, help="sources of each kind")
    parser.add_argument(
        "--total", type=float, default=0.03, help="total efficiency at all energies"
    )
    arguments = parser.parse_args()
    heads = "source, total efficiency, summing, sources, max deviation, standard deviation"
    print("| " + " | ".join([*heads.split(", "), "mean pull", "sd of pulls"]) + " |")
    print("|" + "---|" * 8)
    for name in SOURCES:
        show(name, arguments.sources, 0.0, False)
        show(name, arguments.sources, arguments.total, True)
        show(name, arguments.sources, arguments.total, False)


if __name__ == "__main__":
    main()
