"""CSV tables whose first line names the columns.

Names may be in upper or lower case, with spaces or hyphens for the underscores. Empty lines and
lines that begin with "#" are ignored.
"""

import csv
from typing import Dict, Iterator, List, Sequence, Tuple

from ..display.printable import quoted
from . import parsing
from .measurement import FormatError

MAX_LINES = 200000

Row = Dict[str, str]


def rows(data: bytes, required: Sequence[str], columns: Sequence[str]) -> Iterator[Tuple[int, Row]]:
    """Yield each row with the number of its line; a missing field is empty.

    required: columns that the first line must have. columns: all columns that it may have.
    Raises FormatError.
    """
    present: List[str] = []
    for number, line in enumerate(parsing.lines_of(data), start=1):
        if number > MAX_LINES:
            raise FormatError(f"more than {MAX_LINES:,} lines")
        if not line.strip() or line.lstrip().startswith("#"):
            continue
        try:
            fields = [field.strip() for field in next(csv.reader([line]))]
        except csv.Error as error:
            raise FormatError(f"line {number}: {error}") from None
        if not present:
            present = [field.lower().replace("-", "_").replace(" ", "_") for field in fields]
            _check_columns(present, required, columns)
        elif len(fields) > len(present):
            raise FormatError(f"line {number}: {len(fields)} fields in {len(present)} columns")
        else:
            fields += [""] * (len(present) - len(fields))
            yield number, {**dict.fromkeys(columns, ""), **dict(zip(present, fields))}
    if not present:
        raise FormatError(f"the file is empty; expected the columns {', '.join(required)}")


def _check_columns(present: List[str], required: Sequence[str], columns: Sequence[str]) -> None:
    for name in required:
        if name not in present:
            raise FormatError(f"the first line has no column {name}")
    for name in present:
        if name not in columns:
            expected = ", ".join(columns)
            raise FormatError(f"unknown column {quoted(name)}; expected one of {expected}")
        if present.count(name) > 1:
            raise FormatError(f"the first line has the column {name} twice")


def positive(text: str) -> float:
    """Return the number in a field. Raises FormatError unless it is above 0."""
    value = float(parsing.exact(text))
    if not value > 0:
        raise FormatError(f"{quoted(text)} is not a number above 0")
    return value
