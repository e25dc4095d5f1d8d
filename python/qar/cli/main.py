"""The command line: `qar` and `python -m qar`.

Exit codes: 0 done; 1 done, but something was found or failed on the way (a damaged file, one file
of many, a value that could not be stored); 2 not done, with the reason in one line on standard
error. A signal ends the process as usual, after unfinished files have been deleted.
"""

import argparse
import logging
import os
import sys
import textwrap
from typing import Any, List, NoReturn, Optional

from ..errors import QarError
from ..formats import FormatError
from ..version import __version__
from .command import FAILED, CommandError
from .commands import COMMANDS
from .output import failure_text, print_failure
from .termination import Terminated, raised_signals

_INTERRUPTED = 130
_EPILOG = (
    "Exit codes: 0 done; 1 done, but something was found or failed on the way; 2 not done."
    " Results are printed to standard output, warnings and errors to standard error, one per line."
)


class _Parser(argparse.ArgumentParser):
    """Reports wrong arguments in one line."""

    def __init__(self, **options: Any) -> None:
        super().__init__(add_help=False, **options)
        self.add_argument("-h", "--help", action="help", help="Print this help.")

    def error(self, message: str) -> NoReturn:
        self.exit(FAILED, f"{self.prog}: {message}; see {self.prog} --help\n")


def main(arguments: Optional[List[str]] = None) -> int:
    """Run a command and return the exit code. arguments: without the name of the program."""
    _print_any_name()
    try:
        with raised_signals():
            return _run(arguments)
    except Terminated as signal:
        signal.end_process()
    except BrokenPipeError:  # the reader of the output has closed it
        os.dup2(os.open(os.devnull, os.O_WRONLY), 1)
    except KeyboardInterrupt:
        print("qar: interrupted", file=sys.stderr)
        return _INTERRUPTED
    except (QarError, FormatError, CommandError, ImportError, OSError) as error:
        print_failure(failure_text(error, named=True))
    except MemoryError:
        print_failure("out of memory")
    return FAILED


def _run(arguments: Optional[List[str]]) -> int:
    parsed = parser().parse_args(arguments)
    if parsed.verbose:
        logging.basicConfig(level=logging.INFO, format="%(name)s: %(message)s")
    code: int = parsed.run(parsed)
    sys.stdout.flush()
    return code


def _print_any_name() -> None:
    """Escape the characters of file names that the encoding of the terminal lacks."""
    for stream in (sys.stdout, sys.stderr):
        reconfigure: Any = getattr(stream, "reconfigure", None)  # from Python 3.7 on
        if reconfigure is not None:
            reconfigure(errors="backslashreplace")


def parser() -> argparse.ArgumentParser:
    """Return the parser of all commands."""
    result = _Parser(prog="qar", description="Work with QAR files.", epilog=_EPILOG)
    result.add_argument(
        "--version", action="version", version=f"qar {__version__}", help="Print the version."
    )
    result.add_argument(
        "--verbose", action="store_true", help="Report the files that are opened and closed."
    )
    result.set_defaults(parser=result)
    subparsers = result.add_subparsers(dest="command", metavar="COMMAND", parser_class=_Parser)
    subparsers.required = True
    for command in COMMANDS:
        added = subparsers.add_parser(
            command.name,
            help=command.help,
            description=command.help,
            epilog="\n".join(filter(None, (command.examples, textwrap.fill(_EPILOG, 79)))),
            formatter_class=argparse.RawDescriptionHelpFormatter,
        )
        added.set_defaults(run=command.run)
        command.add_arguments(added)
    return result
