"""The commands and options of the argument parser as tables, for completion and the manual page."""

import argparse
from typing import Any, List, NamedTuple, Tuple

_PATHS = {"CSV", "DIRECTORY", "FILE", "HTML", "JSON", "NEW", "OTHER", "PICTURE", "QAR"}


class Argument(NamedTuple):
    """An option, or an argument without a name."""

    names: Tuple[str, ...]  # such as --output and -o; empty: an argument without a name
    value: str  # the name of its value in the help; empty: an option without a value
    choices: Tuple[str, ...]  # the possible values; empty: any
    help: str
    is_repeated: bool

    @property
    def is_path(self) -> bool:
        return self.value in _PATHS and not self.choices


class CommandHelp(NamedTuple):
    """A command, or the program itself, with the arguments that its help describes."""

    name: str
    help: str
    usage: str  # without "usage:", on one line
    arguments: Tuple[Argument, ...]
    epilogue: str

    @property
    def options(self) -> List[Argument]:
        return [argument for argument in self.arguments if argument.names]

    @property
    def operands(self) -> List[Argument]:
        return [argument for argument in self.arguments if not argument.names]


def program(parser: argparse.ArgumentParser) -> CommandHelp:
    """Return the options of the program itself."""
    return _help_of("", parser)


def commands(parser: argparse.ArgumentParser) -> List[CommandHelp]:
    """Return the commands of the program."""
    return [
        _help_of(name, command)
        for action in parser._actions
        if isinstance(action, argparse._SubParsersAction)
        for name, command in action.choices.items()
    ]


def _help_of(name: str, parser: argparse.ArgumentParser) -> CommandHelp:
    arguments = tuple(
        _argument(action, parser)
        for action in parser._actions
        if not isinstance(action, argparse._SubParsersAction) and action.help != argparse.SUPPRESS
    )
    usage = " ".join(parser.format_usage().split())[len("usage: ") :]
    return CommandHelp(name, parser.description or "", usage, arguments, parser.epilog or "")


def _argument(action: Any, parser: argparse.ArgumentParser) -> Argument:
    return Argument(
        names=tuple(action.option_strings),
        value="" if action.nargs == 0 else action.metavar or action.dest.upper(),
        choices=tuple(map(str, action.choices or ())),
        help=parser._get_formatter()._expand_help(action),
        is_repeated=action.nargs in ("+", "*"),
    )
