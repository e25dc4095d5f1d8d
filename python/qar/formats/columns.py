"""Tables of text (.csv with commas, .txt with tabs): channel, energy and counts in columns.

One column has the counts; of two, the first is the channel or the energy in keV; three are channel,
energy and counts. A first column that counts on by 1 is the channel, unless a heading contains
"energy" or "keV". Other properties of the spectrum come first, in lines such as
"# live time / s: 600", which `write_csv` and `write_text` write. Channels count from 0.
"""

import re
from datetime import datetime
from fractions import Fraction
from typing import Any, Callable, Dict, List, NamedTuple, Optional, Sequence, Tuple

from ..analysis.calibration import counted_from_one, polynomial
from ..display.printable import printable, quoted
from ..values import MAX_CHANNELS
from . import calibration_conversion, parsing
from .measurement import FormatError, Measurement, checked

_MAX_LINES = 2 * MAX_CHANNELS + 1000
_ENERGY, _SHAPE = "energy / keV", "(FWHM / keV)^2"
_MAX_HEAD_LINES = 16


def _polynomial(text: str) -> List[Fraction]:
    return parsing.exact_list(text, calibration_conversion.MAX_COEFFICIENTS)


def _energy(text: str) -> Tuple[float, ...]:
    return counted_from_one(_polynomial(text))


def _shape(text: str) -> Tuple[float, ...]:
    return tuple(map(float, _polynomial(text)))


class Layout(NamedTuple):
    """How a table is read if its form is not the usual one."""

    skip: int = 0  # lines before the table, which are ignored
    columns: Tuple[str, ...] = ()  # of COLUMNS, one for each column; empty: from the content


COLUMNS = ("channel", "energy", "counts", "ignore")
"""The names of columns in a Layout; "counts" is needed, the first two may be there once."""


class _Table(NamedTuple):
    """The content of a file."""

    headings: str
    fields: Dict[str, List[str]]  # the values of the comment lines, by name
    rows: List[List[str]]  # all of the same length
    unknown: int  # comment lines without a known name


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
    """Return the one spectrum in the file. Raises FormatError."""
    return read_table(data, Layout())


def read_table(data: bytes, layout: Layout) -> List[Measurement]:
    """Return the one spectrum in a file with this layout. Raises FormatError."""
    table = _table(data, layout.skip)
    notes: List[str] = []
    values = _values(table.fields)
    columns = dict(zip(_columns_of(table, layout), zip(*table.rows)))
    counts = [parsing.count(text) for text in columns["counts"]]
    energy = values.get(_ENERGY, ())
    if "channel" in columns:
        counts = [0] * _missing_channels(columns["channel"], notes) + counts
    if "energy" in columns and not energy:
        energy = _energy_of(columns["energy"], len(counts), notes)
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


def _table(data: bytes, skip: int) -> _Table:
    headings, fields, unknown = "", {}, 0  # type: str, Dict[str, List[str]], int
    rows: List[List[str]] = []
    for number, line in enumerate(parsing.spectrum_lines(data, skip + _MAX_LINES), start=1):
        if number <= skip:
            continue
        if line.startswith("#"):
            name, colon, value = line[1:].partition(":")
            if colon and name.strip() in _READERS:
                fields.setdefault(name.strip(), []).append(value.strip())
            elif line.strip("# "):
                unknown += 1
            continue
        row = _fields(line)
        if row and not rows and not all(map(_is_number, row)):
            headings += line.lower() + " "
        elif row:
            try:
                _check_row(row, rows)
            except FormatError as error:
                raise FormatError(f"line {number}: {error}") from None
            rows.append(row)
    if not rows:
        raise FormatError("no line has counts")
    return _Table(headings, fields, rows, unknown)


def _check_row(row: Sequence[str], rows: Sequence[Sequence[str]]) -> None:
    if rows and len(row) != len(rows[0]):
        raise FormatError(f"{len(row)} columns follow {len(rows[0])}")
    if len(rows) == MAX_CHANNELS:
        raise FormatError(f"more than {MAX_CHANNELS:,} channels")
    for text in row:
        parsing.exact(text)


def _columns_of(table: _Table, layout: Layout) -> Sequence[str]:
    """The names of the columns. Raises FormatError if they are not clear."""
    width = len(table.rows[0])
    if layout.columns:
        if len(layout.columns) != width:
            raise FormatError(f"{width} columns; expected {','.join(layout.columns)}")
        return layout.columns
    if width == 1:
        _refuse_head_lines(len(table.rows))
        return ("counts",)
    if width == 2:
        return ("channel" if _are_channels(table) else "energy", "counts")
    if width == 3:
        return ("channel", "energy", "counts")
    raise FormatError(f"{width} columns; name them, for example channel,energy,counts")


def _refuse_head_lines(rows: int) -> None:
    """Numbers of a heading would become the contents of the first channels."""
    usual = 1 << max(0, rows.bit_length() - 1)
    if usual >= 256 and 0 < rows - usual <= _MAX_HEAD_LINES:
        raise FormatError(
            f"a single column of {rows} numbers, {rows - usual} more than {usual} channels; give"
            f" the number of lines to skip, 0 if all are counts"
        )


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


def _are_channels(table: _Table) -> bool:
    """True if the first column counts channels."""
    numbers = [parsing.exact(row[0]) for row in table.rows]
    whole = numbers[0].denominator == 1 and numbers[0] >= 0
    whole = whole and all(after - before == 1 for before, after in zip(numbers, numbers[1:]))
    return whole and not re.search(r"energy|kev", table.headings)


def _missing_channels(column: Sequence[str], notes: List[str]) -> int:
    """The number of channels before the first one of the column, which counts on by 1."""
    first = parsing.count(column[0])
    for channel, text in enumerate(column, start=first):
        if parsing.exact(text) != channel:
            raise FormatError(f"channel {text} in the row of channel {channel}")
    if first + len(column) > MAX_CHANNELS:
        raise FormatError(f"more than {MAX_CHANNELS:,} channels")
    if first == 1:
        notes.append("the channels of the first column count from 1")
        return 0
    if first:
        notes.append(f"channels 0 to {first - 1} (from 0) are not in the file and set to 0")
    return first


def _energy_of(column: Sequence[str], channels: int, notes: List[str]) -> Tuple[float, ...]:
    """The calibration from the energies of the last channels of a spectrum."""
    numbers = list(map(parsing.exact, column))
    if any(after <= before for before, after in zip(numbers, numbers[1:])):
        raise FormatError("the energies do not rise from row to row")
    if channels > len(column):
        notes.append("left out: the energies, because the first channels have none")
        return ()
    return calibration_conversion.energy_of_column(column, notes)


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
    if measurement.energy:  # as a column, from which other programs read the calibration
        lines.append(separator.join(("channel", "energy / keV", "counts")))
        for channel, count in enumerate(measurement.counts):
            energy = polynomial(measurement.energy, channel + 1)
            lines.append(f"{channel}{separator}{energy:.9g}{separator}{count}")
    else:
        lines.append(f"channel{separator}counts")
        lines += [
            f"{channel}{separator}{count}" for channel, count in enumerate(measurement.counts)
        ]
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
