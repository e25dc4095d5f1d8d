"""Spectra in two columns of text (.csv with commas, .txt with tabs).

The first column is the channel or the energy in keV, the second the counts; a single column is the
counts. A first column that rises by 1 is the channel, unless a heading contains "energy" or "keV".
Other data precede the columns in lines such as "# live time / s: 600", as `_write` creates them.
Channels count from 0 in these lines and in the first column.
"""

import re
from datetime import datetime
from fractions import Fraction
from typing import Any, Callable, Dict, List, NamedTuple, Optional, Sequence, Tuple

from ..analysis.calibration import counted_from_one
from ..display.printable import printable, quoted
from ..values import MAX_CHANNELS
from . import calibration_conversion, parsing
from .measurement import FormatError, Measurement, checked

_MAX_LINES = 2 * MAX_CHANNELS + 1000
_ENERGY, _SHAPE = "energy / keV", "(FWHM / keV)^2"
_TOLERANCE = Fraction(
    1, 10**12
)  # by which a fit may miss a small energy, relative to the largest one


def _polynomial(text: str) -> List[Fraction]:
    return parsing.exact_list(text, calibration_conversion.MAX_COEFFICIENTS)


def _energy(text: str) -> Tuple[float, ...]:
    return counted_from_one(_polynomial(text))


def _shape(text: str) -> Tuple[float, ...]:
    return tuple(map(float, _polynomial(text)))


class _Table(NamedTuple):
    """The content of a file."""

    headings: str
    fields: Dict[str, List[str]]  # the values of the comment lines, by name
    first: List[str]  # the first column; empty if there is only one
    counts: List[int]
    unknown: int  # number of other comment lines


_READERS: Dict[str, Callable[[str], Any]] = {
    "title": str,
    "detector": str,
    "instrument": str,
    "remark": str,
    "start": parsing.read_date,
    "live time / s": parsing.seconds,
    "real time / s": parsing.seconds,
    _ENERGY: _energy,
    _SHAPE: _shape,
    "about": str,
}


def read(data: bytes) -> List[Measurement]:
    """Return the spectrum in the content of a file. Raises FormatError."""
    table = _table(data)
    notes: List[str] = []
    values = _values(table.fields)
    energy = values.get(_ENERGY, ())
    counts = table.counts
    if table.first:
        if _are_channels(table, notes):
            missing = int(table.first[0]) - _origin(table)
            counts = [0] * missing + counts
        elif not energy:
            energy = _energy_of_column(table.first, notes)
    if table.unknown:
        notes.append(f"left out: {table.unknown} comment lines")
    if not energy:
        notes.append("no energy calibration")
    if "live time / s" not in values:
        notes.append("no live time")
    measurement = Measurement(
        counts=tuple(counts),
        live_time=values.get("live time / s"),
        real_time=values.get("real time / s"),
        start=values.get("start"),
        title=values.get("title", ""),
        detector=values.get("detector", ""),
        instrument=values.get("instrument", ""),
        remarks="\n".join(table.fields.get("remark", [])),
        energy=energy,
        shape=values.get(_SHAPE, ()),
        notes=tuple(notes),
    )
    return [checked(measurement)]


def _values(fields: Dict[str, List[str]]) -> Dict[str, Any]:
    values = {}
    for name, lines in fields.items():
        try:
            values[name] = _READERS[name](lines[-1])
        except FormatError as error:
            raise FormatError(f"{name}: {error}") from None
    return values


def _table(data: bytes) -> _Table:
    headings, fields, unknown = "", {}, 0  # type: str, Dict[str, List[str]], int
    first: List[str] = []
    counts: List[int] = []
    for number, line in enumerate(parsing.spectrum_lines(data, _MAX_LINES), start=1):
        if line.startswith("#"):
            name, colon, value = line[1:].partition(":")
            if colon and name.strip() in _READERS:
                fields.setdefault(name.strip(), []).append(value.strip())
            elif line.strip("# "):
                unknown += 1
            continue
        row = _fields(line)
        if not row:
            continue
        if not counts and not _is_number(row[-1]):
            headings += line.lower() + " "
            continue
        try:
            first, counts = _with_row(first, counts, row)
        except FormatError as error:
            raise FormatError(f"line {number}: {error}") from None
    if not counts:
        raise FormatError("no line has counts")
    return _Table(headings, fields, first, counts, unknown)


def _fields(line: str) -> List[str]:
    """Return the fields of a row; if semicolons separate them, a comma is a decimal point."""
    if ";" in line:
        fields = line.replace(",", ".").split(";")
    else:
        fields = re.split(r"\s*,\s*|\s+", line)
    return [field.strip() for field in fields if field.strip()]


def _is_number(text: str) -> bool:
    try:
        parsing.exact(text)
    except FormatError:
        return False
    return True


def _with_row(
    first: List[str], counts: List[int], row: Sequence[str]
) -> Tuple[List[str], List[int]]:
    if len(row) > 2:
        raise FormatError(f"{len(row)} columns; expected 1 or 2")
    if counts and (len(row) == 2) != bool(first):
        raise FormatError("the number of columns changes")
    if len(counts) == MAX_CHANNELS:
        raise FormatError(f"more than {MAX_CHANNELS:,} channels")
    if len(row) == 2:
        parsing.exact(row[0])
        first.append(row[0])
    counts.append(parsing.count(row[-1]))
    return first, counts


def _are_channels(table: _Table, notes: List[str]) -> bool:
    """Return True if the first column is the channels. Raises FormatError if it does not rise."""
    numbers = [parsing.exact(text) for text in table.first]
    steps = {later - earlier for earlier, later in zip(numbers, numbers[1:])}
    if steps and min(steps) <= 0:
        raise FormatError("the first column does not rise from row to row")
    whole = numbers[0].denominator == 1 and numbers[0] >= 0 and steps <= {Fraction(1)}
    if not whole or re.search(r"energy|kev", table.headings):
        return False
    if numbers[0] + len(numbers) > MAX_CHANNELS:
        raise FormatError(f"more than {MAX_CHANNELS:,} channels")
    if numbers[0] == 1:
        notes.append("the channels of the first column count from 1")
    elif numbers[0] > 1:
        notes.append(f"channels 0 to {numbers[0] - 1} (from 0) are not in the file and set to 0")
    return True


def _origin(table: _Table) -> int:
    """Return the number of the first channel: 1 if the column begins with 1, otherwise 0."""
    return 1 if int(table.first[0]) == 1 else 0


def _energy_of_column(column: Sequence[str], notes: List[str]) -> Tuple[float, ...]:
    """Return the energy calibration that gives the energies of the channels as printed."""
    energies = [parsing.exact(text) for text in column]
    min_tolerance = max(abs(energy) for energy in energies) * _TOLERANCE
    points = calibration_conversion.Points(
        [Fraction(channel) for channel in range(len(column))],
        energies,
        [max(calibration_conversion.printed_tolerance(text), min_tolerance) for text in column],
    )
    fit = calibration_conversion.polynomial_through(points, range(1, 5))
    if not fit.exact:
        misses = (
            abs(calibration_conversion.evaluate(fit.coefficients, x) - y)
            for x, y in zip(points.x, points.y)
        )
        notes.append(
            "the energies of the first column are not a polynomial; the calibration gives them"
            f" within {float(max(misses)):.2g} keV"
        )
    return counted_from_one(fit.coefficients)


# ---- Writing -----------------------------------------------------------------------------------


def write_csv(measurement: Measurement) -> Tuple[str, List[str]]:
    """Return the text of a file and notes of everything that it cannot store."""
    return _write(measurement, ",")


def write_text(measurement: Measurement) -> Tuple[str, List[str]]:
    """Return the same with tabs instead of commas."""
    return _write(measurement, "\t")


def _write(measurement: Measurement, separator: str) -> Tuple[str, List[str]]:
    notes: List[str] = []
    lines = [
        f"# {name}: {_line(value, name, notes)}"
        for name, value in _named_values(measurement)
        if value
    ]
    if measurement.energy or measurement.shape:
        about = "channels count from 0; polynomials in the channel and in the energy, from order 0"
        lines.append(f"# about: {about}")
    lines.append(f"channel{separator}counts")
    lines += [f"{channel}{separator}{count}" for channel, count in enumerate(measurement.counts)]
    return "\n".join(lines) + "\n", notes


def _named_values(measurement: Measurement) -> List[Tuple[str, str]]:
    def seconds(value: Optional[float]) -> str:
        return "" if value is None else parsing.decimal_text(value)

    def date(value: Optional[datetime]) -> str:
        return "" if value is None else parsing.precise_date_text(value)

    return [
        ("title", measurement.title),
        ("detector", measurement.detector),
        ("instrument", measurement.instrument),
        *(("remark", line) for line in measurement.remarks.split("\n")),
        ("start", date(measurement.start)),
        ("live time / s", seconds(measurement.live_time)),
        ("real time / s", seconds(measurement.real_time)),
        (_ENERGY, " ".join(calibration_conversion.decimals_from_zero(measurement.energy))),
        (_SHAPE, " ".join(repr(c) for c in measurement.shape)),
    ]


def _line(text: str, field: str, notes: List[str]) -> str:
    """Return a string on one line."""
    line = printable(text).strip()
    if line != text:
        notes.append(f"the {field} is changed to {quoted(line)}")
    return line
