"""A command of the command line, and the arguments that several commands have."""

import argparse
import math
from typing import Callable, NamedTuple, Tuple

from ..formats import FORMATS
from ..nuclides import builtin_library

DONE, PARTLY, FAILED = 0, 1, 2
"""Exit codes: done; done, but something was found or failed on the way; not done."""

FORMAT_NAMES = tuple(FORMATS)
WRITABLE_NAMES = tuple(name for name, format in FORMATS.items() if format.write is not None)
Arguments = argparse.Namespace
Parser = argparse.ArgumentParser


class CommandError(Exception):
    """Arguments that do not fit together, as one line."""


class Command(NamedTuple):
    """A command: its name, its function, its help and its arguments."""

    name: str
    run: Callable[[Arguments], int]  # returns the exit code
    help: str
    add_arguments: Callable[[Parser], None]
    examples: str = ""


def add_output(command: Parser, text: str, metavar: str = "FILE") -> None:
    command.add_argument("--output", "-o", metavar=metavar, default="", help=text)
    add_force(command)


def add_force(command: Parser) -> None:
    command.add_argument("--force", action="store_true", help="Replace existing files.")


def add_json(command: Parser) -> None:
    command.add_argument("--json", action="store_true", help="Print JSON instead of text.")


def add_recursive(command: Parser) -> None:
    command.add_argument(
        "--recursive", "-r", action="store_true",
        help="Use the files in subdirectories of a directory too.",
    )  # fmt: skip


def add_total_efficiency(command: Parser) -> None:
    command.add_argument(
        "--total-efficiency", metavar="CSV", default="",
        help="Correct true coincidence summing with this total efficiency, a table with the columns"
        " energy (keV) and efficiency (default: that of the file, if any).",
    )  # fmt: skip


def number_up_to(most: int) -> Callable[[str], int]:
    """Return the type of an argument that is a whole number from 1 to a maximum."""

    def number(text: str) -> int:
        try:
            value = int(text)
        except ValueError:
            value = 0
        if not 1 <= value <= most:
            raise argparse.ArgumentTypeError(f"{text!r} is not a whole number from 1 to {most}")
        return value

    return number


def number(text: str) -> float:
    """Return the value of an argument that is a number."""
    try:
        return float(text)
    except ValueError:
        raise argparse.ArgumentTypeError(f"{text!r} is not a number") from None


def positive_number(text: str) -> float:
    """Return the value of an argument that is a finite number above 0."""
    value = number(text)
    if not 0 < value < math.inf:
        raise argparse.ArgumentTypeError(f"{text!r} is not a number above 0")
    return value


def group_names(text: str) -> Tuple[str, ...]:
    """Return the value of an argument that lists groups of the built-in nuclide library."""
    groups = tuple(name.strip() for name in text.split(","))
    try:
        builtin_library.check_groups(groups)
    except ValueError as error:
        raise argparse.ArgumentTypeError(str(error)) from None
    return groups


def add_groups(command: Parser) -> None:
    command.add_argument(
        "--groups", metavar="NAMES", type=group_names, default=(),
        help="Restrict the built-in nuclide library to these groups, separated by commas:"
        f" {', '.join(builtin_library.GROUPS)}.",
    )  # fmt: skip
