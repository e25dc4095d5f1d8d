"""Options for the reading of input files, and the reading with them."""

import argparse
import re
from datetime import datetime
from typing import Any, Dict, List, NamedTuple, Optional, Tuple

from .. import formats
from ..formats import FormatError, Measurement, columns, parsing
from ..formats.measurement import reading
from .command import FORMAT_NAMES, Arguments, Parser, positive_number

_VALUES = ("live_time", "real_time", "start")


class Reading(NamedTuple):
    """How input files are read."""

    format: str = ""  # a key of formats.FORMATS; empty: detected from the content
    layout: Optional[columns.Layout] = None  # of a table of text
    live_time: Optional[float] = None  # s, instead of that in the file
    real_time: Optional[float] = None  # s, instead of that in the file
    start: Optional[datetime] = None  # instead of that in the file

    def read(self, path: str) -> List[Measurement]:
        """Return the measurements in a file. Raises FormatError, QarError and OSError."""
        if self.layout is None:
            measurements = formats.read(path, self.format)
        else:
            with reading(path):
                measurements = columns.read_table(parsing.read_file(path), self.layout)
        given = {name: getattr(self, name) for name in _VALUES if getattr(self, name) is not None}
        return [_with_values(measurement, given) for measurement in measurements]


def _with_values(measurement: Measurement, given: Dict[str, Any]) -> Measurement:
    if given and measurement.qar_file:
        raise FormatError(
            "a QAR file has its own times; --live-time, --real-time and --start are for others"
        )
    missing = {f"no {name.replace('_', ' ')}" for name in given}
    notes = tuple(note for note in measurement.notes if note not in missing)
    return measurement._replace(notes=notes, **given)


# ---- Arguments ---------------------------------------------------------------------------------


def reading_of(arguments: Arguments) -> Reading:
    """Return the options for reading from the arguments that `add_reading` added."""
    layout = None
    if arguments.skip is not None or arguments.columns:
        layout = columns.Layout(arguments.skip or 0, arguments.columns)
    values = (getattr(arguments, name) for name in _VALUES)
    return Reading(arguments.from_format, layout, *values)


def add_reading(command: Parser) -> None:
    command.add_argument(
        "--from", dest="from_format", metavar="FORMAT", choices=FORMAT_NAMES, default="",
        help="Read this input format instead of detecting it from the content:"
        f" {', '.join(FORMAT_NAMES)}.",
    )  # fmt: skip
    command.add_argument(
        "--skip", metavar="LINES", type=_lines,
        help="Ignore this number of lines before a table of text.",
    )  # fmt: skip
    command.add_argument(
        "--columns", metavar="NAMES", type=_columns, default=(),
        help="Read the columns of a table of text as these, separated by commas:"
        f" {', '.join(columns.COLUMNS)}.",
    )  # fmt: skip
    for name in ("live", "real"):
        command.add_argument(
            f"--{name}-time", metavar="SECONDS", type=positive_number,
            help=f"Use this {name} time instead of that in the file.",
        )  # fmt: skip
    command.add_argument(
        "--start", metavar="DATE", type=_date,
        help="Use this start instead of that in the file, such as 2024-01-24T21:02:12Z.",
    )  # fmt: skip


def _lines(text: str) -> int:
    if not re.fullmatch(r"\d{1,6}", text, re.ASCII):
        raise argparse.ArgumentTypeError(f"{text!r} is not a number of lines")
    return int(text)


def _columns(text: str) -> Tuple[str, ...]:
    names = tuple(name.strip() for name in text.split(","))
    unknown = [name for name in names if name not in columns.COLUMNS]
    if unknown:
        known = ", ".join(columns.COLUMNS)
        raise argparse.ArgumentTypeError(f"{unknown[0]!r} is not a column; expected {known}")
    for name in ("counts", "channel", "energy"):
        if names.count(name) > 1 or (name == "counts" and name not in names):
            raise argparse.ArgumentTypeError(f"{text!r} has {names.count(name)} columns {name!r}")
    return names


def _date(text: str) -> datetime:
    try:
        return parsing.read_date(text)
    except FormatError as error:
        raise argparse.ArgumentTypeError(str(error)) from None
