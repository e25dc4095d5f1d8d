"""Input files of the commands: of any format, from standard input, or in a directory."""

import contextlib
import os
import sys
from typing import Dict, Iterable, Iterator, List, Sequence, Tuple

from .. import formats
from ..atomic_files import Path
from ..formats import FormatError, Measurement
from ..formats.parsing import MAX_BYTES
from ..scratch import scratch_folder
from ..source import DataSource
from ..transfer.any_file import open_copy, open_measurement
from .command import Arguments, CommandError, Parser
from .output import STANDARD_INPUT, shown_path, warn
from .reading import add_reading, reading_of

_AMBIGUOUS = (".csv", ".tsv", ".txt", ".xml")  # may well be no spectra
SUFFIXES = tuple(suffix for suffix in formats.SUFFIXES if suffix not in _AMBIGUOUS)
"""Suffixes of the files that are used in a directory; other files must be named."""

_MAX_NAMES = 20  # in a message


# ---- One file ----------------------------------------------------------------------------------


@contextlib.contextmanager
def local_file(path: str) -> Iterator[str]:
    """Yield the path of an input; standard input is copied to a temporary file."""
    if path != STANDARD_INPUT:
        yield path
        return
    data = sys.stdin.buffer.read(MAX_BYTES + 1)
    if len(data) > MAX_BYTES:
        raise FormatError(f"standard input: more than {MAX_BYTES >> 20} MiB")
    with scratch_folder(len(data)) as folder:
        copy = os.path.join(folder, "standard-input")
        with open(copy, "xb") as file:
            file.write(data)
        yield copy


@contextlib.contextmanager
def opened(arguments: Arguments, copy: bool = False) -> Iterator[DataSource]:
    """Yield the data source in the input file of a command, of any format.

    A spectrum in another format is converted to a temporary QAR file; losses are reported.
    copy: yield a temporary copy in any case, which can be analysed.
    """
    path = arguments.file
    with local_file(path) as local:
        measurements = reading_of(arguments).read(local)
        measurement = one(formats.with_name(measurements, arguments.spectrum, path), path)
        opening = open_copy(measurement) if copy else open_measurement(measurement)
        with opening as (source, notes):
            source.path = shown_path(path)
            warn(path, notes)
            yield source


def one(measurements: List[Measurement], path: str, option: str = "--spectrum") -> Measurement:
    """Return the only spectrum. Raises FormatError if there are several.

    option: selects one of them by its name.
    """
    if len(measurements) > 1:
        names = ", ".join(measurement.name for measurement in measurements[:_MAX_NAMES])
        more = ", ..." if len(measurements) > _MAX_NAMES else ""
        raise FormatError(
            f"{shown_path(path)}: {len(measurements)} spectra; select one with {option}:"
            f" {names}{more}"
        )
    return measurements[0]


def beside(path: str, suffix: str) -> str:
    """Return the path with another suffix."""
    return os.path.splitext(path)[0] + suffix


def add_input(command: Parser) -> None:
    command.add_argument(
        "file", metavar="FILE", help="A file of any format, or - for standard input."
    )
    command.add_argument(
        "--spectrum", metavar="NAME", default="",
        help="Use the spectrum NAME if the file has several.",
    )  # fmt: skip
    add_reading(command)


def output_of(arguments: Arguments, suffix: str) -> str:
    """Return the path of an output: the given one, or that of the input with another suffix."""
    if not arguments.output and arguments.file == STANDARD_INPUT:
        raise CommandError("expected --output FILE, because standard input has no file name")
    return arguments.output or beside(arguments.file, suffix)


# ---- Directories -------------------------------------------------------------------------------


def files_of(
    paths: Iterable[Path], recursive: bool = False, suffixes: Sequence[str] = SUFFIXES
) -> List[str]:
    """Return the files that the paths name, each once.

    A directory means its files with one of the suffixes, by name; `recursive` adds those of
    its directories. Hidden files are left out.
    """
    result: Dict[str, None] = {}
    for path in [os.fspath(path) for path in paths]:
        if os.path.isdir(path):
            result.update(dict.fromkeys(_inside(path, recursive, tuple(suffixes))))
        else:
            result[path] = None
    return list(result)


def _inside(path: str, recursive: bool, suffixes: Tuple[str, ...]) -> Iterator[str]:
    def fail(error: OSError) -> None:
        raise error

    for folder, folders, names in os.walk(path, onerror=fail):
        folders[:] = sorted(name for name in folders if name[0] != ".") if recursive else []
        for name in sorted(names):
            if name.lower().endswith(suffixes) and name[0] != ".":
                yield os.path.join(folder, name)
