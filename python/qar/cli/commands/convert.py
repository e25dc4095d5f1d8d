"""The command `convert`: from any format to any format."""

import os
import sys
from typing import Dict, Iterator, List, Tuple

from ... import formats
from ...display.tables import counted
from ...errors import QarError
from ...formats import FORMATS, FormatError, Measurement
from ...scratch import scratch_folder
from ..command import (
    DONE,
    PARTLY,
    WRITABLE_NAMES,
    Arguments,
    Command,
    CommandError,
    Parser,
    add_force,
    add_recursive,
)
from ..inputs import beside, files_of, local_file
from ..output import STANDARD_INPUT, failure_of, inform, print_path, warn
from ..output_folder import output_folder
from ..reading import add_reading, reading_of

STANDARD_OUTPUT = "-"


def convert(arguments: Arguments) -> int:
    tasks = list(_tasks(arguments))
    if not tasks:
        raise CommandError(f"no file to convert in {', '.join(map(repr, arguments.files))}")
    failed = 0
    with output_folder(arguments.into):
        for path, target in tasks:
            try:
                _convert_one(path, target, arguments)
            except (QarError, FormatError, OSError) as error:
                if len(tasks) == 1:
                    raise
                warn(path, [failure_of(path, error)])
                failed += 1
    if len(tasks) > 1:
        inform(f"{len(tasks)} files: {len(tasks) - failed} converted, {failed} failed")
    return PARTLY if failed else DONE


def _tasks(arguments: Arguments) -> Iterator[Tuple[str, str]]:
    """Yield each input with its output."""
    if not arguments.to and not arguments.into:
        if len(arguments.files) != 2:
            paths = counted(len(arguments.files), "path")
            raise CommandError(f"{paths}; expected FILE OUTPUT, or FILES with --to FORMAT")
        yield arguments.files[0], arguments.files[1]
        return
    if arguments.files[1:] == [STANDARD_OUTPUT] and not arguments.into:
        yield arguments.files[0], STANDARD_OUTPUT
        return
    to = arguments.to or "qar"
    suffix = FORMATS[to].suffixes[0]
    targets: Dict[str, str] = {}
    for path in _inputs(arguments, suffix):
        target = beside("standard-input" if path == STANDARD_INPUT else path, suffix)
        if arguments.into:
            target = os.path.join(arguments.into, os.path.basename(target))
        if target in targets:
            raise CommandError(f"{targets[target]} and {path} would both become {target}")
        targets[target] = path
        yield path, target


def _inputs(arguments: Arguments, suffix: str) -> List[str]:
    """Return the input files. Files of a directory that already have the format are left out."""
    result = []
    for path in arguments.files:
        files = files_of([path], arguments.recursive)
        if os.path.isdir(path) and not arguments.into:
            files = [file for file in files if not file.lower().endswith(suffix)]
        result += files
    return list(dict.fromkeys(result))


def _convert_one(path: str, target: str, arguments: Arguments) -> None:
    with local_file(path) as local:
        measurements = reading_of(arguments).read(local)
        measurements = formats.with_name(measurements, arguments.spectrum, path)
        if target == STANDARD_OUTPUT:
            _print_content(measurements, path, arguments)
            return
        for measurement, name in formats.file_names(measurements, target):
            notes = formats.write(name, measurement, arguments.to, arguments.force)
            warn(name, [*measurement.notes, *notes])
            print_path(name)


def _print_content(measurements: List[Measurement], path: str, arguments: Arguments) -> None:
    """Write the converted file to standard output."""
    if len(measurements) > 1:
        names = ", ".join(measurement.name for measurement in measurements[:20])
        raise CommandError(f"{path} has several spectra; select one with --spectrum: {names}")
    if not arguments.to:
        raise CommandError("expected --to FORMAT, because standard output has no file name")
    if arguments.to == "qar" and sys.stdout.isatty():
        raise CommandError("a QAR file is not text; redirect standard output to a file or a pipe")
    with scratch_folder() as folder:
        copy = os.path.join(folder, "output")
        notes = formats.write(copy, measurements[0], arguments.to)
        warn(path, [*measurements[0].notes, *notes])
        with open(copy, "rb") as file:
            sys.stdout.flush()
            sys.stdout.buffer.write(file.read())


def _add_arguments(command: Parser) -> None:
    command.usage = (
        "qar convert [options] FILE OUTPUT\n       qar convert [options] --to FORMAT FILE..."
    )
    command.add_argument(
        "files", metavar="FILE", nargs="+",
        help="The input, then the output, whose suffix decides its format; with --to or --into all"
        " are inputs, also directories. - means standard input, or as OUTPUT standard output.",
    )  # fmt: skip
    command.add_argument(
        "--to", metavar="FORMAT", choices=WRITABLE_NAMES, default="",
        help=f"Convert each FILE to this format: {', '.join(WRITABLE_NAMES)}.",
    )  # fmt: skip
    command.add_argument(
        "--into", metavar="DIRECTORY", default="",
        help="Write the converted files into this directory (default: beside the inputs).",
    )  # fmt: skip
    add_recursive(command)
    command.add_argument(
        "--spectrum", metavar="NAME", default="",
        help="Convert only the spectrum NAME if a file has several.",
    )  # fmt: skip
    add_reading(command)
    add_force(command)


COMMAND = Command(
    "convert",
    convert,
    "Convert between QAR and the exchange formats.",
    _add_arguments,
    """\
examples:
  qar convert sample.n42 sample.qar               one file; the suffix decides the format
  qar convert --to csv spectra --into tables      all files of a directory
  qar convert - - --from spe --to n42 < a.spe     from standard input to standard output
""",
)
