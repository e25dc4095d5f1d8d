"""Text files of pocket multichannel analysers (.mca), reading.

A heading of lines "KEY - value", then the contents between <<DATA>> and <<END>>; other sections are
settings of the instrument. <<CALIBRATION>> has lines "channel energy", channels counted from 0.
"""

from datetime import datetime, timezone
from fractions import Fraction
from typing import Dict, List, Optional, Sequence, Tuple

from ..analysis.calibration import counted_from_one
from ..display.printable import quoted
from ..values import MAX_CHANNELS
from . import calibration_conversion, parsing
from .measurement import FormatError, Measurement, checked

_BEGIN = "<<PMCA SPECTRUM>>"
_MAX_LINES = 2 * MAX_CHANNELS
_MAX_POINTS = 64


def matches(data: bytes) -> bool:
    """True if the data begins like a file of this format."""
    return data.lstrip(b"\xef\xbb\xbf \r\n").startswith(_BEGIN.encode())


def read(data: bytes) -> List[Measurement]:
    """Return the one spectrum in the file. Raises FormatError."""
    sections = _sections(data)
    if "DATA" not in sections:
        raise FormatError("there is no section <<DATA>>")
    notes: List[str] = []
    heading = dict(map(_pair, sections.get("PMCA SPECTRUM", [])))
    measurement = Measurement(
        counts=tuple(parsing.counts_of("\n".join(sections["DATA"]))),
        live_time=_seconds(heading, "LIVE_TIME", notes),
        real_time=_seconds(heading, "REAL_TIME", notes),
        start=_start(heading.get("START_TIME", ""), notes),
        title=heading.get("DESCRIPTION", "") or heading.get("TAG", ""),
        instrument=heading.get("SERIAL_NUMBER", ""),
        energy=_energy(sections.get("CALIBRATION", []), notes),
    )
    return [checked(measurement)._replace(notes=tuple(notes))]


def _sections(data: bytes) -> Dict[str, List[str]]:
    """The lines of each section by its name."""
    sections: Dict[str, List[str]] = {}
    current: List[str] = []
    for number, line in enumerate(parsing.lines_of(data), start=1):
        if number > _MAX_LINES:
            raise FormatError(f"line {number}: too many lines for a spectrum")
        line = line.strip()
        if line.startswith("<<") and line.endswith(">>"):
            current = sections.setdefault(line[2:-2].strip(), [])
        elif line:
            current.append(line)
    return sections


def _pair(line: str) -> Tuple[str, str]:
    key, _, value = line.partition("-")
    return key.strip(), value.strip()


def _seconds(heading: Dict[str, str], key: str, notes: List[str]) -> Optional[float]:
    if not heading.get(key):
        notes.append(f"no {key}")
        return None
    return parsing.seconds(heading[key])


def _start(text: str, notes: List[str]) -> Optional[datetime]:
    try:
        date = datetime.strptime(text, "%m/%d/%Y %H:%M:%S").replace(tzinfo=timezone.utc)
    except ValueError:
        notes.append(f"the start {quoted(text)} is not a date" if text else "no start")
        return None
    notes.append("the start has no time zone and is taken as UTC")
    return date


def _energy(lines: Sequence[str], notes: List[str]) -> Tuple[float, ...]:
    """The straight line or parabola through the points of the calibration."""
    points: List[Tuple[Fraction, Fraction]] = []
    for line in lines[:_MAX_POINTS]:
        fields = line.split()
        if len(fields) == 2 and not line.startswith("LABEL"):
            points.append((parsing.exact(fields[0]), parsing.exact(fields[1])))
    channels, energies = [x for x, _ in points], [y for _, y in points]
    if len(set(channels)) < 2:
        notes.append("no energy calibration")
        return ()
    fit = calibration_conversion.polynomial_through(
        calibration_conversion.Points(channels, energies, [Fraction(0)] * len(points)), [1]
    )
    return counted_from_one(fit.coefficients)
