"""Bytes, texts and numbers of files from outside: nothing is taken that was not checked."""

import io
import math
import re
from datetime import datetime, timedelta, timezone
from decimal import Decimal
from fractions import Fraction
from typing import Iterator, List, Optional

from .measurement import MOST_CHANNELS, MOST_COUNTS, FormatError

MOST_BYTES = 64 << 20
"""Larger files are not read."""

_LONGEST_NUMBER = 60
_NUMBER = re.compile(r"[+-]?(\d+\.?\d*|\.\d+)([eE][+-]?\d{1,4})?", re.ASCII)
_DATE = re.compile(
    r"(\d{4})-(\d\d)-(\d\d)[T ](\d\d):(\d\d):(\d\d)(?:[.,](\d+))?\s*(Z|[+-]\d\d:?\d\d)?", re.ASCII
)
_DURATION = re.compile(
    r"P(?:(\d+)D)?(?:T(?:(\d+)H)?(?:(\d+)M)?(?:(\d*\.?\d*)S)?)?", re.ASCII | re.IGNORECASE
)


def read_file(path: str, most: int = MOST_BYTES) -> bytes:
    """The whole file; FormatError where it has more bytes than that, OSError as from open."""
    with open(path, "rb") as file:
        data = file.read(most + 1)
    if len(data) > most:
        raise FormatError(f"more than {most >> 20} MiB; such a file is not that large")
    return data


def lines_of(data: bytes) -> Iterator[str]:
    """The lines of a text in UTF-8 or Windows-1252, with any kind of line end, one at a time."""
    try:
        data.decode("utf-8")
        encoding = "utf-8-sig"
    except UnicodeDecodeError:
        encoding = "cp1252"
    with io.TextIOWrapper(io.BytesIO(data), encoding, errors="replace") as text:
        for line in text:
            yield line.rstrip("\n")


def shown(text: str) -> str:
    """The text for a message: on one line and not long."""
    text = "".join(c if c.isprintable() else "?" for c in text[:41])
    return f'"{text[:40]}..."' if len(text) > 40 else f'"{text}"'


def exact(text: str) -> Fraction:
    """The number that the text writes, exactly; FormatError where it is none or no double."""
    text = text.strip()
    if len(text) > _LONGEST_NUMBER or not _NUMBER.fullmatch(text):
        raise FormatError(f"{shown(text)} is no number")
    value = float(text)
    if not math.isfinite(value):
        raise FormatError(f"{shown(text)} is too large a number")
    # An exponent that a double has not is not worked out: it could fill the memory.
    return Fraction(text) if abs(value) > 1e-300 else Fraction(0)


def exact_list(text: str, most: int) -> List[Fraction]:
    """The numbers of a list that white space divides; FormatError beyond the most."""
    numbers: List[Fraction] = []
    for match in re.finditer(r"\S+", text):
        if len(numbers) == most:
            raise FormatError(f"more than {most} numbers in a list")
        numbers.append(exact(match.group()))
    return numbers


def seconds(text: str) -> float:
    """A time in seconds; FormatError where it is negative or no number."""
    value = exact(text)
    if value < 0:
        raise FormatError(f"{shown(text)} is no time")
    return float(value)


def count(text: str) -> int:
    """The counts of a channel, a whole number that may be written as "12.0".

    FormatError where it is negative, not whole or more than a channel of a QAR file can hold.
    """
    if text.isdigit() and len(text) <= 10:
        value = int(text)
    else:
        number = exact(text)
        if number < 0 or number.denominator != 1:
            raise FormatError(f"{shown(text)} is no number of counts")
        value = int(number)
    if value > MOST_COUNTS:
        raise FormatError(f"{shown(text)} counts are more than a channel can hold")
    return value


def counts_of(text: str, zeroes_counted: bool = False) -> List[int]:
    """The channel contents in a text.

    zeroes_counted: a 0 is followed by how many there are. FormatError as from `count`, where a
    number of zeroes is missing, and beyond MOST_CHANNELS.
    """
    counts: List[int] = []
    numbers = (match.group() for match in re.finditer(r"\S+", text))
    for number in numbers:
        value, repeated = count(number), 1
        if zeroes_counted and value == 0:
            repeated = count(next(numbers, "no number of zeroes"))
        if len(counts) + repeated > MOST_CHANNELS:
            raise FormatError(f"the spectrum has more than {MOST_CHANNELS:,} channels")
        counts.extend([value] * repeated)
    return counts


def decimal_text(value: float) -> str:
    """The shortest text that gives the same double, without exponent and without ".0"."""
    text = format(Decimal(repr(float(value))), "f")
    return text.rstrip("0").rstrip(".") if "." in text else text


def read_date(text: str) -> datetime:
    """An ISO 8601 date with time in UTC; one without offset is taken as UTC. FormatError."""
    match = _DATE.fullmatch(text.strip())
    if not match:
        raise FormatError(f"{shown(text)} is no date with time")
    fraction, offset = match.group(7) or "", match.group(8) or "Z"
    try:
        date = datetime(*map(int, match.group(1, 2, 3, 4, 5, 6)), tzinfo=timezone.utc)  # type: ignore[misc,arg-type]
        date += timedelta(microseconds=int(fraction[:6].ljust(6, "0")))
        if offset != "Z":
            minutes = int(offset[1:3]) * 60 + int(offset[-2:])
            date -= timedelta(minutes=minutes if offset[0] == "+" else -minutes)
    except (ValueError, OverflowError):
        raise FormatError(f"{shown(text)} is no date with time") from None
    return date


def date_text(date: datetime) -> str:
    """The date as ISO 8601 in UTC, with the digits of the second that it has, 0, 3 or 6."""
    date = date.astimezone(timezone.utc).replace(tzinfo=None)
    digits = "auto" if date.microsecond % 1000 or not date.microsecond else "milliseconds"
    return date.isoformat(timespec=digits) + "Z"


def read_duration(text: str) -> float:
    """An ISO 8601 duration of days, hours, minutes and seconds, in seconds. FormatError."""
    text = text.strip()
    match = _DURATION.fullmatch(text) if len(text) <= _LONGEST_NUMBER else None
    if not match or not any(match.groups()):
        raise FormatError(f"{shown(text)} is no duration")
    factors = (86400, 3600, 60, 1)
    parts: List[Optional[str]] = list(match.groups())
    return float(sum(exact(part) * f for part, f in zip(parts, factors) if part))


def duration_text(value: float) -> str:
    """The duration in seconds as ISO 8601: 629.17 gives PT629.17S."""
    return f"PT{decimal_text(value)}S"
