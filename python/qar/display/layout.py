"""The contents of a plot, independent of the drawing: fitted curves, labels and ticks."""

import math
from typing import List, NamedTuple, Optional, Sequence, Tuple

from ..analysis.calibration import FWHM_PER_SIGMA, Calibration
from ..analysis.results import Peak
from ..values import is_known

# Blue and vermilion also differ for colour-blind readers; the curves differ in width as well.
SPECTRUM_COLOUR, FIT_COLOUR = "#0072b2", "#d55e00"

MIN_COUNT = 0.5  # the lower end of a logarithmic axis of counts
_REACH = 2.0  # FWHM on either side of a peak whose region is not known
_POINTS_PER_CHANNEL = 4
_MAX_POINTS = 2000


class Axis(NamedTuple):
    """The horizontal axis: energies, or channel numbers if there is no energy calibration."""

    calibration: Calibration
    unit: str

    def position(self, channel: float) -> float:
        """Return the position of a channel, counted from 1."""
        return self.calibration.energy_at(channel) if self.calibration.energy else channel

    @property
    def label(self) -> str:
        return f"energy / {self.unit}" if self.calibration.energy else "channel, counted from 1"


def axis_of(calibration: Calibration) -> Axis:
    """Return the axis for the calibrations of a spectrum."""
    return Axis(calibration, "keV" if calibration.energy else "channels")


class Curve(NamedTuple):
    """A fitted region: channels, counted from 1, and counts per channel."""

    channels: List[float]
    counts: List[float]


def residuals(
    counts: Sequence[int], peaks: Sequence[Peak], calibration: Calibration
) -> List[Curve]:
    """Return the counts minus the fitted curves, in standard deviations of the counts.

    The curves are those of `fitted_curves`, without tails and steps that the engine fitted.
    """
    curves = []
    for channels, heights in fitted_curves(counts, peaks, calibration, points_per_channel=1):
        deviations = [
            (counts[int(channel) - 1] - height) / math.sqrt(max(height, 1.0))
            for channel, height in zip(channels, heights)
        ]
        curves.append(Curve(channels, deviations))
    return curves


def fitted_curves(
    counts: Sequence[int],
    peaks: Sequence[Peak],
    calibration: Calibration,
    points_per_channel: int = _POINTS_PER_CHANNEL,
) -> List[Curve]:
    """Return the Gaussians of the peaks on a straight line between the ends of their region.

    Peaks with overlapping regions share one curve. There are no curves without an energy
    calibration.
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
    step = max(1 / points_per_channel, float((right - left) // _MAX_POINTS))
    channels = [left + i * step for i in range(int((right - left) / step) + 1)]
    heights = []
    for channel in channels:
        height = low + (high - low) * (channel - left) / (right - left)
        for peak, width in members:
            sigma = width / FWHM_PER_SIGMA
            bend = ((channel - peak.centroid) / sigma) ** 2 / 2
            if bend < 50:
                height += peak.area / (sigma * math.sqrt(2 * math.pi)) * math.exp(-bend)
        heights.append(height)
    return Curve(channels, heights)


def _mean_around(counts: Sequence[int], channel: int) -> float:
    around = counts[max(0, channel - 2) : channel + 1]
    return sum(around) / len(around) if around else 0.0


class Label(NamedTuple):
    """The label of a peak: its text, its position along the axis and the height of the peak."""

    text: str
    position: float
    shifted: float  # the position, moved so that labels do not touch
    height: float  # counts at the top of the peak


def labels(
    counts: Sequence[int],
    peaks: Sequence[Peak],
    axis: Axis,
    spacing: float,
    max_labels: int,
    limits: Optional[Tuple[float, float]] = None,
) -> List[Label]:
    """Return the labels of the most significant peaks, from left to right.

    They are at least `spacing` apart, as close to their peaks as possible and within the axis.
    limits: the ends of the axis (default: the whole spectrum).
    """
    ends = limits or (axis.position(1), axis.position(len(counts)))
    low, high = ends[0] + spacing / 2, ends[1] - spacing / 2
    max_labels = min(max_labels, int((high - low) / spacing) + 1) if high > low else 0
    ranked = sorted(peaks, key=lambda peak: -(peak.significance or 0))
    shown = [peak for peak in ranked if 1 <= peak.centroid <= len(counts)][:max_labels]
    shown.sort(key=lambda peak: axis.position(peak.centroid))
    positions = [axis.position(peak.centroid) for peak in shown]
    labels = []
    for peak, position, shifted in zip(shown, positions, _spread(positions, spacing, low, high)):
        index = round(peak.centroid) - 1
        top = max(counts[max(0, index - 2) : index + 3])
        labels.append(Label(_text(peak), position, shifted, float(top)))
    return labels


def _spread(positions: Sequence[float], spacing: float, low: float, high: float) -> List[float]:
    """Return rising positions moved apart with the least sum of squared shifts.

    The spacing before each position is subtracted first; then neighbours that would fall are
    pooled to their mean, as in isotonic regression.
    """
    pools: List[Tuple[float, int]] = []  # sum and number
    for index, position in enumerate(positions):
        total, number = position - index * spacing, 1
        while pools and pools[-1][0] / pools[-1][1] >= total / number:
            total, number = total + pools[-1][0], number + pools[-1][1]
            pools.pop()
        pools.append((total, number))
    levels = [total / number for total, number in pools for _ in range(number)]
    max_level = high - (len(levels) - 1) * spacing
    return [min(max(level, low), max_level) + i * spacing for i, level in enumerate(levels)]


def _text(peak: Peak) -> str:
    return f"{peak.label} {peak.energy:.1f}".strip()


def ticks(low: float, high: float, max_ticks: int) -> List[float]:
    """Return round numbers between low and high, in steps of 1, 2 or 5 times 10^n."""
    span = high - low
    if not span > 0:
        return []
    power = 10.0 ** math.floor(math.log10(span / max_ticks))
    step = next(
        (factor * power for factor in (1, 2, 5, 10, 20) if span / (factor * power) <= max_ticks)
    )
    first = math.ceil(low / step)
    return [index * step for index in range(first, math.floor(high / step) + 1)]
