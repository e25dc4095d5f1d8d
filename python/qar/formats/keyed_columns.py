"""Tables of USB multichannel analysers (.csv, .tsv), reading: lines "key: value", then columns.

The columns are channel, energy in keV (may be empty) and counts; commas or tabs divide them.
Channels count from 0.
"""

import re
from datetime import datetime, timezone
from typing import Dict, List, NamedTuple, Optional, Sequence, Tuple

from ..display.printable import quoted
from ..values import MAX_CHANNELS
from . import calibration_conversion, parsing
from .measurement import FormatError, Measurement, checked

_HEADINGS = re.compile(r"channel\s*[,\t;]\s*energy\s*[,\t;]\s*counts\s*", re.IGNORECASE)
_HEADINGS_IN_FILE = re.compile(rb"^channel\s*[,\t;]\s*energy\s*[,\t;]\s*counts\s*$", re.I | re.M)
_KEY_LINE = re.compile(rb"^[A-Za-z][A-Za-z ]*:", re.M)
# Some lines join an empty key with the next one: "Coefficients:Elapsed Real Time:<tab>15.0".
_KEY_AND_VALUE = re.compile(r"(?:[A-Za-z ]*:(?=[A-Za-z]))?([A-Za-z][A-Za-z ]*):[,\t]?(.*)")
_MAX_LINES = 1000 + MAX_CHANNELS
_DATES = ("%B %d, %Y, %H:%M:%S", "%b %d, %Y, %H:%M:%S", "%Y-%m-%d %H:%M:%S", "%m/%d/%Y %H:%M:%S")


class _Row(NamedTuple):
    energy: str  # may be empty
    counts: int


def matches(data: bytes) -> bool:
    """True if lines of keys and the headings of this format are among the first lines."""
    start = data[:8192]
    return bool(_HEADINGS_IN_FILE.search(start) and _KEY_LINE.search(start))


def read(data: bytes) -> List[Measurement]:
    """Return the one spectrum in the file. Raises FormatError."""
    heading, rows = _parts(data)
    if not rows:
        raise FormatError("no line with channel, energy and counts")
    notes: List[str] = []
    measurement = Measurement(
        counts=tuple(row.counts for row in rows),
        live_time=_seconds(heading, "elapsed live time", notes),
        real_time=_seconds(heading, "elapsed real time", notes),
        start=_start(heading.get("start time", ""), notes),
        title=heading.get("spectrum name", ""),
        detector=heading.get("detector used", ""),
        remarks="\n".join(
            filter(None, (heading.get(key, "") for key in ("description", "comments")))
        ),
        energy=_energy([row.energy for row in rows], notes),
    )
    return [checked(measurement)._replace(notes=tuple(notes))]


def _parts(data: bytes) -> Tuple[Dict[str, str], List[_Row]]:
    """The values of the heading by their keys in lower case, and the rows."""
    heading: Dict[str, str] = {}
    rows: List[_Row] = []
    in_rows = False
    for number, line in enumerate(parsing.lines_of(data), start=1):
        if number > _MAX_LINES:
            raise FormatError(f"line {number}: too many lines for a spectrum")
        if _HEADINGS.fullmatch(line):
            in_rows = True
        elif in_rows and line.strip():
            try:
                rows.append(_row(line, len(rows)))
            except FormatError as error:
                raise FormatError(f"line {number}: {error}") from None
        elif not in_rows:
            match = _KEY_AND_VALUE.match(line)
            if match:
                heading[match.group(1).strip().lower()] = match.group(2).strip(" ,\t")
    return heading, rows


def _row(line: str, expected: int) -> _Row:
    fields = [field.strip() for field in re.split(r"[,\t;]", line)]
    if len(fields) != 3:
        raise FormatError(f"{len(fields)} columns; expected channel, energy and counts")
    if parsing.count(fields[0]) != expected:
        raise FormatError(f"channel {fields[0]} follows channel {expected - 1}")
    return _Row(fields[1], parsing.count(fields[2]))


def _seconds(heading: Dict[str, str], key: str, notes: List[str]) -> Optional[float]:
    if not heading.get(key):
        notes.append(f"no {key}")
        return None
    return parsing.seconds(heading[key])


def _start(text: str, notes: List[str]) -> Optional[datetime]:
    for form in _DATES:
        try:
            date = datetime.strptime(text, form).replace(tzinfo=timezone.utc)
        except ValueError:
            continue
        notes.append("the start has no time zone and is taken as UTC")
        return date
    notes.append(f"the start {quoted(text)} is not a date" if text else "no start")
    return None


def _energy(column: Sequence[str], notes: List[str]) -> Tuple[float, ...]:
    if not all(column):
        notes.append("no energy calibration")
        return ()
    return calibration_conversion.energy_of_column(column, notes)
