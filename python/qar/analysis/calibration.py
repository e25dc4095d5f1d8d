"""Energy, peak width and efficiency as functions of channel and energy.

A QAR file counts channels from 1: the first channel of the spectrum is channel 1, and the energy
polynomial takes that number. Most other formats, and numpy, count from 0. `counted_from_zero` and
`counted_from_one` are the only functions that convert between the two.
"""

import math
from fractions import Fraction
from typing import Iterable, List, NamedTuple, Sequence, Tuple, Union

FWHM_PER_SIGMA = 2 * math.sqrt(2 * math.log(2))
"""The full width at half maximum of a Gaussian, in standard deviations."""

PARAMETERS = {
    "energy": "QAR_D_ENERGYCAL",
    "shape": "QAR_D_SHAPECAL",
    "efficiency": "QAR_D_EFFICCAL",
}
"""The parameters of a QAR file that hold the coefficients of each calibration."""


def polynomial(coefficients: Iterable[float], x: float) -> float:
    """Return c1 + c2 x + c3 x^2 + ..., the form of every calibration in a file."""
    value = 0.0
    for coefficient in reversed(tuple(coefficients)):
        value = value * x + coefficient
    return value


def shifted(coefficients: Iterable[Union[float, Fraction]], shift: int) -> List[Fraction]:
    """Return the exact coefficients of the polynomial q with q(x) = p(x + shift)."""
    exact = [Fraction(coefficient) for coefficient in coefficients]
    for low in range(len(exact) - 1):
        for order in range(len(exact) - 2, low - 1, -1):
            exact[order] += shift * exact[order + 1]
    return exact


def counted_from_zero(coefficients: Iterable[Union[float, Fraction]]) -> Tuple[float, ...]:
    """Convert an energy polynomial of a QAR file to one for channels counted from 0."""
    return tuple(map(float, shifted(coefficients, 1)))


def counted_from_one(coefficients: Iterable[Union[float, Fraction]]) -> Tuple[float, ...]:
    """Convert an energy polynomial for channels counted from 0 to that of a QAR file.

    Raises OverflowError if a coefficient is too large for a double.
    """
    return tuple(map(float, shifted(coefficients, -1)))


class Calibration(NamedTuple):
    """The calibrations of a spectrum, as the coefficients of polynomials, lowest order first.

    energy: keV as a function of the channel, counted from 1. shape: the square of the FWHM in keV
    as a function of the energy in keV. efficiency: its natural logarithm as a function of the
    natural logarithm of the energy in keV. A missing calibration is empty; a value of it raises
    ValueError.
    """

    energy: Tuple[float, ...] = ()
    shape: Tuple[float, ...] = ()
    efficiency: Tuple[float, ...] = ()

    def energy_at(self, channel: float) -> float:
        """Return the energy in keV at a channel, counted from 1, which may be a fraction."""
        return polynomial(_existing(self.energy, "energy"), channel)

    def energies(self, channels: int) -> List[float]:
        """Return the energies in keV of channels 1 to `channels`."""
        return [self.energy_at(channel) for channel in range(1, channels + 1)]

    def channel_at(self, energy: float) -> float:
        """Return the channel, counted from 1, at an energy in keV; usually a fraction.

        Raises ValueError if the polynomial does not rise to that energy.
        """
        coefficients = _existing(self.energy, "energy")
        slopes = [power * c for power, c in enumerate(coefficients)][1:]
        channel = 0.0
        for _ in range(100):  # Newton's method: the polynomials are almost linear
            slope = polynomial(slopes, channel)
            if slope <= 0:
                break
            step = (energy - polynomial(coefficients, channel)) / slope
            channel += step
            if abs(step) <= 1e-12 * max(1.0, abs(channel)):
                return channel
        raise ValueError(f"the energy calibration does not rise to {energy:g} keV")

    def fwhm_at(self, energy: float) -> float:
        """Return the FWHM in keV of a peak at an energy in keV.

        Raises ValueError if the calibration gives no width there.
        """
        square = polynomial(_existing(self.shape, "shape"), energy)
        if square <= 0:
            raise ValueError(f"the shape calibration gives no width at {energy:g} keV")
        return math.sqrt(square)

    def efficiency_at(self, energy: float) -> float:
        """Return the counts in the full-energy peak per emitted photon at an energy above 0 keV."""
        return math.exp(polynomial(_existing(self.efficiency, "efficiency"), math.log(energy)))


def _existing(coefficients: Tuple[float, ...], kind: str) -> Tuple[float, ...]:
    if not coefficients:
        raise ValueError(f"there is no {kind} calibration")
    return coefficients


def fit_polynomial(
    xs: Sequence[float], ys: Sequence[float], weights: Sequence[float], degree: int
) -> Tuple[float, ...]:
    """Return the coefficients of the weighted least-squares polynomial.

    xs: at least degree + 1 different values. weights: the inverse variances, each above 0.
    Raises ValueError if there are too few points.
    """
    if len(set(xs)) <= degree:
        raise ValueError(f"a polynomial of degree {degree} needs {degree + 1} points")
    scale = max(abs(x) for x in xs) or 1.0
    powers = [[(x / scale) ** power for power in range(degree + 1)] for x in xs]
    rows = [
        [sum(w * p[i] * p[j] for w, p in zip(weights, powers)) for j in range(degree + 1)]
        + [sum(w * p[i] * y for w, p, y in zip(weights, powers, ys))]
        for i in range(degree + 1)
    ]
    return tuple(c / scale**power for power, c in enumerate(map(float, solve(rows))))


def solve(rows: Sequence[Sequence[Union[float, Fraction]]]) -> List[Fraction]:
    """Solve a linear system whose rows end with the right-hand side, by Gaussian elimination.

    The arithmetic is exact because the normal equations of a polynomial are almost singular.
    """
    exact = [[Fraction(item) for item in row] for row in rows]
    size = len(exact)
    for column in range(size):
        pivot = next(row for row in range(column, size) if exact[row][column] != 0)
        exact[column], exact[pivot] = exact[pivot], exact[column]
        exact[column] = [item / exact[column][column] for item in exact[column]]
        for row in range(size):
            if row != column:
                factor = exact[row][column]
                exact[row] = [a - factor * b for a, b in zip(exact[row], exact[column])]
    return [row[-1] for row in exact]
