"""Check and convert values on their way to and from a file.

The functions of pyORV3 would silently truncate, wrap or round some values; these are refused here
before the library is called.
"""

import math
import operator
import re
import struct
import sys
from datetime import datetime, timedelta, timezone
from typing import Any, Callable, Dict, Iterable, Tuple

from .dictionary import Parameter

MAX_CHANNELS = 65535
"""The longest spectrum that can be read from a file."""

MAX_WRITABLE_CHANNELS = 32768
"""The longest spectrum that can be written to a QAR file."""

MIN_COUNT, MAX_COUNT = -(1 << 31), (1 << 31) - 1
"""The range of the counts in a channel: signed 32-bit integers."""

MAX_INDEX = 0xFFFF
"""The largest record and entry number: the library has 16 bits for them."""

# Strings are stored in the ANSI code page of the system. On other systems than Windows it is 1252.
CODE_PAGE = "mbcs" if sys.platform == "win32" else "cp1252"
_RANGES = {  # the integers that are read back unchanged
    "short": (0, 0xFFFF),
    "long": (-(1 << 31), (1 << 31) - 1),
    "longlong": (-(1 << 63), (1 << 63) - 1),
}


def is_known(value: Any) -> bool:
    """Return True if a value was given: it is neither None nor NaN."""
    return value is not None and bool(value == value)


# ---- Dates -------------------------------------------------------------------------------------

MIN_DATE = datetime(1970, 1, 1, tzinfo=timezone.utc)
MAX_DATE = MIN_DATE + timedelta(seconds=1 << 31) - timedelta(milliseconds=1)
DATE_HINT = "expected a date such as 2024-01-24T21:02:12.000Z, from 1970-01-01 to 2038-01-19"

_DATE = re.compile(
    r"(\d{4})-(\d\d)-(\d\d)[T ](\d\d):(\d\d):(\d\d)(?:[.,](\d+))?\s*(Z|[+-]\d\d:?\d\d)?", re.ASCII
)


def datetime_of(text: str) -> datetime:
    """Return the instant of an ISO 8601 date with time, in UTC.

    A date without an offset is taken as UTC. Digits beyond the microsecond are dropped.
    Raises ValueError.
    """
    match = _DATE.fullmatch(text.strip())
    if not match:
        raise ValueError(f"{text!r} is not a date with time")
    fraction, offset = match.group(7) or "", match.group(8) or "Z"
    year, month, day, hour, minute, second = map(int, match.group(1, 2, 3, 4, 5, 6))
    date = datetime(year, month, day, hour, minute, second, tzinfo=timezone.utc)
    date += timedelta(microseconds=int(fraction[:6].ljust(6, "0")))
    if offset != "Z":
        distance = timedelta(hours=int(offset[1:3]), minutes=int(offset[-2:]))
        date += distance if offset[0] == "-" else -distance
    return date


def date_text(date: datetime, timespec: str = "milliseconds") -> str:
    """Return a date as ISO 8601 in UTC, such as 2024-01-24T21:02:12.000Z.

    timespec: as for datetime.isoformat; further digits are cut off, not rounded.
    """
    return date.astimezone(timezone.utc).replace(tzinfo=None).isoformat(timespec=timespec) + "Z"


def _date(parameter: Parameter, value: Any) -> str:
    try:
        date = datetime_of(value) if isinstance(value, str) else value
    except (ValueError, OverflowError):
        raise ValueError(DATE_HINT) from None
    if not isinstance(date, datetime):
        raise ValueError(DATE_HINT)
    if date.tzinfo is None:
        raise ValueError("a datetime without a time zone; add tzinfo=timezone.utc, for example")
    text = date_text(date)
    if not MIN_DATE <= datetime_of(text) <= MAX_DATE:
        raise ValueError(DATE_HINT)
    return text


# ---- Values of parameters ----------------------------------------------------------------------


def _flag(parameter: Parameter, value: Any) -> bool:
    if isinstance(value, str) or value not in (0, 1):
        raise ValueError("expected True or False")
    return bool(value)


def _integer(parameter: Parameter, value: Any) -> int:
    number = integer(value)
    low, high = _RANGES[parameter.type_name]
    if not low <= number <= high:
        raise ValueError(f"expected {low} to {high}")
    return number


def _number(parameter: Parameter, value: Any) -> float:
    if isinstance(value, (str, bytes)):
        raise ValueError("expected a number")
    number = float(value)
    if parameter.type_name == "float":
        try:
            struct.pack("<f", number)
        except OverflowError:
            raise ValueError("too large for a 32-bit floating-point number") from None
    return number


def _string(parameter: Parameter, value: Any) -> str:
    if not isinstance(value, str):
        raise ValueError("expected a string")
    if "\0" in value:
        raise ValueError("a string cannot contain a NUL")
    try:
        length = len(value.encode(CODE_PAGE))
    except UnicodeEncodeError as error:
        raise ValueError(f"{value[error.start]!r} is not in the code page {CODE_PAGE}") from None
    if 0 < parameter.length < length:
        raise ValueError(f"{length} characters; expected at most {parameter.length}")
    return value


_CONVERSIONS: Dict[str, Callable[[Parameter, Any], Any]] = {
    "byte": _flag,
    "short": _integer,
    "long": _integer,
    "longlong": _integer,
    "float": _number,
    "double": _number,
    "str": _string,
    "Date": _date,
}


def to_library(parameter: Parameter, value: Any) -> Any:
    """Return a value in the form that pyORV3 takes.

    value: a Python or numpy object; for a date a string or a datetime with a time zone.

    Raises ValueError or TypeError if the value would not be read back unchanged: it has another
    type, is out of range, too long or not in the code page.
    """
    convert = _CONVERSIONS.get(parameter.type_name)
    return value if convert is None else convert(parameter, value)


def integer(value: Any) -> int:
    """Return an integer object, or a floating-point number without a fraction, as an int."""
    if isinstance(value, float):
        if not math.isfinite(value) or value != math.floor(value):
            raise ValueError(f"{value!r} is not an integer")
        return int(value)
    try:
        return operator.index(value)
    except TypeError:
        raise ValueError(f"{value!r} is not an integer") from None


def channel_contents(channels: Iterable[Any]) -> Tuple[int, ...]:
    """Return channel contents in the form that pyORV3 takes.

    channels: any one-dimensional sequence or array of integers, channel 1 first.

    Raises ValueError if there is no channel or more than MAX_WRITABLE_CHANNELS, or if a channel
    does not contain a 32-bit integer.
    """
    if getattr(channels, "ndim", 1) != 1:
        raise ValueError(f"{channels.ndim} dimensions; expected 1")  # type: ignore[attr-defined]
    if isinstance(channels, (str, bytes, dict, set)):
        raise ValueError("expected a sequence of numbers")
    to_list = getattr(channels, "tolist", None)  # numpy, pandas, array.array: Python numbers
    items = tuple(channels if to_list is None else to_list())
    if not 1 <= len(items) <= MAX_WRITABLE_CHANNELS:
        raise ValueError(f"{len(items):,} channels; expected 1 to {MAX_WRITABLE_CHANNELS:,}")
    if set(map(type, items)) != {int}:
        items = tuple(_content(channel, item) for channel, item in enumerate(items, start=1))
    for extreme in (min(items), max(items)):
        if not MIN_COUNT <= extreme <= MAX_COUNT:
            channel = items.index(extreme) + 1
            raise ValueError(f"channel {channel} holds {extreme}, which does not fit 32 bits")
    return items


def _content(channel: int, item: Any) -> int:
    try:
        return integer(item)
    except ValueError as error:
        raise ValueError(f"channel {channel}: {error}") from None
