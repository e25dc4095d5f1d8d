"""Ranges of the processing settings of the engine peak_search."""

import math
from typing import Any, Callable, Dict, Mapping, NamedTuple

from ..errors import NotFoundError, refuse

CHANNELS = "QAR_L_CHANNELS"
FIRST_CHANNEL, LAST_CHANNEL, SMOOTHING = "QAR_L_FIRSTCHAN", "QAR_L_LASTCHAN", "QAR_S_SMOOTHWIDTH"
SMOOTHED_PART = 16  # smoothing may cover one over this of the spectrum


class Range(NamedTuple):
    """The values that a setting may have."""

    min: float
    max: float
    text: str
    has_max: bool = True  # whether `max` itself is allowed

    def contains(self, value: float) -> bool:
        below_end = value <= self.max if self.has_max else value < self.max
        return self.min <= value and below_end


RANGES = {
    "QAR_D_PEAKLIMIT": Range(1, 100, "1 to 100 sigma"),
    "QAR_D_MATCHTOL": Range(1e-6, 1e6, "0.000001 to 1000000 keV"),
    "QAR_D_MINCONF": Range(0, 1, "0 to 1"),
    "QAR_F_CONFIDENCE": Range(0.5, 1, "0.5 to less than 1", has_max=False),
    "QAR_D_PROBALPHA": Range(0.0001, 0.5, "0.0001 to 0.5"),
    "QAR_D_PROBBETA": Range(0.0001, 0.5, "0.0001 to 0.5"),
    "QAR_D_COVERAGE": Range(0.5, 0.9999, "0.5 to 0.9999"),
    "QAR_D_SAMPLINGTIME": Range(0, 1e9, "0 to 1000000000 s"),
    "QAR_D_QUANTITY": Range(0, 1e30, "0 to 1e30"),
    "QAR_D_QUANTITYUNC": Range(0, 1e30, "0 to 1e30"),
}


def check_settings(settings: Mapping[str, Any], stored: Callable[[str], Any]) -> None:
    """Raise BadArgumentError if the engine would refuse a setting.

    settings: new values by the names of their parameters. stored: returns the value of a
    parameter that the data source has, or None; a new value takes precedence.
    """
    new = {name.upper(): value for name, value in settings.items()}

    def effective(name: str) -> Any:
        if name in new:
            return new[name]
        try:
            return stored(name)
        except NotFoundError:  # the dictionary of another suite may lack it
            return None

    ranges = {**RANGES, **_channel_ranges(effective)}
    for name, expected in ranges.items():
        value = effective(name)
        if isinstance(value, (int, float)) and not expected.contains(value):
            raise refuse(
                "using the setting", name, f"{value!r} is not in the range {expected.text}"
            )
    for name, value in new.items():
        _refuse_nan(name, value)


def _refuse_nan(name: str, value: Any) -> None:
    is_array = hasattr(value, "__iter__") and not isinstance(value, (str, bytes))
    for item in value if is_array else [value]:
        if isinstance(item, float) and not math.isfinite(item):
            raise refuse("using the setting", name, f"{item!r} is not a finite number")


def _channel_ranges(effective: Callable[[str], Any]) -> Dict[str, Range]:
    """Return the ranges that depend on the number of channels."""
    channels = effective(CHANNELS)
    if not channels:
        return {}
    first = effective(FIRST_CHANNEL) or 1
    widest = channels // SMOOTHED_PART
    return {
        FIRST_CHANNEL: Range(1, channels, f"1 to {channels}"),
        LAST_CHANNEL: Range(first, channels, f"{first} to {channels}"),
        SMOOTHING: Range(0, widest, f"0 to {widest} channels"),
    }
