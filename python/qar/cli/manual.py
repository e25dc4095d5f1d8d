"""The manual page of the program, from the help of its commands."""

import argparse
import re
from typing import Iterator

from . import help_tables
from .help_tables import Argument, CommandHelp


def page(parser: argparse.ArgumentParser, version: str) -> Iterator[str]:
    """Yield the lines of the page in roff, for `man`."""
    program = help_tables.program(parser)
    yield f'.TH QAR 1 "" "qar {_plain(version)}" "User Commands"'
    yield from (".SH NAME", f"qar \\- {_plain(program.help.rstrip('.'))}")
    yield from (".SH SYNOPSIS", ".B qar", f"{_plain(program.usage.partition(' ')[2])}")
    yield ".SH OPTIONS"
    for option in program.options:
        yield from _argument(option)
    yield ".SH COMMANDS"
    for command in help_tables.commands(parser):
        yield from _command(command)
    yield from (".SH EXIT STATUS", _line(program.epilogue))
    yield from (".SH ENVIRONMENT", ".TP", ".B NO_COLOR", "If it is not empty, nothing is coloured.")
    yield from (".TP", ".B TMPDIR", "The directory of temporary files.")


def _command(command: CommandHelp) -> Iterator[str]:
    yield from (f".SS {command.name}", _line(command.help), ".PP", _line(command.usage))
    for argument in (*command.operands, *command.options):
        if "--help" not in argument.names:
            yield from _argument(argument)
    examples = re.match(r"examples:\n((?:  .*\n?)+)", command.epilogue)
    if examples:
        yield from (".PP", "Examples:", ".PP", ".nf")
        yield from map(_line, examples.group(1).rstrip("\n").split("\n"))
        yield ".fi"


def _argument(argument: Argument) -> Iterator[str]:
    value = f" \\fI{_plain(argument.value)}\\fR" if argument.value else ""
    names = ", ".join(f"\\fB{_plain(name)}\\fR" for name in argument.names)
    yield from (".TP", f"{names}{value}".strip())
    yield _line(argument.help)


def _line(text: str) -> str:
    """Return a line of text, which must not begin like a request."""
    plain = _plain(text)
    return "\\&" + plain if plain[:1] in (".", "'") else plain


def _plain(text: str) -> str:
    return text.replace("\\", "\\e").replace("-", "\\-")
