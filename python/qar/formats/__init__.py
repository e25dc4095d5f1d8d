"""Measurements in files: QAR and the formats of instruments and other programs.

    measurement = qar.formats.read("portal.n42")[0]
    notes = qar.formats.write("portal.qar", measurement)

A note is one line about data that a format cannot store unchanged.
"""

import os
import re
from typing import Any, Callable, List, NamedTuple, Optional, Tuple

from ..atomic_files import Path, new_file
from ..regular_files import open_regular
from . import (
    chn,
    columns,
    iec,
    keyed_columns,
    mca_text,
    n42,
    n42_writer,
    parsing,
    pcf,
    qar_file,
    result_xml,
    spc,
    spe,
)
from .measurement import (
    FormatError,
    Measurement,
    checked,
    file_names,
    foreground,
    reading,
    with_name,
)
from .qar_file import measurement_of

__all__ = [
    "FORMATS",
    "Format",
    "FormatError",
    "Measurement",
    "file_names",
    "foreground",
    "identify",
    "measurement_of",
    "read",
    "with_name",
    "write",
]


class Format(NamedTuple):
    """A file format and its functions.

    recognises: True for a file, from its first bytes and its suffix in lower case. read: the
    measurements in a file. write: creates a file and returns notes; None if files are read only.
    """

    name: str
    title: str
    suffixes: Tuple[str, ...]  # new files get the first one
    recognises: Callable[[bytes, str], bool]
    read: Callable[[str], List[Measurement]]
    write: Optional[Callable[[Measurement, str], List[str]]] = None


def _from_bytes(read: Callable[[bytes], List[Measurement]]) -> Callable[[str], List[Measurement]]:
    """Return a function that reads a file, from one that reads its content."""
    return lambda path: read(parsing.read_file(path))


def _as_text(
    text_of: Callable[[Measurement], Tuple[str, List[str]]]
) -> Callable[[Measurement, str], List[str]]:
    """Return a function that creates a file, from one that returns its text and notes."""

    def write(measurement: Measurement, path: str) -> List[str]:
        text, notes = text_of(checked(measurement))
        with open(path, "xb") as file:
            file.write(text.encode("utf-8"))
        return qar_file.left_out(measurement) + notes

    return write


def _by_content(matches: Callable[[bytes], bool]) -> Callable[[bytes, str], bool]:
    """Return a function that recognises a file, from one that recognises its first bytes."""
    return lambda start, suffix: matches(start)


def _read_only(name: str, title: str, suffix: str, reader: Any) -> Format:
    """Return the format of a module with the functions `matches` and `read`."""
    return Format(
        name, title, (suffix,), _by_content(reader.matches), _from_bytes(reader.read), None
    )


def _is_xml(start: bytes, suffix: str) -> bool:
    is_utf_16 = start[:2] in (b"\xff\xfe", b"\xfe\xff")  # columns in UTF-16 are not read
    return is_utf_16 or _stripped(start).startswith(b"<")


def _is_spe(start: bytes, suffix: str) -> bool:
    return _stripped(start).startswith(b"$")


def _is_text(start: bytes, suffix: str) -> bool:
    text = _stripped(start)
    return bool(text) and not re.search(rb"[\x00-\x08\x0e-\x1f]", text)


def _stripped(start: bytes) -> bytes:
    return start.lstrip(b"\xef\xbb\xbf \t\r\n")


_START_BYTES = 8192

# The first format that recognises a file reads it.
FORMATS = {
    format.name: format
    for format in (
        Format(
            "qar",
            "measurement of the suite",
            (qar_file.SUFFIX,),
            qar_file.recognises,
            qar_file.read,
            qar_file.write,
        ),
        _read_only("mca", "pocket MCA text", ".mca", mca_text),
        _read_only("xml", "result file of a hand-held spectrometer", ".xml", result_xml),
        _read_only("iec", "IEC 61455", ".iec", iec),
        _read_only("keys", "keys, then channel, energy, counts", ".tsv", keyed_columns),
        Format(
            "spe",
            "IAEA ASCII spectrum",
            (".spe",),
            _is_spe,
            _from_bytes(spe.read),
            _as_text(spe.write),
        ),
        Format(
            "n42",
            "ANSI/IEEE N42.42",
            (".n42",),
            _is_xml,
            _from_bytes(n42.read),
            _as_text(n42_writer.write),
        ),
        Format(
            "csv",
            "columns with commas",
            (".csv",),
            _is_text,
            _from_bytes(columns.read),
            _as_text(columns.write_csv),
        ),
        Format(
            "text",
            "columns with tabs",
            (".txt",),
            _is_text,
            _from_bytes(columns.read),
            _as_text(columns.write_text),
        ),
        _read_only("chn", "binary integer spectrum", ".chn", chn),
        _read_only("spc", "binary records of 128 bytes", ".spc", spc),
        _read_only("pcf", "binary records of 256 bytes", ".pcf", pcf),
    )
}

SUFFIXES = {suffix: format for format in FORMATS.values() for suffix in format.suffixes}


def writable_suffixes() -> List[str]:
    """Return the suffixes of the formats that can be written."""
    return [suffix for suffix, format in SUFFIXES.items() if format.write is not None]


def _suffix(path: Path) -> str:
    return os.path.splitext(os.fspath(path))[1].lower()


def identify(path: Path) -> Format:
    """Return the format of a file. Raises FormatError if it is not known, OSError."""
    suffix = _suffix(path)
    for format in FORMATS.values():
        if format.recognises(b"", suffix):  # the suffix is enough
            return format
    with open_regular(path) as file:
        start = file.read(_START_BYTES)
    for format in FORMATS.values():
        if format.recognises(start, suffix):
            return format
    raise FormatError("no spectrum in a known format" if start else "the file is empty")


def read(path: Path, format: Optional[str] = None) -> List[Measurement]:
    """Return the measurements in a file, at least one.

    format: a key of FORMATS (default: detect from the content). Raises FormatError with the
    reason in one line; QarError for a QAR file; OSError if the file cannot be read.
    """
    with reading(path):
        chosen = FORMATS[format] if format else identify(path)
        return chosen.read(os.fspath(path))


def write(
    path: Path, measurement: Measurement, format: Optional[str] = None, replace: bool = False
) -> List[str]:
    """Create a file of a measurement; return notes of everything that was changed or left out.

    format: a key of FORMATS (default: from the suffix of `path`). The file appears complete or
    not at all. Raises FormatError if the format cannot store the spectrum, FileExistsError if the
    file exists and `replace` is false, QarError for a QAR file, and other OSErrors.
    """
    chosen = FORMATS[format] if format else SUFFIXES.get(_suffix(path))
    if chosen is None:
        raise FormatError(
            f"{os.fspath(path)}: unknown file extension '{_suffix(path)}';"
            f" expected {', '.join(writable_suffixes())}"
        )
    if chosen.write is None:
        raise FormatError(
            f"{os.fspath(path)}: files of the format '{chosen.name}' can only be read;"
            f" expected {', '.join(writable_suffixes())}"
        )
    with new_file(path, replace) as temporary:
        return chosen.write(measurement, temporary)
