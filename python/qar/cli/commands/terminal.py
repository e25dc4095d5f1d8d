"""The commands `completion` and `manual`: files for shells and for `man`."""

from ...version import __version__
from .. import completion, manual
from ..command import DONE, Arguments, Command, Parser
from ..output import print_lines


def complete(arguments: Arguments) -> int:
    for line in completion.SHELLS[arguments.shell](arguments.parser):
        print(line)
    return DONE


def print_manual(arguments: Arguments) -> int:
    print_lines(manual.page(arguments.parser, __version__))
    return DONE


def _add_shell(command: Parser) -> None:
    command.add_argument(
        "shell",
        metavar="SHELL",
        choices=tuple(completion.SHELLS),
        help="The shell: bash, zsh or fish.",
    )


COMPLETION = Command(
    "completion",
    complete,
    "Print the completion of the command line for a shell.",
    _add_shell,
    """\
examples:
  source <(qar completion bash)                   complete in this bash
  qar completion fish > ~/.config/fish/completions/qar.fish
                                                  complete in every fish
""",
)
MANUAL = Command(
    "manual",
    print_manual,
    "Print the manual page for man.",
    lambda command: None,
    """\
examples:
  qar manual | man -l -                           read it
""",
)
