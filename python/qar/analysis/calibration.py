"""Calibrations: energy, peak width and efficiency as functions of channel and energy.

A QAR file counts channels from 1: the first channel of the spectrum is channel 1, and the energy
polynomial takes that number. Most formats of the field, and numpy, count from 0. This module is
the one place that shifts the origin: `counted_from_zero` and `counted_from_one`.
"""

import math
from fractions import Fraction
from typing import Iterable, List, NamedTuple, Sequence, Tuple, Union


def polynomial(coefficients: Iterable[float], x: float) -> float:
    """c1 + c2 x + c3 x^2 + ...: the form of every calibration in a file."""
    value = 0.0
    for coefficient in reversed(tuple(coefficients)):
        value = value * x + coefficient
    return value


def shifted(coefficients: Iterable[Union[float, Fraction]], shift: int) -> List[Fraction]:
    """The coefficients of q with q(x) = p(x + shift), exactly."""
    exact = [Fraction(coefficient) for coefficient in coefficients]
    for low in range(len(exact) - 1):
        for place in range(len(exact) - 2, low - 1, -1):
            exact[place] += shift * exact[place + 1]
    return exact


def counted_from_zero(coefficients: Iterable[float]) -> Tuple[float, ...]:
    """An energy polynomial of a QAR file (first channel: 1) for channels counted from 0."""
    return tuple(map(float, shifted(coefficients, 1)))


def counted_from_one(coefficients: Iterable[float]) -> Tuple[float, ...]:
    """An energy polynomial for channels counted from 0 as a QAR file has it (first channel: 1)."""
    return tuple(map(float, shifted(coefficients, -1)))


class Calibration(NamedTuple):
    """The calibrations of a spectrum, as the coefficients that its file has.

    energy: keV as a polynomial in the channel, counted from 1. shape: the square of the width
    (FWHM) in keV as a polynomial in the energy in keV. efficiency: its natural logarithm as a
    polynomial in the natural logarithm of the energy in keV. Empty where there is none; asking
    for a value then raises ValueError.
    """

    energy: Tuple[float, ...] = ()
    shape: Tuple[float, ...] = ()
    efficiency: Tuple[float, ...] = ()

    def energy_at(self, channel: float) -> float:
        """The energy in keV at a channel, counted from 1; fractions lie between channels."""
        return polynomial(_present(self.energy, "energy"), channel)

    def energies(self, channels: int) -> List[float]:
        """The energies in keV of channels 1 to `channels`."""
        return [self.energy_at(channel) for channel in range(1, channels + 1)]

    def channel_at(self, energy: float) -> float:
        """The channel, counted from 1, at an energy in keV; a fraction as a rule.

        ValueError: the polynomial does not rise to that energy.
        """
        coefficients = _present(self.energy, "energy")
        slopes = [power * c for power, c in enumerate(coefficients)][1:]
        channel = 0.0
        for _ in range(100):  # Newton's method: the polynomials are all but linear
            slope = polynomial(slopes, channel)
            if slope <= 0:
                break
            step = (energy - polynomial(coefficients, channel)) / slope
            channel += step
            if abs(step) <= 1e-12 * max(1.0, abs(channel)):
                return channel
        raise ValueError(f"the energy calibration does not rise to {energy:g} keV")

    def fwhm_at(self, energy: float) -> float:
        """The width (FWHM) in keV of a peak at an energy in keV. ValueError: there is none."""
        square = polynomial(_present(self.shape, "shape"), energy)
        if square <= 0:
            raise ValueError(f"the shape calibration gives no width at {energy:g} keV")
        return math.sqrt(square)

    def efficiency_at(self, energy: float) -> float:
        """Counts in the full-energy peak per photon emitted, at an energy in keV above 0."""
        return math.exp(polynomial(_present(self.efficiency, "efficiency"), math.log(energy)))


def _present(coefficients: Tuple[float, ...], what: str) -> Tuple[float, ...]:
    if not coefficients:
        raise ValueError(f"there is no {what} calibration")
    return coefficients


def fit_polynomial(
    xs: Sequence[float], ys: Sequence[float], weights: Sequence[float], degree: int
) -> Tuple[float, ...]:
    """The coefficients of the polynomial of least weighted squares; exact for enough points.

    xs: at least degree + 1 different ones. weights: one over the variance, each above 0.
    """
    if len(set(xs)) <= degree:
        raise ValueError(f"a polynomial of degree {degree} wants {degree + 1} points")
    scale = max(abs(x) for x in xs) or 1.0
    powers = [[(x / scale) ** power for power in range(degree + 1)] for x in xs]
    rows = [
        [sum(w * p[i] * p[j] for w, p in zip(weights, powers)) for j in range(degree + 1)]
        + [sum(w * p[i] * y for w, p, y in zip(weights, powers, ys))]
        for i in range(degree + 1)
    ]
    return tuple(c / scale**power for power, c in enumerate(map(float, solve(rows))))


def solve(rows: Sequence[Sequence[Union[float, Fraction]]]) -> List[Fraction]:
    """Gauss's elimination of a system whose rows end with the right side; exact arithmetic, for
    the normal equations of a polynomial are close to singular.
    """
    exact = [[Fraction(item) for item in row] for row in rows]
    size = len(exact)
    for place in range(size):
        pivot = next(row for row in range(place, size) if exact[row][place] != 0)
        exact[place], exact[pivot] = exact[pivot], exact[place]
        exact[place] = [item / exact[place][place] for item in exact[place]]
        for row in range(size):
            if row != place:
                factor = exact[row][place]
                exact[row] = [a - factor * b for a, b in zip(exact[row], exact[place])]
    return [row[-1] for row in exact]
