"""The ratio of total to peak counts from the spectrum of a source with one line."""

import math
from typing import NamedTuple, Optional, Sequence, Tuple

from .calibration import Calibration
from .results import Peak

_LOWEST = 50.0  # keV; X-rays and noise of the electronics are below
_BEYOND = 1.5  # FWHM above the peak up to which counts belong to it
_MIN_SIGNIFICANCE = 10.0


class Background(NamedTuple):
    """The spectrum without a source."""

    counts: Sequence[int]
    scale: float  # live time of the source's spectrum over that of this one


def total_to_peak(
    counts: Sequence[int],
    calibration: Calibration,
    peaks: Sequence[Peak],
    background: Optional[Background] = None,
) -> Tuple[float, float]:
    """Return the energy in keV of the largest peak, and its ratio of total to peak counts.

    counts: of channel 1, 2, ... The total reaches from 50 keV, or from half the energy of the peak
    if that is lower, to the end of the peak. Below, the continuum continues with the mean height
    that it has in the range of the same width above the lower end.

    Raises ValueError if there is no large peak above 45 keV, or if the background is too large or
    has another number of channels.
    """
    net = list(map(float, counts))
    if background is not None:
        if len(background.counts) != len(counts):
            raise ValueError(
                f"{len(counts):,} channels; the background has {len(background.counts):,}"
            )
        net = [own - background.scale * other for own, other in zip(counts, background.counts)]
    large = [peak for peak in peaks if peak.energy > 45 and peak.significance > _MIN_SIGNIFICANCE]
    if not large:
        raise ValueError("no large peak above 45 keV")
    peak = max(large, key=lambda candidate: candidate.area)
    lowest = min(_LOWEST, peak.energy / 2)
    bounds = (lowest, min(2 * lowest, peak.energy - peak.fwhm), peak.energy + _BEYOND * peak.fwhm)
    first, second, last = (_channel_at(calibration, energy, len(net)) for energy in bounds)
    height = sum(net[first:second]) / max(1.0, bounds[1] - bounds[0])
    total = sum(net[first:last]) + height * lowest
    if not total > peak.area > 0:
        raise ValueError("the spectrum minus the background has fewer counts than its peak")
    return peak.energy, total / peak.area


def _channel_at(calibration: Calibration, energy: float, channels: int) -> int:
    """Return the index of the channel at an energy, within the spectrum."""
    return min(channels, max(0, math.floor(calibration.channel_at(energy)) - 1))
