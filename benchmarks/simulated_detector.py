"""Simulated germanium spectra: detectors, absorbers, continua, escape, sum and annihilation peaks.

The physics does not depend on the assumptions of the engine. Efficiencies follow from the attenuation of
photons in windows and crystal, continua from the Klein-Nishina formula.
"""

import csv
import math
import sys
from pathlib import Path
from typing import NamedTuple, Tuple

from qar.analysis.calibration import FWHM_PER_SIGMA, polynomial

PROJECT = Path(__file__).resolve().parent.parent
sys.path.insert(0, str(PROJECT / "examples"))

from simulation import compton_edge, normal_cdf, poisson  # noqa: E402

ELECTRON_MASS = 510.999  # keV
DENSITIES = {"lead": 11.35, "iron": 7.87, "germanium": 5.32, "aluminium": 2.70}  # g/cm3
REACH = 7  # sigma on each side of a peak; tails reach twice as far


# ---- Attenuation -------------------------------------------------------------------------------


def _shield_table():
    with (PROJECT / "scripts/tables/attenuation.csv").open(encoding="utf-8") as file:
        rows = list(csv.DictReader(line for line in file if not line.startswith("#")))
    return {
        name: [(float(row["energy"]), float(row[name])) for row in rows]
        for name in ("lead", "iron")
    }


# Mass attenuation coefficients in cm2/g at energies in keV.
ATTENUATION = {
    **_shield_table(),
    "germanium": [
        (10, 37.4), (11.1, 28.1), (11.11, 198), (15, 91.5), (20, 42.2), (30, 13.9), (40, 6.21),
        (50, 3.34), (60, 2.02), (80, 0.950), (100, 0.555), (150, 0.249), (200, 0.166),
        (300, 0.113), (400, 0.0933), (500, 0.0821), (600, 0.0745), (800, 0.0643), (1000, 0.0573),
        (1500, 0.0466), (2000, 0.0409), (3000, 0.0352),
    ],
    "aluminium": [
        (10, 26.2), (15, 7.96), (20, 3.44), (30, 1.13), (40, 0.569), (50, 0.368), (60, 0.278),
        (80, 0.202), (100, 0.170), (150, 0.138), (200, 0.122), (300, 0.104), (500, 0.0845),
        (1000, 0.0615), (2000, 0.0432), (3000, 0.0354),
    ],
}  # fmt: skip


def transmission(material, thickness, energy):
    """Return the part of photons that pass an absorber. thickness: mm; energy: keV."""
    table = ATTENUATION[material]
    low, high = table[0], table[-1]
    for one, other in zip(table, table[1:]):
        if one[0] <= energy < other[0]:
            low, high = one, other
    part = math.log(energy / low[0]) / math.log(high[0] / low[0])
    coefficient = low[1] ** (1 - part) * high[1] ** part
    return math.exp(-coefficient * DENSITIES[material] * thickness / 10)


# ---- Detector ----------------------------------------------------------------------------------


class Detector(NamedTuple):
    """A germanium detector with its electronics."""

    channels: int
    energy: Tuple[float, ...]  # keV = c1 + c2 channel + c3 channel^2, channels from 1
    shape: Tuple[float, float]  # (FWHM / keV)^2 = c1 + c2 energy
    crystal: float = 60.0  # mm
    windows: Tuple[Tuple[str, float], ...] = ()  # materials and thicknesses in mm
    solid_angle: float = 0.01  # part of the sphere
    left_tail: Tuple[float, float] = (0.0, 1.0)  # part of the area, decay length in sigma
    right_tail: Tuple[float, float] = (0.0, 1.0)
    step: float = 0.0  # height as a part of that of the peak
    escape: float = 0.2  # single escape peak as a part of the full-energy peak at 2,614 keV

    def sigma(self, energy):
        return math.sqrt(polynomial(self.shape, energy)) / FWHM_PER_SIGMA

    def total_efficiency(self, energy):
        passed = math.prod(transmission(*window, energy) for window in self.windows)
        stopped = 1 - transmission("germanium", self.crystal, energy)
        return self.solid_angle * passed * stopped

    def peak_part(self, energy):
        """The part of the detected photons that deposit their full energy."""
        return 1 / (1 + (energy / (7 * self.crystal)) ** 1.1)

    def efficiency(self, energy):
        return self.total_efficiency(energy) * self.peak_part(energy)


# ---- Spectrum ----------------------------------------------------------------------------------


def _tailed(z, length):
    """Distribution function of a Gaussian that is folded with an exponential upwards."""
    exponent = 0.5 / length**2 - z / length
    if exponent > 600:  # the second term vanishes
        return normal_cdf(z)
    return normal_cdf(z) - math.exp(exponent) * normal_cdf(z - 1 / length)


class Spectrum:
    """The expected contents of the channels of a detector, to which peaks and continua are added."""

    GRID = 2.0  # keV between the points of the smooth continuum

    def __init__(self, detector):
        self.detector = detector
        self.means = [0.0] * detector.channels
        self._edges = [
            polynomial(detector.energy, channel + 0.5) for channel in range(detector.channels + 1)
        ]
        self._smooth = [0.0] * (int(self._edges[-1] / self.GRID) + 2)
        self._steps = [0.0] * detector.channels  # heights that begin below each channel

    def channels_near(self, low, high):
        """Return the indexes of channels between two energies."""
        first, second = self._edges[0], self._edges[-1]
        scale = len(self.means) / (second - first)
        start = max(0, int((low - first) * scale) - 2)
        return range(start, min(len(self.means), int((high - first) * scale) + 3))

    def add_peak(self, energy, area, broadening=0.0, scattered=0.0):
        """Add a peak with tails and step.

        broadening: sigma in keV that is added in quadrature. scattered: counts of photons that lost a
        part of their energy in an absorber, spread evenly up to the peak.
        """
        detector = self.detector
        sigma = math.hypot(detector.sigma(energy), broadening)
        (left, left_length), (right, right_length) = detector.left_tail, detector.right_tail
        reach = REACH * sigma * (2 if left or right else 1)

        def distribution(z):
            value = (1 - left - right) * normal_cdf(z)
            value += left * (1 - _tailed(-z, left_length)) if left else 0.0
            return value + (right * _tailed(z, right_length) if right else 0.0)

        width = 0.5 * (self._edges[-1] - self._edges[0]) / len(self.means)
        step = detector.step * area * math.erf(width / sigma / math.sqrt(2))
        step += scattered * 2 * width / energy
        below = None
        for channel in self.channels_near(energy - reach, energy + reach):
            low, high = (edge - energy for edge in self._edges[channel : channel + 2])
            below = distribution(low / sigma) if below is None else below
            above = distribution(high / sigma)
            self.means[channel] += area * (above - below)
            self._steps[channel] += step * (above - below)
            below = above

    def add_continuum(self, counts, density, high):
        """Add counts in proportion to a density below an energy."""
        points = range(min(len(self._smooth), max(2, int(high / self.GRID) + 1)))
        values = [density((point + 0.5) * self.GRID) for point in points]
        total = sum(values)
        for point, value in zip(points, values):
            self._smooth[point] += counts * value / total if total > 0 else 0.0

    def add_compton(self, energy, peak_area):
        """Add the continuum of a full-energy peak."""
        part = self.detector.peak_part(energy)
        counts = peak_area * (1 - part) / part
        edge = compton_edge(energy)
        back = energy - edge
        self.add_continuum(0.75 * counts, lambda one: klein_nishina(energy, one), edge)
        self.add_continuum(0.15 * counts, lambda one: 1 - one / energy, energy)
        self.add_continuum(
            0.1 * counts,
            lambda one: math.exp(-0.5 * ((one - 1.05 * back) / (0.12 * back)) ** 2),
            energy,
        )

    def finished(self):
        """Return the expected contents of the channels."""
        means = list(self.means)
        height = 0.0
        for channel in reversed(range(len(means))):
            low, high = self._edges[channel : channel + 2]
            means[channel] += height
            height += self._steps[channel]
            point = max(0.0, 0.5 * (low + high) / self.GRID - 0.5)
            index = min(int(point), len(self._smooth) - 2)
            part = min(1.0, point - index)
            density = self._smooth[index] * (1 - part) + self._smooth[index + 1] * part
            means[channel] += density * (high - low) / self.GRID
        return means


def klein_nishina(energy, deposited):
    """Return the relative probability that a photon leaves an energy in one Compton scattering."""
    if deposited >= compton_edge(energy):
        return 0.0
    alpha = energy / ELECTRON_MASS
    s = deposited / energy
    return 2 + (s / alpha / (1 - s)) ** 2 + s / (1 - s) * (s - 2 / alpha)


def counted(means, generator):
    return [poisson(mean, generator) for mean in means]
