"""Simulate the gamma spectrum of a germanium detector.

The examples use it instead of a detector, so that they run anywhere. Peaks are Gaussians, each with
the step of its Compton continuum; counts have a Poisson distribution.
"""

import math
import random
from typing import List, Tuple

from nuclides import LIBRARY
from qar.analysis.calibration import FWHM_PER_SIGMA, polynomial

CHANNELS = 4096
LIVE_TIME = 3600.0  # s
REAL_TIME = 3621.4  # s

ENERGY = (0.12, 0.4985)  # keV = c1 + c2 channel, channels from 1
SHAPE = (1.221, 0.001793)  # (FWHM / keV)^2 = c1 + c2 energy / keV
EFFICIENCY = (-2.45, 0.55, -0.145)  # ln efficiency = c1 + c2 ln(E / keV) + c3 ln(E / keV)^2

ACTIVITIES = {  # Bq
    "Am-241": 610.0,
    "Ba-133": 95.0,
    "Co-57": 130.0,
    "Co-60": 230.0,
    "Cs-137": 320.0,
    "K-40": 900.0,
}


def energy_at(channel: float) -> float:
    return polynomial(ENERGY, channel)


def fwhm_at(energy: float) -> float:
    return math.sqrt(polynomial(SHAPE, energy))


def efficiency_at(energy: float) -> float:
    return math.exp(polynomial(EFFICIENCY, math.log(energy)))


def peaks() -> List[Tuple[float, float]]:
    """Return the energy and the expected net area of each peak."""
    return [
        (energy, ACTIVITIES[nuclide.name] * photons * efficiency_at(energy) * LIVE_TIME)
        for nuclide in LIBRARY
        if nuclide.name in ACTIVITIES
        for energy, photons in nuclide.lines
    ]


def compton_edge(energy: float) -> float:
    """Return the maximum energy in keV that a photon deposits in a single scattering."""
    return energy / (1 + 510.999 / (2 * energy))


def normal_cdf(x: float) -> float:
    return 0.5 * (1 + math.erf(x / math.sqrt(2)))


def expected_counts() -> List[float]:
    """Return the expected content of every channel."""
    counts = []
    lines = [(energy, area, fwhm_at(energy) / FWHM_PER_SIGMA) for energy, area in peaks()]
    for channel in range(1, CHANNELS + 1):
        low, middle, high = (energy_at(channel + shift) for shift in (-0.5, 0, 0.5))
        continuum = 900 * math.exp(-middle / 110) + 160 * math.exp(-middle / 520)
        in_peaks = 0.3
        for energy, area, sigma in lines:
            in_peaks += area * normal_cdf((high - energy) / sigma)
            in_peaks -= area * normal_cdf((low - energy) / sigma)
            edge = compton_edge(energy)
            continuum += 2 * area * (high - low) / edge * normal_cdf((edge - middle) / 12)
        threshold = normal_cdf((middle - 22) / 4)  # of the electronics
        counts.append(continuum * threshold + in_peaks)
    return counts


def poisson(mean: float, generator: random.Random) -> int:
    """Return a random number with a Poisson distribution, a rounded normal one for large means."""
    if mean > 200:
        return max(0, round(generator.gauss(mean, math.sqrt(mean))))
    limit, product, number = math.exp(-mean), generator.random(), 0
    while product > limit:
        product *= generator.random()
        number += 1
    return number


def measure(seed: int) -> List[int]:
    """Return a measured spectrum, which only depends on the seed."""
    generator = random.Random(seed)
    return [poisson(count, generator) for count in expected_counts()]


if __name__ == "__main__":  # print a table with two columns, channel and counts
    for number, content in enumerate(measure(seed=417), start=1):
        print(f"{number},{content}")
