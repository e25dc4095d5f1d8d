"""A calibration from known lines: their peaks in a spectrum are measured, energy and width fitted."""

import math
from typing import Mapping, NamedTuple, Sequence, Tuple

from .calibration import Calibration, fit_polynomial

SEARCH_CHANNELS = 10  # how far from the channel that was named a peak may have its top
LEAST_SIGNIFICANCE = 4.0
HALF_WIDTHS = (2, 3, 4, 6, 8, 11, 16, 23, 32, 45, 64, 90, 128)  # channels
FIT_ROUNDS = 6
FWHM_PER_SIGMA = 2 * math.sqrt(2 * math.log(2))


class CalibrationPoint(NamedTuple):
    """A known line and its peak in the spectrum."""

    energy: float  # keV
    centroid: float  # channels, counted from 1
    centroid_uncertainty: float  # one sigma, channels
    fwhm: float  # keV
    width_uncertainty: float  # one sigma, as a part of the width; 1 % at least
    residual: float  # the energy less that of the calibration at the centroid, in keV


class LineCalibration(NamedTuple):
    """A calibration from known lines and what it came from."""

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
    search: int = SEARCH_CHANNELS,
) -> LineCalibration:
    """The energy and shape calibration of a spectrum from known lines.

    channels: the contents, channel 1 first. lines: the energies in keV, each with the channel
    (counted from 1) near which its peak lies: the highest channel within `search` of it is taken.
    degree: of the energy polynomial; one more line than it is needed. The square of the width is
    linear in the energy. ValueError: no peak at one of them, too few lines, or energies that do not
    rise with the channel.
    """
    energies = sorted(lines)
    if len(energies) < 2:
        raise ValueError("a calibration wants two lines at least")
    peaks = [_measure(channels, lines[energy], search) for energy in energies]
    if any(low.centroid >= high.centroid for low, high in zip(peaks, peaks[1:])):
        raise ValueError("the energies do not rise with the channels of their peaks")
    # A centroid is not known better than to a hundredth of a channel, however large the peak.
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
    """The square of the width as a line in the energy that is above 0 everywhere."""
    energies = [point.energy for point in points]
    squares = [point.fwhm**2 for point in points]
    weights = [(square * point.width_uncertainty) ** -2 for square, point in zip(squares, points)]
    constant, slope = fit_polynomial(energies, squares, weights, 1)
    if slope <= 0:  # scatter of a few peaks: the width does not fall with the energy
        return (sum(squares) / len(squares),)
    if constant <= 0:
        constant = min(squares) / 4
        slope = sum(s - constant for s in squares) / sum(energies)
    return constant, slope


def _measure(channels: Sequence[int], near: float, search: int) -> _Peak:
    """The peak with the highest top near a channel, all counted from 1."""
    middle = round(near) - 1
    reach = range(max(1, middle - search), min(len(channels) - 1, middle + search + 1))
    if not reach:
        raise ValueError(f"channel {near:g} is not within the spectrum")
    top = max(reach, key=lambda place: sum(channels[place - 1 : place + 2]))
    significance, half = max((_significance(channels, top, half), half) for half in HALF_WIDTHS)
    if significance < LEAST_SIGNIFICANCE:
        raise ValueError(f"no peak within {search} channels of channel {near:g}")
    peak = _Peak(float(top), 0.0, 1.0 * half)
    for _ in range(FIT_ROUNDS):
        peak = _fitted(channels, peak)
    if abs(peak.centroid - top) > search:
        raise ValueError(f"no lone peak within {search} channels of channel {near:g}")
    return peak._replace(centroid=peak.centroid + 1)


def _sides(channels: Sequence[int], centre: float, near: float, far: float) -> Tuple[float, ...]:
    """The mean contents at `near` to `far` channels below and above a centre, counted from 0."""
    low = channels[max(0, round(centre - far)) : max(1, round(centre - near))]
    high = channels[round(centre + near) + 1 : round(centre + far) + 1] or low
    return sum(low) / len(low), sum(high) / len(high)


def _significance(channels: Sequence[int], top: int, half: int) -> float:
    """Net counts within `half` channels of the top by their standard deviation."""
    inside = channels[max(0, top - half) : top + half + 1]
    below = len(inside) * sum(_sides(channels, top, half, 2 * half)) / 2
    return (sum(inside) - below) / math.sqrt(max(1.0, sum(inside) + below))


def _fitted(channels: Sequence[int], peak: _Peak) -> _Peak:
    """A better estimate: a parabola through the logarithms of the net counts at the top, which
    is what a Gaussian curve has there; channels counted from 0.
    """
    low, high = _sides(channels, peak.centroid, 1.3 * peak.fwhm, 2.2 * peak.fwhm)
    reach = max(1.5, 0.7 * peak.fwhm)
    places, logarithms, weights, area = [], [], [], 0.0
    for place in range(math.ceil(peak.centroid - reach), math.floor(peak.centroid + reach) + 1):
        offset = place - peak.centroid
        content = channels[place] if 0 <= place < len(channels) else 0
        net = content - (low + high) / 2 - offset * (high - low) / (3.5 * peak.fwhm)
        area += net
        if net > 0:
            places.append(offset)
            logarithms.append(math.log(net))
            weights.append(net**2 / max(1.0, content + (low + high) / 2))
    if len(places) < 3:
        raise ValueError(f"no peak that can be measured at channel {peak.centroid + 1:.0f}")
    _, slope, bend = fit_polynomial(places, logarithms, weights, 2)
    if bend >= 0:
        raise ValueError(f"no peak that can be measured at channel {peak.centroid + 1:.0f}")
    # A channel holds the mean of the curve over its width, which adds 1/12 to the variance.
    sigma = math.sqrt(max(0.1, -0.5 / bend - 1 / 12))
    uncertainty = sigma * math.sqrt(max(1.0, area + (low + high) * reach)) / max(1.0, area)
    return _Peak(peak.centroid - slope / (2 * bend), uncertainty, sigma * FWHM_PER_SIGMA)
