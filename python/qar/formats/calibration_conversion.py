"""Convert calibrations between the forms that formats and QAR files use.

Polynomials have the lowest order first. All arithmetic is exact and rounded once at the end, so
that a calibration survives a round trip to the last bit.
"""

import decimal
import functools
import math
from fractions import Fraction
from typing import List, NamedTuple, Optional, Sequence, Tuple

from ..analysis.calibration import counted_from_one, shifted, solve
from .parsing import exact

MAX_COEFFICIENTS = 20
"""The length of the longest list of coefficients that is read."""

# By which a fit may miss a small energy, relative to the largest one.
_MIN_TOLERANCE = Fraction(1, 10**12)
_SAMPLES = 32  # number of energies at which two forms of a width are compared
_MAX_DEGREE = 8  # of a shape that is fitted to widths in channels


def evaluate(coefficients: Sequence[Fraction], x: Fraction) -> Fraction:
    """Return the exact value of a polynomial."""
    value = Fraction(0)
    for coefficient in reversed(coefficients):
        value = value * x + coefficient
    return value


def decimals_from_zero(coefficients: Sequence[float]) -> List[str]:
    """Convert an energy polynomial of a QAR file to decimals for channels counted from 0.

    Returns the shortest decimals from which `counted_from_one` computes the same doubles: usually
    the ones that the calibration was read from.
    """
    texts: List[str] = []
    chosen: List[Fraction] = []
    for order in range(len(coefficients) - 1, -1, -1):
        stored = float(coefficients[order])
        # The contribution of the higher orders to this one.
        higher = shifted([Fraction(0)] * (order + 1) + chosen, -1)[order]
        text = _shortest(Fraction(stored) - higher, higher, stored)
        texts.insert(0, text)
        chosen.insert(0, Fraction(text))
    return texts


def _rounded(value: Fraction, digits: int) -> decimal.Decimal:
    context = decimal.Context(prec=digits)
    numerator, denominator = decimal.Decimal(value.numerator), decimal.Decimal(value.denominator)
    return context.divide(numerator, denominator).normalize(context)


def _shortest(value: Fraction, added: Fraction, stored: float) -> str:
    """Return the shortest decimal near a value that, with `added`, rounds to the stored one."""
    digits = 1
    while float(Fraction(_rounded(value, digits)) + added) != stored:
        digits += 1
    return str(_rounded(value, digits)).replace("E+", "E")


class Points(NamedTuple):
    """Values of a function, each with the maximum error of a fit to it."""

    x: List[Fraction]
    y: List[Fraction]
    tolerances: List[Fraction]


class Fit(NamedTuple):
    coefficients: List[Fraction]
    exact: bool  # True if the fit is within the tolerance at every point


def printed_tolerance(text: str) -> Fraction:
    """Return half a unit of the last digit of a printed number."""
    exponent = decimal.Decimal(text).as_tuple().exponent
    return Fraction(10) ** max(-400, int(exponent)) / 2


def polynomial_through(points: Points, degrees: Sequence[int]) -> Fit:
    """Return the simplest polynomial within all tolerances, or the one of the last degree."""
    thinned = _thinned(points)
    distinct = len(set(thinned.x))
    possible = [degree for degree in degrees if degree < distinct]
    likely = _likely_degrees(thinned, possible)
    fit = [Fraction(0)]
    for degree in likely or possible[-1:]:
        fit = _least_squares(points, degree)
        rounded = _fewest_digits(points, fit)
        if rounded is not None:
            return Fit(rounded, True)
    return Fit(fit, False)


def _likely_degrees(points: Points, degrees: Sequence[int]) -> List[int]:
    """Return the degrees whose fit in floating point is nearly within all tolerances.

    Exact fits are slow, and most degrees are far from the points. Uses discrete orthogonal
    polynomials (Forsythe, J. SIAM 5 (1957) 74), which are stable for any degree.
    """
    x, y = list(map(float, points.x)), list(map(float, points.y))
    rounding = 1e-11 * max(abs(value) for value in y)
    margins = [2 * float(tolerance) + rounding for tolerance in points.tolerances]
    before, current = [0.0] * len(x), [1.0] * len(x)
    residuals, norm_before = y, 1.0
    likely = []
    for degree in range(max(degrees, default=-1) + 1):
        norm = math.fsum(value * value for value in current)
        if norm == 0:
            break
        share = math.fsum(a * b for a, b in zip(residuals, current)) / norm
        residuals = [r - share * value for r, value in zip(residuals, current)]
        if degree in degrees and all(abs(r) <= m for r, m in zip(residuals, margins)):
            likely.append(degree)
        centre = math.fsum(a * value * value for a, value in zip(x, current)) / norm
        slope = norm / norm_before if degree else 0.0
        following = [(a - centre) * c - slope * b for a, c, b in zip(x, current, before)]
        scale = max(abs(value) for value in following) or 1.0
        before, current = [value / scale for value in current], [v / scale for v in following]
        norm_before = norm / scale / scale
    return likely


def _least_squares(points: Points, degree: int) -> List[Fraction]:
    """Return the polynomial with the smallest sum of squared errors over tolerances."""
    size = degree + 1
    moments = [Fraction(0)] * (2 * size - 1)
    right = [Fraction(0)] * size
    thinned = _thinned(points)
    for x, y, weight in zip(thinned.x, thinned.y, _weights(thinned.tolerances)):
        power = Fraction(weight)
        for order in range(2 * size - 1):
            moments[order] += power
            if order < size:
                right[order] += power * y
            power *= x
    return solve([moments[row : row + size] + [right[row]] for row in range(size)])


def _weights(tolerances: Sequence[Fraction]) -> List[int]:
    """Return integers in proportion to 1 / tolerance^2; exact sums of integers stay short."""
    smallest = min(tolerances)
    if smallest == 0:
        return [1] * len(tolerances)
    return [max(1, round(1000 * float(smallest / tolerance) ** 2)) for tolerance in tolerances]


def _thinned(points: Points) -> Points:
    step = max(1, -(-len(points.x) // 128))
    return Points(*(values[::step] for values in points))


def _fewest_digits(points: Points, fit: Sequence[Fraction]) -> Optional[List[Fraction]]:
    """Return the fit, rounded as far as it stays within all tolerances; None if it is not."""
    if not _is_within(_thinned(points), fit):
        return None
    reach = math.log10(max(1.0, *(abs(float(x)) for x in points.x)))
    for digits in range(-2, 40):
        rounded = [round(c, digits + math.ceil(order * reach)) for order, c in enumerate(fit)]
        fractions = [Fraction(c) for c in rounded]
        if _is_within(_thinned(points), fractions) and _is_within(points, fractions):
            return fractions
    return None


def _is_within(points: Points, fit: Sequence[Fraction]) -> bool:
    return all(abs(evaluate(fit, x) - y) <= tolerance for x, y, tolerance in zip(*points))


def energy_of_column(column: Sequence[str], notes: List[str]) -> Tuple[float, ...]:
    """Return the energy calibration that gives the printed energies of channels 0, 1, ... in keV.

    notes: a note is appended if no polynomial gives them.
    """
    energies = [exact(text) for text in column]
    min_tolerance = max(abs(energy) for energy in energies) * _MIN_TOLERANCE
    points = Points(
        [Fraction(channel) for channel in range(len(column))],
        energies,
        [max(printed_tolerance(text), min_tolerance) for text in column],
    )
    fit = polynomial_through(points, range(1, 5))
    if not fit.exact:
        misses = (abs(evaluate(fit.coefficients, x) - y) for x, y in zip(points.x, points.y))
        notes.append(
            "the energies of the channels are not a polynomial; the calibration gives them"
            f" within {float(max(misses)):.2g} keV"
        )
    return counted_from_one(fit.coefficients)


# ---- Peak widths -------------------------------------------------------------------------------


class Converted(NamedTuple):
    """A calibration in another form; empty if its widths cannot be those of peaks."""

    coefficients: Tuple[float, ...]
    deviation: float  # the maximum relative deviation of the width


def _channel_samples(channels: int) -> List[Fraction]:
    """Return channels, counted from 1, that are denser at both ends."""
    middle, half = (channels + 1) / 2, (channels - 1) / 2
    angles = (math.pi * (i + 0.5) / _SAMPLES for i in range(_SAMPLES))
    return [Fraction(round(middle - half * math.cos(angle))) for angle in angles]


def _near_fit(
    x: List[Fraction], y: List[Fraction], tolerance: Fraction, degrees: Sequence[int]
) -> List[Fraction]:
    """Return the simplest polynomial within a relative tolerance of all points."""
    points = Points(x, y, [value * tolerance for value in y])
    return polynomial_through(points, degrees).coefficients


def _max_deviation(widths: Sequence[float], others: Sequence[float]) -> float:
    return max(abs(other / width - 1) for width, other in zip(widths, others))


def shape_from_channel_widths(
    widths: Sequence[Fraction], energy: Sequence[float], channels: int
) -> Converted:
    """Return the shape for FWHM / channels = polynomial in the channel, counted from 0."""
    return _shape_from_channel_widths(tuple(widths), tuple(energy), channels)


@functools.lru_cache(maxsize=64)  # the spectra of a file share a few calibrations
def _shape_from_channel_widths(
    widths: Tuple[Fraction, ...], energy: Tuple[float, ...], channels: int
) -> Converted:
    exact_energy = [Fraction(c) for c in energy]
    energies, squares = [], []
    for channel in _channel_samples(channels):
        keV = evaluate(exact_energy, channel)
        in_channels = evaluate(widths, channel - 1)
        width = in_channels * _slope(exact_energy, channel)
        if keV > 0:
            energies.append(Fraction(float(keV)))
            squares.append(Fraction(float(width * width)))
            if not 0 < in_channels < channels or width <= 0:
                return Converted((), 0.0)
    if len(energies) < _SAMPLES // 2:
        return Converted((), 0.0)
    fit = _near_fit(energies, squares, Fraction(1, 10**9), range(_MAX_DEGREE + 1))
    fitted = [max(0.0, float(evaluate(fit, keV))) ** 0.5 for keV in energies]
    deviation = _max_deviation([float(square) ** 0.5 for square in squares], fitted)
    return Converted(tuple(map(float, fit)), deviation)


def channel_widths_from_shape(
    shape: Sequence[float], energy: Sequence[float], channels: int
) -> Converted:
    """Return FWHM / channels as a polynomial of degree 2 in the channel, counted from 0."""
    exact_energy, exact_shape = [Fraction(c) for c in energy], [Fraction(c) for c in shape]
    numbers, widths = [], []
    for channel in _channel_samples(channels):
        keV, slope = evaluate(exact_energy, channel), _slope(exact_energy, channel)
        if keV > 0:
            square = float(evaluate(exact_shape, keV))
            if square <= 0 or slope <= 0:
                return Converted((), 0.0)
            numbers.append(channel - 1)
            widths.append(Fraction(square**0.5 / float(slope)))
    if len(numbers) < _SAMPLES // 2:
        return Converted((), 0.0)
    fit = _near_fit(numbers, widths, Fraction(1, 10**8), range(3))
    fitted = [float(evaluate(fit, number)) for number in numbers]
    return Converted(tuple(map(float, fit)), _max_deviation([float(w) for w in widths], fitted))


def _slope(coefficients: Sequence[Fraction], x: Fraction) -> Fraction:
    return evaluate([order * c for order, c in enumerate(coefficients)][1:], x)


def width_table(shape: Sequence[float], max_energy: float) -> Tuple[List[str], List[str]]:
    """Return energies up to a maximum and their FWHM, both in keV.

    They have enough digits for `shape_from_table` to give the same coefficients. Both lists are
    empty if the shape gives no width at one of the energies.
    """
    step = max(1, round(max_energy) // 16)
    exact_shape = [Fraction(c) for c in shape]
    context = decimal.Context(prec=30)
    energies, widths = [], []
    for keV in range(step, 17 * step, step):
        square = evaluate(exact_shape, Fraction(keV))
        if square <= 0:
            return [], []
        width = context.divide(square.numerator, square.denominator).sqrt(context)
        energies.append(str(keV))
        widths.append(str(width))
    return energies, widths


def _is_possible_energy(energy: Fraction) -> bool:
    """Return True if an exact fit to an energy in keV needs few digits."""
    return energy == 0 or 1e-9 <= abs(energy) <= 1e9


def shape_from_table(energies: Sequence[str], widths: Sequence[str]) -> Converted:
    """Return the shape for printed energies and FWHM, both in keV."""
    x = [exact(text) for text in energies]
    y = [exact(text) for text in widths]
    if len(x) != len(y) or not x or min(y) <= 0 or not all(map(_is_possible_energy, x + y)):
        return Converted((), 0.0)
    # The tolerance of the square, doubled because a fit misses points rounded at the limit.
    tolerances = [4 * w * printed_tolerance(text) for w, text in zip(y, widths)]
    points = Points(x, [w * w for w in y], tolerances)
    fit = polynomial_through(points, range(min(_MAX_DEGREE + 1, max(2, len(x) // 2 + 1))))
    if not fit.exact:
        fit = polynomial_through(points, range(min(2, len(x))))
    fitted = [max(0.0, float(evaluate(fit.coefficients, keV))) ** 0.5 for keV in x]
    deviation = _max_deviation([float(w) for w in y], fitted)
    return Converted(tuple(map(float, fit.coefficients)), deviation)
