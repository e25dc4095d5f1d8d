"""The command line: `qar` and `python -m qar`.

Exit codes: 0 done; 1 done, but something was found or failed on the way (a damaged file, one file
of many, a value that could not be stored); 2 not done, and one line on standard error says why.
"""

import argparse
import logging
import os
import sys
from typing import Any, Callable, Dict, List, NoReturn, Optional, Tuple

from .. import dictionary
from ..errors import QarError
from ..formats import FORMATS, FormatError
from . import commands
from .commands import FAILED
from .file_analysis import failure_text

_INTERRUPTED = 130
_EPILOG = (
    "Exit codes: 0 done; 1 done, but something was found or failed on the way; 2 not done. What a"
    " person should know, and what went wrong, is on standard error, a line for each."
)
_FORMATS = tuple(FORMATS)


class _Parser(argparse.ArgumentParser):
    """Says what is wrong with the arguments in one line."""

    def error(self, message: str) -> NoReturn:
        self.exit(FAILED, f"{self.prog}: {message}; see {self.prog} --help\n")


def main(arguments: Optional[List[str]] = None) -> int:
    """Runs a command; returns the exit code. arguments: without the program's name."""
    _print_any_name()
    try:
        parsed = parser().parse_args(arguments)
        if parsed.verbose:
            logging.basicConfig(level=logging.INFO, format="%(name)s: %(message)s")
        code: int = parsed.run(parsed)
        sys.stdout.flush()
        return code
    except BrokenPipeError:  # the reader of the output has seen enough
        os.dup2(os.open(os.devnull, os.O_WRONLY), 1)
        return FAILED
    except KeyboardInterrupt:
        print("qar: interrupted", file=sys.stderr)
        return _INTERRUPTED
    except (QarError, FormatError, ImportError, OSError) as error:
        print(f"qar: {failure_text(error, named=True)}", file=sys.stderr)
    except MemoryError:
        print("qar: out of memory", file=sys.stderr)
    return FAILED


def _print_any_name() -> None:
    """Lets names of files through that the terminal's encoding has not."""
    for stream in (sys.stdout, sys.stderr):
        reconfigure: Any = getattr(stream, "reconfigure", None)  # from Python 3.7 on
        if reconfigure is not None:
            reconfigure(errors="backslashreplace")


def parser() -> argparse.ArgumentParser:
    found = _Parser(prog="qar", description="Work with QAR files.", epilog=_EPILOG)
    found.add_argument("--verbose", action="store_true", help="tell what is opened and closed")
    subparsers = found.add_subparsers(dest="command", metavar="COMMAND", parser_class=_Parser)
    subparsers.required = True
    for name, (run, text, add) in _COMMANDS.items():
        command = subparsers.add_parser(name, help=text, description=text, epilog=_EPILOG)
        command.set_defaults(run=run)
        add(command)
    return found


# ---- The arguments of each command -------------------------------------------------------------

_Add = Callable[[argparse.ArgumentParser], None]


def _input(command: argparse.ArgumentParser) -> None:
    command.add_argument("file", metavar="FILE", help="a QAR, .spe, .n42, .csv or .txt file")
    _reading(command)


def _reading(command: argparse.ArgumentParser) -> None:
    command.add_argument(
        "--from", dest="from_format", metavar="FORMAT", choices=_FORMATS, default="",
        help=f"the format of the input, else its content tells: {', '.join(_FORMATS)}",
    )  # fmt: skip
    command.add_argument(
        "--spectrum", metavar="NAME", default="", help="of several spectra in a file the one"
    )


def _output(command: argparse.ArgumentParser, what: str, metavar: str = "FILE") -> None:
    command.add_argument("--output", "-o", metavar=metavar, default="", help=what)
    _force(command)


def _force(command: argparse.ArgumentParser) -> None:
    command.add_argument("--force", action="store_true", help="replace files that are there")


def _json(command: argparse.ArgumentParser) -> None:
    command.add_argument("--json", action="store_true", help="print JSON for a program to read")


def _show(command: argparse.ArgumentParser) -> None:
    _input(command)
    _json(command)


def _plot(command: argparse.ArgumentParser) -> None:
    _input(command)
    _output(command, "the picture; FILE with .png without it", "PNG")


def _report(command: argparse.ArgumentParser) -> None:
    _input(command)
    _output(command, "the report; FILE with .html without it", "HTML")


def _convert(command: argparse.ArgumentParser) -> None:
    command.usage = (
        "qar convert [options] FILE OUTPUT\n       qar convert [options] --to FORMAT FILE..."
    )
    command.add_argument("files", metavar="FILE", nargs="+", help="the input and the output, whose")
    command.add_argument(
        "--to", metavar="FORMAT", choices=_FORMATS, default="",
        help=f"makes each FILE one of this format: {', '.join(_FORMATS)}",
    )  # fmt: skip
    command.add_argument("--into", metavar="FOLDER", default="", help="where these files go")
    _reading(command)
    _force(command)


def _dump(command: argparse.ArgumentParser) -> None:
    command.add_argument("file", metavar="FILE", nargs="?", default="", help="a QAR file")
    _output(command, "where the JSON goes, else to standard output", "JSON")
    command.add_argument(
        "--dictionary", metavar="JSON", default="",
        help="writes the parameters that the dictionary in use has and the embedded one has not",
    )  # fmt: skip
    command.add_argument(
        "--numbers", metavar="N", type=_number(0xFFFF), default=dictionary.HIGHEST_NUMBER,
        help="look for parameters up to this number within a class (%(default)s)",
    )  # fmt: skip


def _load(command: argparse.ArgumentParser) -> None:
    command.add_argument("file", metavar="JSON", help="what dump made")
    command.add_argument("output", metavar="FILE", help="the QAR file to make")
    _force(command)


def _check(command: argparse.ArgumentParser) -> None:
    command.add_argument("files", metavar="FILE", nargs="+", help="a QAR file")
    _json(command)


def _salvage(command: argparse.ArgumentParser) -> None:
    command.add_argument("file", metavar="FILE", help="the damaged QAR file; it is only read")
    command.add_argument("output", metavar="NEW", help="the QAR file to make of what is sound")
    _force(command)
    _json(command)


def _calibrate(command: argparse.ArgumentParser) -> None:
    command.add_argument("file", metavar="FILE", help="the QAR file; its calibration is replaced")
    command.add_argument(
        "--line", metavar="CHANNEL=ENERGY", type=_calibration_line, action="append", required=True,
        help="a known line: the channel, counted from 1, near its peak and its energy in keV",
    )  # fmt: skip
    command.add_argument(
        "--degree", metavar="N", type=_number(5), default=1,
        help="of the energy polynomial (%(default)s)",
    )  # fmt: skip
    _json(command)


def _analyse(command: argparse.ArgumentParser) -> None:
    command.add_argument("files", metavar="FILE", nargs="+", help="a file of any format, a folder")
    command.add_argument(
        "--library", "-l", metavar="CSV", default="",
        help="the nuclide library, else the file's own; see docs/command-line.md",
    )  # fmt: skip
    _output(command, "one table of all results, a line for each peak and nuclide", "CSV")
    command.add_argument(
        "--report", metavar="FOLDER", default="", help="where a report of each goes"
    )
    command.add_argument(
        "--into", metavar="FOLDER", default="",
        help="where the analysed QAR files go; without it results go into the QAR files themselves",
    )  # fmt: skip
    command.add_argument(
        "--template", metavar="FILE", default="",
        help="a QAR file whose analysis sequence, and calibrations where there are none, are taken",
    )  # fmt: skip
    command.add_argument(
        "--limit", metavar="SIGMA", type=float, help="least significance of a peak"
    )
    command.add_argument(
        "--tolerance", metavar="KEV", type=float, help="how far a line may be from its peak"
    )
    command.add_argument(
        "--set", metavar="NAME=VALUE", type=_setting, action="append", default=[],
        help="another setting by the name of its parameter",
    )  # fmt: skip
    command.add_argument(
        "--jobs", "-j", metavar="N", type=_number(256), default=1, help="processes at a time (1)"
    )
    command.add_argument(
        "--dask", metavar="ADDRESS", default="", help="a Dask scheduler, such as tcp://host:8786"
    )
    _json(command)


def _status(command: argparse.ArgumentParser) -> None:
    command.add_argument(
        "code", metavar="CODE", nargs="+", type=_status_code, help="-320234115 or 0xECE99D7D"
    )
    _json(command)


def _number(most: int) -> Callable[[str], int]:
    def number(text: str) -> int:
        found = int(text)
        if not 1 <= found <= most:
            raise argparse.ArgumentTypeError(f"{text} is not from 1 to {most}")
        return found

    return number


def _status_code(text: str) -> int:
    try:
        return int(text, 0)
    except ValueError:
        raise argparse.ArgumentTypeError(f"{text} is no status") from None


def _calibration_line(text: str) -> Tuple[float, float]:
    """The energy and the channel."""
    channel, equals, energy = text.partition("=")
    try:
        return float(energy), float(channel)
    except ValueError:
        raise argparse.ArgumentTypeError(f"{text} is not CHANNEL=ENERGY") from None


def _setting(text: str) -> Tuple[str, str]:
    name, equals, value = text.partition("=")
    if not (name and equals):
        raise argparse.ArgumentTypeError(f"{text} is not NAME=VALUE")
    return name.upper(), value


_COMMANDS: Dict[str, Tuple[Callable[[argparse.Namespace], int], str, _Add]] = {
    "show": (commands.show, "Show parameters, calibrations, peaks and a plot.", _show),
    "plot": (commands.draw, "Draw the spectrum with its fitted peaks as a PNG picture.", _plot),
    "convert": (commands.convert, "Convert between QAR and the formats of the field.", _convert),
    "dump": (commands.dump_file, "Write a whole measurement as JSON.", _dump),
    "load": (commands.load_file, "Make a QAR file of what dump wrote.", _load),
    "calibrate": (commands.calibrate, "Calibrate energy and width by known lines.", _calibrate),
    "analyse": (
        commands.analyse_files,
        "Find peaks and nuclides, in many files at once.",
        _analyse,
    ),
    "report": (commands.make_report, "Write the results of an analysis as one HTML file.", _report),
    "check": (
        commands.check_files,
        "Read everything in files and say whether they are sound.",
        _check,
    ),
    "salvage": (commands.salvage_file, "Copy what is sound out of a damaged file.", _salvage),
    "status": (commands.explain_status, "Say what statuses mean.", _status),
}
