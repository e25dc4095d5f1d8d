"""Parse the bytes, strings and numbers of files; everything is checked before it is used."""

import io
import math
import re
from datetime import datetime
from decimal import Decimal
from fractions import Fraction
from typing import Iterator, List, Optional, Sequence

from ..display.printable import quoted
from ..regular_files import open_regular
from ..values import MAX_CHANNELS, MAX_COUNT, date_text, datetime_of
from .measurement import FormatError

MAX_BYTES = 64 << 20
"""The size of the largest file that is read."""

MAX_LINE = 4096
"""The length of the longest line of a spectrum."""

_MAX_NUMBER = 60  # characters
_WHOLE_NUMBERS = re.compile(r"\s*(\d{1,10}(\s+|$))*", re.ASCII)
_NUMBER = re.compile(r"[+-]?(\d+\.?\d*|\.\d+)([eE][+-]?\d{1,4})?", re.ASCII)
_DURATION = re.compile(
    r"P(?:(\d+)D)?(?:T(?:(\d+)H)?(?:(\d+)M)?(?:(\d*\.?\d*)S)?)?", re.ASCII | re.IGNORECASE
)


def read_file(path: str, max_bytes: int = MAX_BYTES) -> bytes:
    """Return the content of a file.

    Raises FormatError if it has more than `max_bytes`, OSError as open does.
    """
    with open_regular(path) as file:
        data = file.read(max_bytes + 1)
    if len(data) > max_bytes:
        raise FormatError(f"the file is too large; expected at most {max_bytes >> 20} MiB")
    return data


def lines_of(data: bytes) -> Iterator[str]:
    """Yield the lines of a text in UTF-8 or Windows-1252 with any kind of line ends."""
    try:
        data.decode("utf-8")
        encoding = "utf-8-sig"
    except UnicodeDecodeError:
        encoding = "cp1252"
    with io.TextIOWrapper(io.BytesIO(data), encoding, errors="replace") as text:
        for line in text:
            yield line.rstrip("\n")


def spectrum_lines(data: bytes, max_lines: int) -> Iterator[str]:
    """Yield the lines of a spectrum without white space at their ends.

    Raises FormatError if there are more than `max_lines` or if a line is too long.
    """
    for number, line in enumerate(lines_of(data), start=1):
        if number > max_lines or len(line) > MAX_LINE:
            raise FormatError(f"line {number}: too many or too long lines for a spectrum")
        yield line.strip()


def exact(text: str) -> Fraction:
    """Return the exact value of a decimal number. Raises FormatError."""
    text = text.strip()
    if len(text) > _MAX_NUMBER or not _NUMBER.fullmatch(text):
        raise FormatError(f"{quoted(text)} is not a number")
    value = float(text)
    if not math.isfinite(value):
        raise FormatError(f"{quoted(text)} is too large for a number")
    # The exact value of an exponent far below the range of doubles could exhaust the memory.
    return Fraction(text) if abs(value) > 1e-300 else Fraction(0)


def exact_list(text: str, max_length: int) -> List[Fraction]:
    """Return the numbers of a list separated by white space. Raises FormatError."""
    numbers: List[Fraction] = []
    for match in re.finditer(r"\S+", text):
        if len(numbers) == max_length:
            raise FormatError(f"too many numbers in a list; expected at most {max_length}")
        numbers.append(exact(match.group()))
    return numbers


def seconds(text: str) -> float:
    """Return a time in seconds. Raises FormatError if it is negative or not a number."""
    value = exact(text)
    if value < 0:
        raise FormatError(f"{quoted(text)} is not a time; expected 0 or more")
    return float(value)


def count(text: str) -> int:
    """Return the counts of a channel, an integer that may be written as "12.0".

    Raises FormatError if it is negative, not an integer or larger than MAX_COUNT.
    """
    if text.isdecimal() and len(text) <= 10:
        value = int(text)
    else:
        number = exact(text)
        if number < 0 or number.denominator != 1:
            raise FormatError(f"{quoted(text)} is not a number of counts")
        value = int(number)
    if value > MAX_COUNT:
        raise FormatError(f"{quoted(text)} counts in a channel; expected at most {MAX_COUNT}")
    return value


def counts_of(
    text: str, counted_zeroes: bool = False, notes: Optional[List[str]] = None
) -> List[int]:
    """Return the channel contents in a text.

    Args:
        text: numbers with white space between them.
        counted_zeroes: each 0 is followed by the number of zeroes.
        notes: decimal counts are rounded, and a note is appended; None refuses them.

    Raises FormatError as `count`, if a number of zeroes is missing, and beyond MAX_CHANNELS.
    """
    if _WHOLE_NUMBERS.fullmatch(text):
        values = list(map(int, text.split()))
        if values and max(values) > MAX_COUNT:
            raise FormatError(f'"{max(values)}" counts in a channel; expected at most {MAX_COUNT}')
    else:
        values = _checked_counts(text.split(), notes)
    if counted_zeroes:
        return _expanded(values)
    if len(values) > MAX_CHANNELS:
        raise FormatError(f"the spectrum has more than {MAX_CHANNELS:,} channels")
    return values


def _checked_counts(numbers: Sequence[str], notes: Optional[List[str]]) -> List[int]:
    if notes is None:
        return list(map(count, numbers))
    values, rounded = [], 0
    for number in numbers:
        value = exact(number)
        if value.denominator != 1 and value > 0:
            rounded += 1
            number = str(round(value))
        values.append(count(number))
    if rounded:
        notes.append(f"decimal counts are rounded in {rounded} channels")
    return values


def _expanded(values: Sequence[int]) -> List[int]:
    """The contents of a list in which each 0 is followed by the number of zeroes."""
    counts: List[int] = []
    numbers = iter(values)
    for value in numbers:
        if value:
            counts.append(value)
        else:
            zeroes = next(numbers, None)
            if zeroes is None:
                raise FormatError("a number of zeroes is missing at the end")
            if zeroes > MAX_CHANNELS:
                raise FormatError(f"the spectrum has more than {MAX_CHANNELS:,} channels")
            counts.extend([0] * zeroes)
        if len(counts) > MAX_CHANNELS:
            raise FormatError(f"the spectrum has more than {MAX_CHANNELS:,} channels")
    return counts


def decimal_text(value: float) -> str:
    """Return the shortest decimal that gives the same double, without exponent or ".0"."""
    text = format(Decimal(repr(float(value))), "f")
    return text.rstrip("0").rstrip(".") if "." in text else text


def read_date(text: str) -> datetime:
    """Return an ISO 8601 date with time, in UTC. Raises FormatError."""
    try:
        return datetime_of(text)
    except (ValueError, OverflowError):
        raise FormatError(f"{quoted(text)} is not a date with time") from None


def precise_date_text(date: datetime) -> str:
    """Return a date as ISO 8601 in UTC, with 0, 3 or 6 digits of the second as needed."""
    has_only_milliseconds = date.microsecond > 0 and date.microsecond % 1000 == 0
    return date_text(date, "milliseconds" if has_only_milliseconds else "auto")


def read_duration(text: str) -> float:
    """Return an ISO 8601 duration of days, hours, minutes and seconds, in seconds.

    Raises FormatError.
    """
    text = text.strip()
    match = _DURATION.fullmatch(text) if len(text) <= _MAX_NUMBER else None
    if not match or not any(match.groups()):
        raise FormatError(f"{quoted(text)} is not a duration")
    factors = (86400, 3600, 60, 1)
    parts: List[Optional[str]] = list(match.groups())
    return float(sum(exact(part) * f for part, f in zip(parts, factors) if part))


def duration_text(value: float) -> str:
    """Return a duration in seconds as ISO 8601: 629.17 gives PT629.17S."""
    return f"PT{decimal_text(value)}S"
