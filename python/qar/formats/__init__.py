"""Spectra in the formats of the field: IAEA .spe, N42 and columns of text.

`read` gives the measurements in a file, `write` makes a file of one. They know nothing of QAR
files; `qar.transfer.conversion` carries a measurement into one and out of it.
"""

import os
import re
from typing import Callable, List, NamedTuple, Optional, Tuple

from ..atomic_files import Path, write_text
from . import columns, n42, n42_writer, parsing, spe
from .measurement import FormatError, Measurement, checked, reading

__all__ = ["FORMATS", "Format", "FormatError", "Measurement", "identify", "read", "write"]


class Format(NamedTuple):
    """A format: how it is called, how its files are, and its two functions."""

    name: str
    suffix: str
    title: str
    read: Callable[[bytes], List[Measurement]]
    write: Callable[[Measurement], Tuple[str, List[str]]]


FORMATS = {
    format.name: format
    for format in (
        Format("spe", ".spe", "IAEA ASCII spectrum", spe.read, spe.write),
        Format("n42", ".n42", "ANSI/IEEE N42.42", n42.read, n42_writer.write),
        Format("csv", ".csv", "columns with commas", columns.read, columns.write_csv),
        Format("text", ".txt", "columns with tabs", columns.read, columns.write_text),
    )
}

_SUFFIXES = {format.suffix: format for format in FORMATS.values()}
_SUFFIXES[".xml"] = FORMATS["n42"]


def by_suffix(path: Path) -> Optional[Format]:
    """The format that the name of a file says, None for another."""
    return _SUFFIXES.get(os.path.splitext(os.fspath(path))[1].lower())


def identify(data: bytes) -> Format:
    """The format of a file's content. Raises FormatError where it is none that is known."""
    start = data[:4096]
    if start[:2] in (b"\xff\xfe", b"\xfe\xff"):  # XML in UTF-16; the columns are not
        return FORMATS["n42"]
    plain = start.lstrip(b"\xef\xbb\xbf \t\r\n")
    if plain.startswith(b"<"):
        return FORMATS["n42"]
    if plain.startswith(b"$"):
        return FORMATS["spe"]
    if plain and not re.search(rb"[\x00-\x08\x0e-\x1f]", plain):
        return FORMATS["csv"]
    raise FormatError("no spectrum in a known format" if data else "the file is empty")


def read(path: Path, format: Optional[str] = None) -> List[Measurement]:
    """The measurements in a file, at least one.

    format: one of FORMATS; without it the content decides. Raises FormatError with the reason in
    one line, OSError where the file cannot be read.
    """
    with reading(path):
        data = parsing.read_file(os.fspath(path))
        chosen = FORMATS[format] if format is not None else identify(data)
        return chosen.read(data)


def write(
    path: Path, measurement: Measurement, format: Optional[str] = None, replace: bool = False
) -> List[str]:
    """Makes a file of a measurement; returns what the format could not carry, a line for each.

    format: one of FORMATS; without it the suffix of the name decides. The file appears complete
    or not at all. Raises FormatError for what no file can hold, FileExistsError where the name is
    taken and is not to be replaced, and other OSErrors.
    """
    chosen = FORMATS[format] if format is not None else by_suffix(path)
    if chosen is None:
        raise FormatError(f"{os.fspath(path)}: the name says no known format")
    text, notes = chosen.write(checked(measurement))
    write_text(path, text, replace)
    return notes
