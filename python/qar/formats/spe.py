"""IAEA ASCII spectra (.spe): blocks that begin with "$NAME:".

These blocks are read and written: $SPEC_ID (title), $SPEC_REM (remarks; lines "DETDESC# ..." and
"INSTRUMENT# ..." contain detector and electronics), $DATE_MEA (start), $MEAS_TIM (live and real
time), $DATA (counts), $MCA_CAL or $ENER_FIT (energy), $SHAPE_CAL (FWHM in channels as a polynomial
in the channel). Channels count from 0. $DATE_MEA has whole seconds and no time zone; a remark
"START# ..." contains the exact date.
"""

import re
from datetime import datetime, timezone
from fractions import Fraction
from typing import Dict, List, NamedTuple, Optional, Sequence, Tuple

from ..analysis.calibration import counted_from_one
from ..display.printable import printable, quoted
from ..values import MAX_CHANNELS
from . import calibration_conversion, parsing
from .measurement import FormatError, Measurement, checked

_DETECTOR, _INSTRUMENT, _START = "DETDESC#", "INSTRUMENT#", "START#"
_KNOWN_BLOCKS = {
    *("SPEC_ID", "SPEC_REM", "DATE_MEA", "MEAS_TIM", "DATA"),
    *("MCA_CAL", "ENER_FIT", "SHAPE_CAL", "ENDRECORD"),
}
_EMPTY = {"ROI": ["0"], "PRESETS": ["None", "0", "0"]}  # the content if there are none
_MAX_LINES = 2 * MAX_CHANNELS


def read(data: bytes) -> List[Measurement]:
    """Return the spectrum in the content of a file. Raises FormatError."""
    blocks = _blocks(data)
    if "DATA" not in blocks:
        raise FormatError("there is no $DATA: block")
    notes: List[str] = []
    counts = _counts(blocks["DATA"], notes)
    energy = _energy(blocks, notes)
    live_time, real_time = _times(blocks.get("MEAS_TIM", []), notes)
    named, remarks = _remarks(blocks.get("SPEC_REM", []))
    measurement = Measurement(
        counts=tuple(counts),
        live_time=live_time,
        real_time=real_time,
        start=_start(blocks.get("DATE_MEA", []), named[_START], notes),
        title=" ".join(blocks.get("SPEC_ID", [])),
        detector=named[_DETECTOR],
        instrument=named[_INSTRUMENT],
        remarks="\n".join(remarks),
        energy=energy,
        shape=_shape(blocks.get("SHAPE_CAL", []), energy, len(counts), notes),
    )
    left_out = sorted(
        name
        for name, lines in blocks.items()
        if name not in _KNOWN_BLOCKS and lines != _EMPTY.get(name)
    )
    if left_out:
        notes.append("left out: " + ", ".join(f"${name}" for name in left_out))
    return [checked(measurement)._replace(notes=tuple(notes))]


def _blocks(data: bytes) -> Dict[str, List[str]]:
    """Return the lines of each block, without empty lines."""
    blocks: Dict[str, List[str]] = {}
    current: List[str] = []
    for line in parsing.spectrum_lines(data, _MAX_LINES):
        if line.startswith("$"):
            name, _, rest = line[1:].partition(":")
            current = blocks.setdefault(name.strip().upper(), [])
            line = rest.strip()
        if line:
            current.append(line)
    return blocks


def _remarks(lines: Sequence[str]) -> Tuple[Dict[str, str], List[str]]:
    """Return the text after each known word, or an empty string, and the other lines."""
    named = {_DETECTOR: "", _INSTRUMENT: "", _START: ""}
    others: List[str] = []
    for line in lines:
        word, _, rest = line.partition(" ")
        if word in named and not named[word]:
            named[word] = rest.strip()
        else:
            others.append(line)
    return named, others


def _counts(lines: Sequence[str], notes: List[str]) -> List[int]:
    limits = lines[0].split() if lines else []
    if len(limits) != 2:
        raise FormatError("$DATA: the first line is not the first and the last channel")
    first, last = map(parsing.count, limits)
    if not first <= last < MAX_CHANNELS:
        raise FormatError(
            f"$DATA: channels {first} to {last}; expected at most {MAX_CHANNELS:,} channels"
        )
    counts = [0] * first
    for line in lines[1:]:
        counts.extend(parsing.counts_of(line))
        if len(counts) > last + 1:
            raise FormatError(
                f"$DATA: more than {last - first + 1} channels, the number in its first line"
            )
    if len(counts) <= last:
        raise FormatError(
            f"$DATA: {len(counts) - first} of {last - first + 1} channels; the file is cut off"
        )
    if first:
        notes.append(f"channels 0 to {first - 1} (from 0) are not in the file and set to 0")
    return counts


def _times(lines: Sequence[str], notes: List[str]) -> Tuple[Optional[float], Optional[float]]:
    fields = " ".join(lines[:1]).split()
    if len(fields) != 2:
        notes.append("no live and real time ($MEAS_TIM)")
        return None, None
    return parsing.seconds(fields[0]), parsing.seconds(fields[1])


def _start(lines: Sequence[str], remark: str, notes: List[str]) -> Optional[datetime]:
    """Return the start; the exact date of the remark if it is within the same second."""
    text = lines[0] if lines else ""
    match = re.fullmatch(r"(\d{1,2})[/-](\d{1,2})[/-](\d{4})\s+(\d\d?):(\d\d):(\d\d)", text)
    try:
        if match:
            month, day, year, hour, minute, second = map(int, match.groups())
            date = datetime(year, month, day, hour, minute, second, tzinfo=timezone.utc)
        else:
            date = parsing.read_date(text)
    except ValueError:
        notes.append(f"the start {quoted(text)} is not a date" if text else "no start")
        return None
    try:
        exact = parsing.read_date(remark)
    except FormatError:
        exact = None
    if exact is not None and exact.replace(microsecond=0) == date:
        return exact
    notes.append("the start has no time zone and is taken as UTC")
    return date


class _Energy(NamedTuple):
    coefficients: List[Fraction]
    source: str


def _energy(blocks: Dict[str, List[str]], notes: List[str]) -> Tuple[float, ...]:
    calibrations = []
    for name in ("MCA_CAL", "ENER_FIT"):
        try:
            coefficients = _coefficients(name, blocks.get(name, []))
        except FormatError as error:
            notes.append(f"${name}: {error}; left out")
            continue
        if any(coefficients[1:]):
            calibrations.append(_Energy(coefficients, name))
    if not calibrations:
        notes.append("no energy calibration")
        return ()
    taken, others = calibrations[0], calibrations[1:]
    for other in others:
        # Some programs write the same calibration with fewer digits; that is not a difference.
        offset = abs(taken.coefficients[0] - other.coefficients[0])
        if offset > abs(taken.coefficients[1]) / 10:
            notes.append(
                f"${other.source} differs from ${taken.source} by {float(offset):.3g} keV at"
                f" channel 0; ${taken.source} is taken"
            )
    return counted_from_one(taken.coefficients)


def _coefficients(name: str, lines: Sequence[str]) -> List[Fraction]:
    """Return keV as a polynomial, from the lines of a block.

    The lines contain the number of coefficients, the coefficients and the unit.
    """
    fields = " ".join(lines[: 1 if name == "ENER_FIT" else 2]).split()
    if name != "ENER_FIT" and fields:
        number = min(parsing.count(fields[0]), calibration_conversion.MAX_COEFFICIENTS)
        fields = fields[1:]
    else:
        number = 2
    if len(fields) < number:
        raise FormatError(f"{len(fields)} of {number} coefficients")
    units = [field.lower() for field in fields[number:]] or ["kev"]
    if units[0] not in ("kev", "mev"):
        raise FormatError(f"unknown unit {quoted(units[0])}; expected keV or MeV")
    return [parsing.exact(field) * (1000 if units[0] == "mev" else 1) for field in fields[:number]]


def _shape(
    lines: Sequence[str], energy: Sequence[float], channels: int, notes: List[str]
) -> Tuple[float, ...]:
    if not lines:
        return ()
    try:
        widths = _coefficients("SHAPE_CAL", lines)
    except FormatError as error:
        notes.append(f"$SHAPE_CAL: {error}; left out")
        return ()
    if not energy:
        notes.append("left out: $SHAPE_CAL, because there is no energy calibration")
        return ()
    shape = calibration_conversion.shape_from_channel_widths(widths, energy, channels)
    if not shape.coefficients:
        notes.append("left out: $SHAPE_CAL, which gives impossible peak widths")
    elif shape.deviation > 1e-6:
        notes.append(f"the widths are read within {shape.deviation:.2g} of the width")
    return shape.coefficients


# ---- Writing -----------------------------------------------------------------------------------


def write(measurement: Measurement) -> Tuple[str, List[str]]:
    """Return the text of a file and notes of everything that it cannot store."""
    notes: List[str] = []
    lines = ["$SPEC_ID:", _line(measurement.title, "title", notes)]
    remarks = [_line(line, "remark", notes) for line in measurement.remarks.split("\n") if line]
    if measurement.instrument:
        remarks.insert(0, f"{_INSTRUMENT} {_line(measurement.instrument, 'instrument', notes)}")
    if measurement.detector:
        remarks.insert(0, f"{_DETECTOR} {_line(measurement.detector, 'detector', notes)}")
    start = measurement.start
    if start is not None:
        remarks.append(f"{_START} {parsing.precise_date_text(start)}")
        notes.append("the format has no time zone: the start is written in UTC")
    if remarks:
        lines += ["$SPEC_REM:", *remarks]
    if start is not None:
        lines += ["$DATE_MEA:", start.astimezone(timezone.utc).strftime("%m/%d/%Y %H:%M:%S")]
    if measurement.live_time is not None and measurement.real_time is not None:
        times = (measurement.live_time, measurement.real_time)
        lines += ["$MEAS_TIM:", " ".join(map(parsing.decimal_text, times))]
    elif measurement.live_time is not None or measurement.real_time is not None:
        notes.append("left out: the live or real time, because the format stores both or neither")
    lines += ["$DATA:", f"0 {len(measurement.counts) - 1}"]
    lines += [f"{count:8d}" for count in measurement.counts]
    lines += _calibration_lines(measurement, notes)
    return "\n".join(lines) + "\n", notes


def _line(text: str, field: str, notes: List[str]) -> str:
    """Return a string as one line that does not begin a block."""
    line = printable(text).strip()
    line = line.replace("$", "S", 1) if line.startswith("$") else line
    if line != text:
        notes.append(f"the {field} is changed to {quoted(line)}")
    return line


def _calibration_lines(measurement: Measurement, notes: List[str]) -> List[str]:
    lines: List[str] = []
    if measurement.energy:
        coefficients = calibration_conversion.decimals_from_zero(measurement.energy)
        line = (coefficients + ["0", "0"])[:2]
        lines += ["$ENER_FIT:", " ".join(line)]
        lines += ["$MCA_CAL:", str(len(coefficients)), " ".join(coefficients) + " keV"]
    if measurement.shape:
        widths = calibration_conversion.channel_widths_from_shape(
            measurement.shape, measurement.energy, len(measurement.counts)
        )
        if widths.coefficients:
            padded = (list(widths.coefficients) + [0.0, 0.0])[:3]
            lines += ["$SHAPE_CAL:", "3", " ".join(repr(c) for c in padded)]
            if widths.deviation > 1e-6:
                notes.append(f"the widths are written within {widths.deviation:.2g} of the width")
        else:
            notes.append("left out: the shape calibration, which gives no width at every channel")
    return lines
