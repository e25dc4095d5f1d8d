"""Values on their way to and from a file: checked before the library is called, and converted.

What the functions of pyORV3 would cut, wrap or round in silence is refused here.
"""

import math
import operator
import struct
import sys
from datetime import datetime, timedelta, timezone
from typing import Any, Callable, Dict, Iterable, Tuple

from .dictionary import Parameter

MOST_CHANNELS = 32768
SMALLEST_COUNT, LARGEST_COUNT = -(1 << 31), (1 << 31) - 1

# Texts are stored in the ANSI code page of the system; elsewhere than on Windows it is this one.
CODE_PAGE = "mbcs" if sys.platform == "win32" else "cp1252"
_RANGES = {  # of the whole numbers that come back as they were written
    "short": (0, 0xFFFF),
    "long": (-(1 << 31), (1 << 31) - 1),
    "longlong": (-(1 << 63), (1 << 63) - 1),
}
FIRST_DATE = datetime(1970, 1, 1, tzinfo=timezone.utc)
LAST_DATE = FIRST_DATE + timedelta(seconds=(1 << 31) - 1)
DATE_HINT = "a date is a text such as 2024-01-24T21:02:12.000Z, from 1970-01-01 to 2038-01-19"


def _flag(parameter: Parameter, value: Any) -> bool:
    if isinstance(value, str) or value not in (0, 1):
        raise ValueError("wanted is True or False")
    return bool(value)


def _whole_number(parameter: Parameter, value: Any) -> int:
    number = whole(value)
    low, high = _RANGES[parameter.type_name]
    if not low <= number <= high:
        raise ValueError(f"outside {low} to {high}")
    return number


def _number(parameter: Parameter, value: Any) -> float:
    if isinstance(value, (str, bytes)):
        raise ValueError("wanted is a number")
    number = float(value)
    if parameter.type_name == "float":
        try:
            struct.pack("<f", number)
        except OverflowError:
            raise ValueError("too large for a 32-bit floating-point number") from None
    return number


def _text(parameter: Parameter, value: Any) -> str:
    if not isinstance(value, str):
        raise ValueError("wanted is a text")
    if "\0" in value:
        raise ValueError("a text cannot hold a NUL")
    try:
        length = len(value.encode(CODE_PAGE))
    except UnicodeEncodeError as error:
        raise ValueError(f"{value[error.start]!r} is not in the code page {CODE_PAGE}") from None
    if 0 < parameter.length < length:
        raise ValueError(f"{length} characters, at most {parameter.length} fit")
    return value


def _date(parameter: Parameter, value: Any) -> str:
    if isinstance(value, str):
        return value
    if not isinstance(value, datetime):
        raise ValueError(DATE_HINT)
    if value.tzinfo is None:
        raise ValueError("a datetime without a time zone; add tzinfo=timezone.utc for instance")
    if not FIRST_DATE <= value <= LAST_DATE:
        raise ValueError(DATE_HINT)
    return value.astimezone(timezone.utc).strftime("%Y-%m-%dT%H:%M:%S.%fZ")


_CONVERSIONS: Dict[str, Callable[[Parameter, Any], Any]] = {
    "byte": _flag,
    "short": _whole_number,
    "long": _whole_number,
    "longlong": _whole_number,
    "float": _number,
    "double": _number,
    "str": _text,
    "Date": _date,
}


def to_library(parameter: Parameter, value: Any) -> Any:
    """The value as pyORV3 takes it, from a Python or numpy object or, for a date, a datetime.

    ValueError or TypeError says what is wrong with one that would not come back as it is:
    another type, out of range, a text that is too long or not in the code page.
    """
    convert = _CONVERSIONS.get(parameter.type_name)
    return value if convert is None else convert(parameter, value)


def datetime_of(text: str) -> datetime:
    """The instant of a date as a file gives it (2024-01-24T21:02:12.000Z), in UTC."""
    return datetime.strptime(text, "%Y-%m-%dT%H:%M:%S.%fZ").replace(tzinfo=timezone.utc)


def whole(value: Any) -> int:
    """An int of any integer object or of a floating-point number without a fraction."""
    if isinstance(value, float):
        if not math.isfinite(value) or value != math.floor(value):
            raise ValueError(f"{value!r} is no whole number")
        return int(value)
    try:
        return operator.index(value)
    except TypeError:
        raise ValueError(f"{value!r} is no whole number") from None


def channel_contents(channels: Iterable[Any]) -> Tuple[int, ...]:
    """Channel contents as pyORV3 takes them, from any sequence of whole numbers or array.

    ValueError says what is wrong: no channel or more than 32,768, more than one dimension, a
    channel (they are counted from 1) that holds no whole number or none of 32 bits.
    """
    if getattr(channels, "ndim", 1) != 1:
        raise ValueError("an array of one dimension is wanted")
    if isinstance(channels, (str, bytes, dict, set)):
        raise ValueError("a sequence of numbers is wanted")
    listed = getattr(channels, "tolist", None)  # numpy, pandas, array.array: Python numbers
    items = tuple(channels if listed is None else listed())
    if not 1 <= len(items) <= MOST_CHANNELS:
        raise ValueError(f"{len(items):,} channels; a spectrum has 1 to {MOST_CHANNELS:,}")
    if set(map(type, items)) != {int}:
        items = tuple(_content(place, item) for place, item in enumerate(items, start=1))
    for extreme in (min(items), max(items)):
        if not SMALLEST_COUNT <= extreme <= LARGEST_COUNT:
            place = items.index(extreme) + 1
            raise ValueError(f"channel {place} holds {extreme}, which does not fit 32 bits")
    return items


def _content(channel: int, item: Any) -> int:
    try:
        return whole(item)
    except ValueError as error:
        raise ValueError(f"channel {channel}: {error}") from None
