"""The commands `check` and `salvage`: find damage, and copy the undamaged data."""

from typing import Dict

from ...errors import QarError
from ...transfer import salvage as salvaging
from ..command import (
    DONE,
    PARTLY,
    Arguments,
    Command,
    CommandError,
    Parser,
    add_force,
    add_json,
    add_recursive,
)
from ..inputs import files_of
from ..output import failure_text, inform, print_json, print_lines, print_path, warn


def check(arguments: Arguments) -> int:
    files = files_of(arguments.files, arguments.recursive, (".qar",))
    if not files:
        raise CommandError(f"no QAR file in {', '.join(map(repr, arguments.files))}")
    failures: Dict[str, str] = {}
    for path in files:
        try:
            salvaging.verify(path)
            if not arguments.json:
                print_lines([f"{path}: sound"])
        except QarError as error:
            failures[path] = failure_text(error)
            if not arguments.json:
                warn(path, [failures[path]])
    if arguments.json:
        print_json([{"file": path, "failure": failures.get(path)} for path in files])
    if len(files) > 1:
        inform(f"{len(files)} files: {len(files) - len(failures)} sound, {len(failures)} not")
    return PARTLY if failures else DONE


def salvage(arguments: Arguments) -> int:
    result = salvaging.salvage(arguments.file, arguments.output, arguments.force)
    if arguments.json:
        print_json(result)
    else:
        print_lines(f"{name}: {number:,}" for name, number in result.copied.items())
        print_path(arguments.output)
        warn(arguments.file, [f"lost: {text}" for text in result.lost])
    return PARTLY if result.lost else DONE


def _add_check_arguments(command: Parser) -> None:
    command.add_argument(
        "files", metavar="FILE", nargs="+", help="A QAR file, or a directory of QAR files."
    )
    add_recursive(command)
    add_json(command)


def _add_salvage_arguments(command: Parser) -> None:
    command.add_argument("file", metavar="FILE", help="The damaged QAR file, which is only read.")
    command.add_argument("output", metavar="NEW", help="The QAR file to create.")
    add_force(command)
    add_json(command)


CHECK = Command("check", check, "Read everything in files and report damage.", _add_check_arguments)
SALVAGE = Command(
    "salvage", salvage, "Copy the sound parts of a damaged file.", _add_salvage_arguments
)
