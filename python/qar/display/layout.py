"""What a picture of a spectrum shows, however it is drawn: curves of fitted peaks, labels, ticks."""

import math
from typing import List, NamedTuple, Sequence, Tuple

from ..analysis.calibration import Calibration
from ..analysis.results import Peak
from .tables import SIGMAS_PER_FWHM, is_known

# Blue and vermilion, which everybody tells apart; the curves differ in width as well.
SPECTRUM_COLOUR, FIT_COLOUR = "#0072b2", "#d55e00"

LOWEST_COUNT = 0.5  # where an axis of logarithmic counts begins
_REACH = 2.0  # FWHM to either side of a peak whose region is not known
_POINTS_PER_CHANNEL = 4
_MOST_POINTS = 2000


class Axis(NamedTuple):
    """Where channels stand: their energy, or without a calibration their number."""

    calibration: Calibration
    unit: str

    def position(self, channel: float) -> float:
        """The place of a channel, counted from 1."""
        return self.calibration.energy_at(channel) if self.calibration.energy else channel

    @property
    def label(self) -> str:
        return f"energy / {self.unit}" if self.calibration.energy else "channel, counted from 1"


def axis_of(calibration: Calibration) -> Axis:
    return Axis(calibration, "keV" if calibration.energy else "channels")


class Curve(NamedTuple):
    """A fitted region: channels, counted from 1, and counts in a channel."""

    channels: List[float]
    counts: List[float]


def residuals(
    counts: Sequence[int], peaks: Sequence[Peak], calibration: Calibration
) -> List[Curve]:
    """What the counts are more than the fitted curves, in standard deviations of the counts.

    The curves are those of `fitted_curves`: a tail or a step that the engine fitted shows here.
    """
    found = []
    for channels, heights in fitted_curves(counts, peaks, calibration, points_per_channel=1):
        deviations = [
            (counts[int(channel) - 1] - height) / math.sqrt(max(height, 1.0))
            for channel, height in zip(channels, heights)
        ]
        found.append(Curve(channels, deviations))
    return found


def fitted_curves(
    counts: Sequence[int],
    peaks: Sequence[Peak],
    calibration: Calibration,
    points_per_channel: int = _POINTS_PER_CHANNEL,
) -> List[Curve]:
    """The Gaussians of the peaks on a straight line between the ends of their region.

    Peaks whose regions overlap make one curve. Without an energy calibration there is none.
    """
    shapes = []
    for peak in peaks:
        if calibration.energy and is_known(peak.fwhm) and is_known(peak.area) and peak.fwhm > 0:
            slope = calibration.energy_at(peak.centroid + 0.5) - calibration.energy_at(
                peak.centroid - 0.5
            )
            shapes.append((peak, peak.fwhm / slope if slope > 0 else 0.0))
    regions: List[Tuple[int, int, List[Tuple[Peak, float]]]] = []
    for peak, width in sorted((shape for shape in shapes if shape[1]), key=_left_end):
        left, right = _region(peak, width, len(counts))
        if regions and left <= regions[-1][1]:
            first, last, members = regions[-1]
            regions[-1] = (first, max(last, right), members + [(peak, width)])
        else:
            regions.append((left, right, [(peak, width)]))
    return [
        _curve(counts, *region, points_per_channel) for region in regions if region[1] > region[0]
    ]


def _left_end(shape: Tuple[Peak, float]) -> float:
    peak, width = shape
    return _region(peak, width, 1 << 30)[0]


def _region(peak: Peak, width: float, channels: int) -> Tuple[int, int]:
    left = peak.left if peak.left is not None else round(peak.centroid - _REACH * width)
    right = peak.right if peak.right is not None else round(peak.centroid + _REACH * width)
    return max(1, left), min(channels, right)


def _curve(
    counts: Sequence[int],
    left: int,
    right: int,
    members: Sequence[Tuple[Peak, float]],
    points_per_channel: int,
) -> Curve:
    low, high = _mean_around(counts, left), _mean_around(counts, right)
    step = max(1 / points_per_channel, float((right - left) // _MOST_POINTS))
    channels = [left + i * step for i in range(int((right - left) / step) + 1)]
    heights = []
    for channel in channels:
        height = low + (high - low) * (channel - left) / (right - left)
        for peak, width in members:
            sigma = width * SIGMAS_PER_FWHM
            bend = ((channel - peak.centroid) / sigma) ** 2 / 2
            if bend < 50:
                height += peak.area / (sigma * math.sqrt(2 * math.pi)) * math.exp(-bend)
        heights.append(height)
    return Curve(channels, heights)


def _mean_around(counts: Sequence[int], channel: int) -> float:
    some = counts[max(0, channel - 2) : channel + 1]
    return sum(some) / len(some) if some else 0.0


class Label(NamedTuple):
    """The text beside a peak: where it begins along the axis and how high the peak is."""

    text: str
    position: float
    shifted: float  # the position, moved so that the texts do not touch
    height: float  # counts at the top of the peak


def labels(
    counts: Sequence[int], peaks: Sequence[Peak], axis: Axis, spacing: float, most: int
) -> List[Label]:
    """The labels of the most significant peaks, from left to right, `spacing` apart at least.

    They are moved from their peaks as little as that needs, and never over an end of the axis.
    """
    low, high = axis.position(1) + spacing / 2, axis.position(len(counts)) - spacing / 2
    most = min(most, int((high - low) / spacing) + 1) if high > low else 0
    ranked = sorted(peaks, key=lambda peak: -(peak.significance or 0))
    shown = [peak for peak in ranked if 1 <= peak.centroid <= len(counts)][:most]
    shown.sort(key=lambda peak: axis.position(peak.centroid))
    positions = [axis.position(peak.centroid) for peak in shown]
    placed = []
    for peak, position, shifted in zip(shown, positions, _spread(positions, spacing, low, high)):
        place = round(peak.centroid) - 1
        top = max(counts[max(0, place - 2) : place + 3])
        placed.append(Label(_text(peak), position, shifted, float(top)))
    return placed


def _spread(places: Sequence[float], spacing: float, low: float, high: float) -> List[float]:
    """The rising places moved apart with the least sum of squares: less the spacing before each,
    neighbours that would fall are pooled to their mean, as in isotonic regression.
    """
    pools: List[Tuple[float, int]] = []  # sum and number
    for index, place in enumerate(places):
        total, number = place - index * spacing, 1
        while pools and pools[-1][0] / pools[-1][1] >= total / number:
            total, number = total + pools[-1][0], number + pools[-1][1]
            pools.pop()
        pools.append((total, number))
    levels = [total / number for total, number in pools for _ in range(number)]
    highest = high - (len(levels) - 1) * spacing
    return [min(max(level, low), highest) + i * spacing for i, level in enumerate(levels)]


def _text(peak: Peak) -> str:
    return f"{peak.label} {peak.energy:.1f}".strip()


def ticks(low: float, high: float, most: int) -> List[float]:
    """Round numbers between low and high, at most so many: steps of 1, 2 or 5 times 10^n."""
    span = high - low
    if not span > 0:
        return []
    power = 10.0 ** math.floor(math.log10(span / most))
    step = next((factor * power for factor in (1, 2, 5, 10, 20) if span / (factor * power) <= most))
    first = math.ceil(low / step)
    return [index * step for index in range(first, math.floor(high / step) + 1)]
