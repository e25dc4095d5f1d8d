"""IEC 61455 spectra (.iec), reading: fixed columns, each line begins with "A004".

Line 1 names the system, line 2 has live time, real time and number of channels, line 3 the start,
line 4 four energy coefficients, line 5 four width coefficients, lines 6 to 9 free text; calibration
points and reserved lines follow. The contents come last: the number of a channel, counted from 0,
and the contents of five channels. Programs differ in the unit of the widths, so they are left out.
"""

import re
from datetime import datetime, timezone
from typing import List, Optional, Tuple

from ..analysis.calibration import counted_from_one
from ..values import MAX_CHANNELS
from . import parsing
from .measurement import FormatError, Measurement, checked

_MARK = "A004"
_HEAD_LINES, _FIRST_CONTENTS = 9, 58
_NUMBER_WIDTH, _WIDTH = 6, 10
_FIELDS = range(_NUMBER_WIDTH, _NUMBER_WIDTH + 5 * _WIDTH, _WIDTH)
_MAX_LINES = _FIRST_CONTENTS + MAX_CHANNELS


def matches(data: bytes) -> bool:
    """True if the data begins like a file of this format."""
    return data.startswith(_MARK.encode())


def read(data: bytes) -> List[Measurement]:
    """Return the one spectrum in the file. Raises FormatError."""
    lines = _lines(data)
    notes: List[str] = []
    live, real, channels = _times(lines[1])
    counts = _counts(lines[_FIRST_CONTENTS:], channels)
    measurement = Measurement(
        counts=tuple(counts),
        live_time=live,
        real_time=real,
        start=_start(lines[2], notes),
        title=" ".join(lines[0].split()),
        remarks="\n".join(filter(None, (line.strip() for line in lines[5:_HEAD_LINES]))),
        energy=_energy(lines[3], notes),
    )
    if any(map(float, _coefficients(lines[4]))):
        notes.append("left out: the width calibration, whose unit the file does not name")
    return [checked(measurement)._replace(notes=tuple(notes))]


def _lines(data: bytes) -> List[str]:
    """The lines without their mark."""
    lines = []
    for number, line in enumerate(parsing.lines_of(data), start=1):
        if number > _MAX_LINES:
            raise FormatError(f"line {number}: too many lines for a spectrum")
        if not line.startswith(_MARK):
            if line.strip():
                raise FormatError(f"line {number}: expected '{_MARK}' at its start")
            continue
        lines.append(line[len(_MARK) :])
    if len(lines) <= _FIRST_CONTENTS:
        raise FormatError(f"{len(lines)} lines; expected more than {_FIRST_CONTENTS}")
    return lines


def _times(line: str) -> Tuple[float, float, int]:
    fields = line.split()
    if len(fields) != 3:
        raise FormatError("line 2: expected live time, real time and the number of channels")
    channels = parsing.count(fields[2])
    if not 1 <= channels <= MAX_CHANNELS:
        raise FormatError(f"line 2: {channels} channels; expected 1 to {MAX_CHANNELS}")
    return parsing.seconds(fields[0]), parsing.seconds(fields[1]), channels


def _counts(lines: List[str], channels: int) -> List[int]:
    counts: List[int] = []
    for line in lines:
        if parsing.count(line[:_NUMBER_WIDTH].strip()) != len(counts):
            raise FormatError(f"channel {len(counts)} is missing; the file is damaged")
        fields = [line[at : at + _WIDTH].strip() for at in _FIELDS]
        counts.extend(parsing.count(text) for text in fields if text)
        if len(counts) >= channels:
            return counts[:channels]
    raise FormatError(f"{len(counts)} of {channels} channels; the file is cut off")


def _coefficients(line: str) -> List[str]:
    """Four numbers of 15 characters, which need no space between them."""
    return re.findall(r"[+-]?\d+\.?\d*(?:[eE][+-]?\d+)?", line)[:4]


def _energy(line: str, notes: List[str]) -> Tuple[float, ...]:
    numbers = [parsing.exact(text) for text in _coefficients(line)]
    if not any(numbers[1:]):
        notes.append("no energy calibration")
        return ()
    while numbers[-1] == 0:
        numbers.pop()
    return counted_from_one(numbers)


def _start(line: str, notes: List[str]) -> Optional[datetime]:
    match = re.match(r"\s*(\d\d)/(\d\d)/(\d\d) (\d\d):(\d\d):(\d\d)", line)
    if match:
        day, month, year, hour, minute, second = map(int, match.groups())
        try:
            century = 1900 if year >= 70 else 2000
            date = datetime(century + year, month, day, hour, minute, second, tzinfo=timezone.utc)
        except ValueError:
            match = None
    if not match:
        notes.append("no start")
        return None
    notes.append("the start has no time zone and is taken as UTC")
    return date
