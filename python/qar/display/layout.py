"""The contents of a plot, independent of the drawing: axis, labels and ticks."""

import math
from typing import List, NamedTuple, Optional, Sequence, Tuple

from ..analysis.calibration import Calibration
from ..analysis.results import Peak

# Blue and vermilion also differ for colour-blind readers; the curves differ in width as well.
SPECTRUM_COLOUR, FIT_COLOUR = "#0072b2", "#d55e00"

MIN_COUNT = 0.5  # the lower end of a logarithmic axis of counts


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
