"""Calibration from known lines: measure their peaks in a spectrum, fit energy and width."""

import math
from typing import Mapping, NamedTuple, Sequence, Tuple

from .calibration import FWHM_PER_SIGMA, Calibration, fit_polynomial

MAX_DISTANCE = 10  # channels between the given channel and the top of the peak
MIN_SIGNIFICANCE = 4.0
HALF_WIDTHS = (2, 3, 4, 6, 8, 11, 16, 23, 32, 45, 64, 90, 128)  # channels
FIT_ROUNDS = 6


class CalibrationPoint(NamedTuple):
    """A known line and its peak in the spectrum."""

    energy: float  # keV
    centroid: float  # channels, counted from 1
    centroid_uncertainty: float  # one sigma, channels
    fwhm: float  # keV
    width_uncertainty: float  # one sigma, relative; at least 1 %
    residual: float  # keV, the energy minus that of the calibration at the centroid


class LineCalibration(NamedTuple):
    """A calibration from known lines and the points that it was fitted to."""

    calibration: Calibration
    points: Tuple[CalibrationPoint, ...]


class _Peak(NamedTuple):
    centroid: float
    uncertainty: float
    fwhm: float  # channels


def calibrate(
    channels: Sequence[int],
    lines: Mapping[float, float],
    degree: int = 1,
    max_distance: int = MAX_DISTANCE,
) -> LineCalibration:
    """Return the energy and shape calibration of a spectrum from known lines.

    channels: the contents, channel 1 first. lines: the energies in keV, each with the channel
    (counted from 1) near which its peak is; the highest channel within `max_distance` is taken.
    degree: of the energy polynomial, at least one less than the number of lines. The square of
    the width is linear in the energy.

    Raises ValueError if there is no peak at a line, if there are too few lines or if the energies
    do not rise with the channels.
    """
    energies = sorted(lines)
    if len(energies) < 2:
        raise ValueError(f"{len(energies)} lines; expected at least 2")
    peaks = [_measure(channels, lines[energy], max_distance) for energy in energies]
    if any(low.centroid >= high.centroid for low, high in zip(peaks, peaks[1:])):
        raise ValueError("the energies do not rise with the channels of their peaks")
    # No centroid is known to better than a hundredth of a channel, however large the peak.
    weights = [1 / (peak.uncertainty**2 + 1e-4) for peak in peaks]
    coefficients = fit_polynomial([peak.centroid for peak in peaks], energies, weights, degree)
    energy_at = Calibration(coefficients).energy_at
    widths = [
        energy_at(peak.centroid + peak.fwhm / 2) - energy_at(peak.centroid - peak.fwhm / 2)
        for peak in peaks
    ]
    points = tuple(
        CalibrationPoint(
            line,
            peak.centroid,
            peak.uncertainty,
            width,
            math.hypot(peak.uncertainty / peak.fwhm, 0.01),
            line - energy_at(peak.centroid),
        )
        for line, peak, width in zip(energies, peaks, widths)
    )
    return LineCalibration(Calibration(coefficients, _shape(points)), points)


def _shape(points: Sequence[CalibrationPoint]) -> Tuple[float, ...]:
    """Return the square of the width as a line in the energy that is positive everywhere."""
    energies = [point.energy for point in points]
    squares = [point.fwhm**2 for point in points]
    weights = [(square * point.width_uncertainty) ** -2 for square, point in zip(squares, points)]
    constant, slope = fit_polynomial(energies, squares, weights, 1)
    if slope <= 0:  # scatter of a few peaks: widths do not fall with the energy
        return (sum(squares) / len(squares),)
    if constant <= 0:
        constant = min(squares) / 4
        slope = sum(s - constant for s in squares) / sum(energies)
    return constant, slope


def _measure(channels: Sequence[int], near: float, max_distance: int) -> _Peak:
    """Return the peak with the highest top near a channel, all counted from 1."""
    middle = round(near) - 1
    reach = range(max(1, middle - max_distance), min(len(channels) - 1, middle + max_distance + 1))
    if not reach:
        raise ValueError(f"channel {near:g} is not within the spectrum")
    top = max(reach, key=lambda index: sum(channels[index - 1 : index + 2]))
    significance, half = max((_significance(channels, top, half), half) for half in HALF_WIDTHS)
    if significance < MIN_SIGNIFICANCE:
        raise ValueError(f"no peak within {max_distance} channels of channel {near:g}")
    peak = _Peak(float(top), 0.0, 1.0 * half)
    for _ in range(FIT_ROUNDS):
        peak = _fitted(channels, peak)
    if abs(peak.centroid - top) > max_distance:
        raise ValueError(f"no single peak within {max_distance} channels of channel {near:g}")
    return peak._replace(centroid=peak.centroid + 1)


def _sides(channels: Sequence[int], centre: float, near: float, far: float) -> Tuple[float, ...]:
    """Return the mean contents `near` to `far` channels below and above a centre, from 0."""
    low = channels[max(0, round(centre - far)) : max(1, round(centre - near))]
    high = channels[round(centre + near) + 1 : round(centre + far) + 1] or low
    return sum(low) / len(low), sum(high) / len(high)


def _significance(channels: Sequence[int], top: int, half: int) -> float:
    """Return the net counts within `half` channels of the top over their standard deviation."""
    inside = channels[max(0, top - half) : top + half + 1]
    below = len(inside) * sum(_sides(channels, top, half, 2 * half)) / 2
    return (sum(inside) - below) / math.sqrt(max(1.0, sum(inside) + below))


def _fitted(channels: Sequence[int], peak: _Peak) -> _Peak:
    """Return a better estimate of a peak; channels are counted from 0.

    The logarithm of a Gaussian is a parabola, which is fitted to the net counts at the top.
    """
    low, high = _sides(channels, peak.centroid, 1.3 * peak.fwhm, 2.2 * peak.fwhm)
    reach = max(1.5, 0.7 * peak.fwhm)
    offsets, logarithms, weights, area = [], [], [], 0.0
    for index in range(math.ceil(peak.centroid - reach), math.floor(peak.centroid + reach) + 1):
        offset = index - peak.centroid
        content = channels[index] if 0 <= index < len(channels) else 0
        net = content - (low + high) / 2 - offset * (high - low) / (3.5 * peak.fwhm)
        area += net
        if net > 0:
            offsets.append(offset)
            logarithms.append(math.log(net))
            weights.append(net**2 / max(1.0, content + (low + high) / 2))
    if len(offsets) < 3:
        raise ValueError(f"the peak at channel {peak.centroid + 1:.0f} cannot be measured")
    _, slope, bend = fit_polynomial(offsets, logarithms, weights, 2)
    if bend >= 0:
        raise ValueError(f"the peak at channel {peak.centroid + 1:.0f} cannot be measured")
    # A channel holds the mean of the curve over its width, which adds 1/12 to the variance.
    sigma = math.sqrt(max(0.1, -0.5 / bend - 1 / 12))
    uncertainty = sigma * math.sqrt(max(1.0, area + (low + high) * reach)) / max(1.0, area)
    return _Peak(peak.centroid - slope / (2 * bend), uncertainty, sigma * FWHM_PER_SIGMA)
