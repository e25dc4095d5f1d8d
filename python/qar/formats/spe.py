"""IAEA ASCII spectra (.spe): blocks that begin with "$NAME:".

Read and written: $SPEC_ID the title, $SPEC_REM remarks (lines "DETDESC# ..." and "INSTRUMENT# ..."
name detector and electronics), $DATE_MEA the start, $MEAS_TIM live and real time, $DATA the counts,
$MCA_CAL or else $ENER_FIT the energy, $SHAPE_CAL the FWHM in channels as a polynomial in the
channel. Channels count from 0. $DATE_MEA has whole seconds and no time zone; a remark "START# ..."
keeps the rest.
"""

import re
from datetime import datetime, timezone
from fractions import Fraction
from typing import Dict, List, NamedTuple, Optional, Sequence, Tuple

from . import calibration_conversion, parsing
from .measurement import MOST_CHANNELS, FormatError, Measurement, checked

_DETECTOR, _INSTRUMENT, _START = "DETDESC#", "INSTRUMENT#", "START#"
_CARRIED = {
    *("SPEC_ID", "SPEC_REM", "DATE_MEA", "MEAS_TIM", "DATA"),
    *("MCA_CAL", "ENER_FIT", "SHAPE_CAL", "ENDRECORD"),
}
_EMPTY = {"ROI": ["0"], "PRESETS": ["None", "0", "0"]}  # what says that there is none
_MOST_LINES = 2 * MOST_CHANNELS
_LONGEST_LINE = 4096


def read(data: bytes) -> List[Measurement]:
    """The one spectrum in the file. Raises FormatError."""
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
        name for name, lines in blocks.items() if name not in _CARRIED and lines != _EMPTY.get(name)
    )
    if left_out:
        notes.append("left out: " + ", ".join(f"${name}" for name in left_out))
    return [checked(measurement)._replace(notes=tuple(notes))]


def _blocks(data: bytes) -> Dict[str, List[str]]:
    """The lines of each block, without those that are empty."""
    blocks: Dict[str, List[str]] = {}
    current: List[str] = []
    for number, line in enumerate(parsing.lines_of(data), start=1):
        if number > _MOST_LINES or len(line) > _LONGEST_LINE:
            raise FormatError(f"line {number}: too many or too long lines for a spectrum")
        line = line.strip()
        if line.startswith("$"):
            name, _, rest = line[1:].partition(":")
            current = blocks.setdefault(name.strip().upper(), [])
            line = rest.strip()
        if line:
            current.append(line)
    return blocks


def _remarks(lines: Sequence[str]) -> Tuple[Dict[str, str], List[str]]:
    """What the first line with each of the known words says, empty without one; the others."""
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
        raise FormatError("$DATA: does not begin with its first and last channel")
    first, last = map(parsing.count, limits)
    if not first <= last < MOST_CHANNELS:
        raise FormatError(f"$DATA: channels {first} to {last} are no spectrum")
    counts = [0] * first
    for line in lines[1:]:
        counts.extend(parsing.counts_of(line))
        if len(counts) > last + 1:
            raise FormatError(f"$DATA: more than the {last - first + 1} channels that it announces")
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
    """The start; the remark counts where it says the same second."""
    text = lines[0] if lines else ""
    match = re.fullmatch(r"(\d{1,2})[/-](\d{1,2})[/-](\d{4})\s+(\d\d?):(\d\d):(\d\d)", text)
    try:
        if match:
            month, day, year, hour, minute, second = map(int, match.groups())
            date = datetime(year, month, day, hour, minute, second, tzinfo=timezone.utc)
        else:
            date = parsing.read_date(text)
    except ValueError:
        notes.append(f"the start {parsing.shown(text)} is no date" if text else "no start")
        return None
    try:
        whole = parsing.read_date(remark)
    except FormatError:
        whole = None
    if whole is not None and whole.replace(microsecond=0) == date:
        return whole
    notes.append("the start has no time zone and is taken as UTC")
    return date


class _Energy(NamedTuple):
    coefficients: List[Fraction]
    source: str


def _energy(blocks: Dict[str, List[str]], notes: List[str]) -> Tuple[float, ...]:
    found = []
    for name in ("MCA_CAL", "ENER_FIT"):
        try:
            coefficients = _coefficients(name, blocks.get(name, []))
        except FormatError as error:
            notes.append(f"${name}: {error}; left out")
            continue
        if any(coefficients[1:]):
            found.append(_Energy(coefficients, name))
    if not found:
        notes.append("no energy calibration")
        return ()
    taken, others = found[0], found[1:]
    for other in others:
        # Programs write the same line with fewer digits; a tenth of a channel is another line.
        offset = abs(taken.coefficients[0] - other.coefficients[0])
        if offset > abs(taken.coefficients[1]) / 10:
            notes.append(
                f"${other.source} differs from ${taken.source} by {float(offset):.3g} keV at"
                f" channel 0; ${taken.source} is taken"
            )
    return calibration_conversion.counted_from_one(taken.coefficients)


def _coefficients(name: str, lines: Sequence[str]) -> List[Fraction]:
    """keV as a polynomial; the lines give the number of coefficients, them, and the unit."""
    fields = " ".join(lines[: 1 if name == "ENER_FIT" else 2]).split()
    if name != "ENER_FIT" and fields:
        number = min(parsing.count(fields[0]), calibration_conversion.MOST_COEFFICIENTS)
        fields = fields[1:]
    else:
        number = 2
    if len(fields) < number:
        raise FormatError(f"{len(fields)} of {number} coefficients")
    units = [field.lower() for field in fields[number:]] or ["kev"]
    if units[0] not in ("kev", "mev"):
        raise FormatError(f"the unit {parsing.shown(units[0])} is not known")
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
        notes.append("left out: $SHAPE_CAL, for want of an energy calibration")
        return ()
    shape = calibration_conversion.shape_from_channel_widths(widths, energy, channels)
    if not shape.coefficients:
        notes.append("left out: $SHAPE_CAL, which gives widths that no peak has")
    elif shape.deviation > 1e-6:
        notes.append(f"the shape calibration is met within {shape.deviation:.2g} of the width")
    return shape.coefficients


# ---- Writing -----------------------------------------------------------------------------------


def write(measurement: Measurement) -> Tuple[str, List[str]]:
    """The text of the file and what it cannot carry."""
    notes: List[str] = []
    lines = ["$SPEC_ID:", _plain(measurement.title, "title", notes)]
    remarks = [_plain(line, "remark", notes) for line in measurement.remarks.split("\n") if line]
    if measurement.instrument:
        remarks.insert(0, f"{_INSTRUMENT} {_plain(measurement.instrument, 'instrument', notes)}")
    if measurement.detector:
        remarks.insert(0, f"{_DETECTOR} {_plain(measurement.detector, 'detector', notes)}")
    start = measurement.start
    if start is not None:
        remarks.append(f"{_START} {parsing.date_text(start)}")
        notes.append("the format has no time zone: the start is written in UTC")
    if remarks:
        lines += ["$SPEC_REM:", *remarks]
    if start is not None:
        lines += ["$DATE_MEA:", start.astimezone(timezone.utc).strftime("%m/%d/%Y %H:%M:%S")]
    if measurement.live_time is not None and measurement.real_time is not None:
        times = (measurement.live_time, measurement.real_time)
        lines += ["$MEAS_TIM:", " ".join(map(parsing.decimal_text, times))]
    elif measurement.live_time is not None or measurement.real_time is not None:
        notes.append("left out: one of live and real time is not known and the other goes with it")
    lines += ["$DATA:", f"0 {len(measurement.counts) - 1}"]
    lines += [f"{count:8d}" for count in measurement.counts]
    lines += _calibration_lines(measurement, notes)
    return "\n".join(lines) + "\n", notes


def _plain(text: str, what: str, notes: List[str]) -> str:
    """The text as one line that begins no block."""
    plain = " ".join(text.split("\n")).strip()
    plain = "".join(c if c.isprintable() else "?" for c in plain)
    plain = plain.replace("$", "S", 1) if plain.startswith("$") else plain
    if plain != text:
        notes.append(f"the {what} is changed to {parsing.shown(plain)}")
    return plain


def _calibration_lines(measurement: Measurement, notes: List[str]) -> List[str]:
    lines: List[str] = []
    if measurement.energy:
        coefficients = calibration_conversion.counted_from_zero(measurement.energy)
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
                notes.append(f"the widths are written within {widths.deviation:.2g} of themselves")
        else:
            notes.append("left out: the shape calibration, which gives no width at every channel")
    return lines
