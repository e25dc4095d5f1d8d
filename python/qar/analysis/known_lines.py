"""Calibration from known lines: fit energy and width to their measured peaks."""

import math
from typing import Callable, List, Mapping, NamedTuple, Optional, Sequence, Tuple

from .calibration import Calibration, fit_polynomial, polynomial

MAX_DEGREE = 3  # that the residuals can choose
MIN_IMPROVEMENT = 9.0  # of chi-square by one more coefficient
MIN_UNCERTAINTY = 0.01  # channels
CURVATURE = 0.02  # departure of a line from a polynomial, in FWHM, one sigma
GOOD_AGREEMENT = 0.1  # FWHM; a calibration with smaller residuals is good
OUTLYING_WIDTH = 0.15  # relative distance from the curve
OUTLYING_SIGMAS = 3.0
AGREEING_WIDTH = 0.05  # relative distance within which an existing curve agrees in any case


class MeasuredPeak(NamedTuple):
    """A peak in the spectrum, in channels counted from 1."""

    centroid: float
    uncertainty: float  # one sigma
    fwhm: float
    width_uncertainty: float  # one sigma, relative


class CalibrationPoint(NamedTuple):
    """A known line and its peak in the spectrum."""

    energy: float  # keV
    centroid: float  # channels, counted from 1
    centroid_uncertainty: float  # one sigma, channels
    fwhm: float  # keV
    width_uncertainty: float  # one sigma, relative; at least 1 %
    residual: float  # keV, the energy minus that of the calibration at the centroid
    is_outlying: bool = False  # True if the width disagrees with the others and was not used


class LineCalibration(NamedTuple):
    """A calibration from known lines and the points that it was fitted to."""

    calibration: Calibration
    points: Tuple[CalibrationPoint, ...]
    notes: Tuple[str, ...] = ()  # calibrations that were kept, widths that disagree


def calibrate(
    peaks: Mapping[float, MeasuredPeak],
    existing: Calibration,
    channels: int,
    degree: Optional[int] = None,
    force: bool = False,
) -> LineCalibration:
    """Return the energy and shape calibration of a spectrum from known lines.

    peaks: by the energies of their lines in keV. existing: the calibration of the spectrum; one
    that describes the lines better than a new one would is kept, unless `force`. channels: their
    number. degree: of the energy polynomial; None: the residuals choose it. The square of the
    width is linear in the energy.

    Raises ValueError if there are too few lines or if the energies do not rise with the channels.
    """
    energies = sorted(peaks)
    measured = [peaks[energy] for energy in energies]
    if not energies or (len(energies) < 2 and not existing.energy):
        raise ValueError(
            f"{len(energies)} lines; expected at least 2 without an energy calibration"
        )
    if any(low.centroid >= high.centroid for low, high in zip(measured, measured[1:])):
        raise ValueError("the energies do not rise with the channels of their peaks")
    notes: List[str] = []
    coefficients = _energy(energies, measured, existing.energy, channels, degree, force, notes)
    points = _points(energies, measured, coefficients)
    shape, points = _widths(points, existing.shape, force, notes)
    return LineCalibration(Calibration(coefficients, shape), points, tuple(notes))


# ---- Energy ------------------------------------------------------------------------------------


def _energy(
    energies: Sequence[float],
    peaks: Sequence[MeasuredPeak],
    existing: Tuple[float, ...],
    channels: int,
    degree: Optional[int],
    force: bool,
    notes: List[str],
) -> Tuple[float, ...]:
    """Return the new energy polynomial, or the existing one if that is better."""
    if len(energies) < 2:
        notes.append("energy calibration kept: one line determines only the width")
        return existing
    chosen = _best_degree(energies, peaks, channels) if degree is None else degree
    coefficients = _fit(energies, peaks, chosen)
    if not _rises(coefficients, channels):
        raise ValueError(f"a polynomial of degree {chosen} through the lines does not rise")
    if not existing or force:
        return coefficients
    residual = _mean_residual(energies, peaks, lambda _: existing)
    expected = math.inf
    if len(energies) >= chosen + 2:
        expected = _mean_residual(
            energies, peaks, lambda left: _fit_without(energies, peaks, left, chosen)
        )
    if residual <= min(expected, GOOD_AGREEMENT):
        notes.append(
            f"energy calibration kept: its mean residual of {residual:.3f} FWHM is"
            " not larger than expected of a new one; replace it with force"
        )
        return existing
    return coefficients


def _best_degree(energies: Sequence[float], peaks: Sequence[MeasuredPeak], channels: int) -> int:
    """Return the lowest degree that no higher one improves significantly."""
    best, least = 1, _chi_square(energies, peaks, _fit(energies, peaks, 1))
    for degree in range(2, min(MAX_DEGREE, len(energies) - 2) + 1):
        coefficients = _fit(energies, peaks, degree)
        chi_square = _chi_square(energies, peaks, coefficients)
        scale = max(1.0, chi_square / (len(energies) - degree - 1))
        if least - chi_square > MIN_IMPROVEMENT * scale and _rises(coefficients, channels):
            best, least = degree, chi_square
    return best


def _fit(
    energies: Sequence[float], peaks: Sequence[MeasuredPeak], degree: int
) -> Tuple[float, ...]:
    weights = [1 / _scatter(peak) ** 2 for peak in peaks]
    return fit_polynomial([peak.centroid for peak in peaks], energies, weights, degree)


def _fit_without(
    energies: Sequence[float], peaks: Sequence[MeasuredPeak], left_out: int, degree: int
) -> Tuple[float, ...]:
    keep = [index for index in range(len(energies)) if index != left_out]
    return _fit([energies[index] for index in keep], [peaks[index] for index in keep], degree)


def _scatter(peak: MeasuredPeak) -> float:
    systematic = math.hypot(CURVATURE * peak.fwhm, MIN_UNCERTAINTY)
    return math.hypot(peak.uncertainty, systematic)


def _chi_square(
    energies: Sequence[float], peaks: Sequence[MeasuredPeak], coefficients: Sequence[float]
) -> float:
    residuals = _residuals(energies, peaks, lambda _: coefficients)
    return sum((residual / _scatter(peak)) ** 2 for residual, peak in zip(residuals, peaks))


def _mean_residual(
    energies: Sequence[float],
    peaks: Sequence[MeasuredPeak],
    coefficients_without: Callable[[int], Sequence[float]],
) -> float:
    """Return the root mean square of the residuals in FWHM."""
    residuals = _residuals(energies, peaks, coefficients_without)
    squares = [(residual / peak.fwhm) ** 2 for residual, peak in zip(residuals, peaks)]
    return math.sqrt(sum(squares) / len(squares))


def _residuals(
    energies: Sequence[float],
    peaks: Sequence[MeasuredPeak],
    coefficients_without: Callable[[int], Sequence[float]],
) -> List[float]:
    """Return the residuals in channels. The function gets the index of a line that it may omit."""
    result = []
    for index, (energy, peak) in enumerate(zip(energies, peaks)):
        coefficients = coefficients_without(index)
        gain = _gain(coefficients, peak)
        result.append((energy - polynomial(coefficients, peak.centroid)) / gain)
    return result


def _gain(coefficients: Sequence[float], peak: MeasuredPeak) -> float:
    """Return the mean keV per channel over the FWHM of a peak."""
    low, high = peak.centroid - peak.fwhm / 2, peak.centroid + peak.fwhm / 2
    return (polynomial(coefficients, high) - polynomial(coefficients, low)) / peak.fwhm


def _rises(coefficients: Sequence[float], channels: int) -> bool:
    slopes = [power * c for power, c in enumerate(coefficients)][1:]
    return all(polynomial(slopes, channel) > 0 for channel in range(1, channels + 1))


# ---- Width -------------------------------------------------------------------------------------


def _points(
    energies: Sequence[float], peaks: Sequence[MeasuredPeak], coefficients: Sequence[float]
) -> Tuple[CalibrationPoint, ...]:
    return tuple(
        CalibrationPoint(
            energy,
            peak.centroid,
            peak.uncertainty,
            peak.fwhm * _gain(coefficients, peak),
            math.hypot(peak.width_uncertainty, 0.01),
            energy - polynomial(coefficients, peak.centroid),
        )
        for energy, peak in zip(energies, peaks)
    )


def _widths(
    points: Sequence[CalibrationPoint], existing: Tuple[float, ...], force: bool, notes: List[str]
) -> Tuple[Tuple[float, ...], Tuple[CalibrationPoint, ...]]:
    """Return the shape calibration and the points, of which outlying widths are marked."""
    if not force and existing and all(_agrees(point, existing) for point in points):
        notes.append("width calibration kept: it agrees with the lines; replace it with force")
        return existing, tuple(points)
    used = list(points)
    while len(used) > 3:
        rests = [[point for point in used if point is not one] for one in used]
        distances = [_distance(one, _shape(rest, existing)) for one, rest in zip(used, rests)]
        worst = max(range(len(used)), key=distances.__getitem__)
        if distances[worst] < OUTLYING_SIGMAS:
            break
        used = rests[worst]
    shape = _shape(used, existing)
    for point in points:
        if point not in used:
            expected = math.sqrt(polynomial(shape, point.energy))
            notes.append(
                f"the width of {point.fwhm:.3g} keV at {point.energy:g} keV was not used;"
                f" the other lines give {expected:.3g} keV"
            )
    return shape, tuple(point._replace(is_outlying=point not in used) for point in points)


def _agrees(point: CalibrationPoint, shape: Sequence[float]) -> bool:
    square = polynomial(shape, point.energy)
    allowed = max(OUTLYING_SIGMAS * point.width_uncertainty, AGREEING_WIDTH)
    return square > 0 and abs(math.log(point.fwhm / math.sqrt(square))) < allowed


def _distance(point: CalibrationPoint, shape: Sequence[float]) -> float:
    """Return the distance of a width from the curve in standard deviations."""
    square = polynomial(shape, point.energy)
    if square <= 0:
        return math.inf
    scatter = math.hypot(point.width_uncertainty, OUTLYING_WIDTH / OUTLYING_SIGMAS)
    return abs(math.log(point.fwhm / math.sqrt(square))) / scatter


def _shape(points: Sequence[CalibrationPoint], existing: Sequence[float]) -> Tuple[float, ...]:
    """Return the square of the width as a line in the energy that is positive everywhere.

    A single point scales the existing curve; without one, the width is proportional to the root
    of the energy.
    """
    energies = [point.energy for point in points]
    squares = [point.fwhm**2 for point in points]
    if len(points) == 1:
        before = polynomial(existing, energies[0])
        curve = existing if before > 0 else (0.0, 1.0)
        scale = squares[0] / polynomial(curve, energies[0])
        return tuple(scale * coefficient for coefficient in curve)
    weights = [(square * point.width_uncertainty) ** -2 for square, point in zip(squares, points)]
    constant, slope = fit_polynomial(energies, squares, weights, 1)
    if slope <= 0:  # scatter of a few peaks: widths do not fall with the energy
        return (sum(squares) / len(squares),)
    if constant <= 0:
        constant = min(squares) / 4
        slope = sum(s - constant for s in squares) / sum(energies)
    return constant, slope
