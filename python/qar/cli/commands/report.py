"""The command `report`: the results as one HTML file."""

from ... import formats
from ...atomic_files import write_text
from ...display import report as reports
from ...display.report_data import Overlay
from ...nuclides import builtin_library
from ...records import RecordSource
from ...transfer.any_file import open_measurement
from ..command import DONE, Arguments, Command, Parser, add_output
from ..inputs import add_input, opened, output_of
from ..output import print_path
from ..reading import reading_of


def report(arguments: Arguments) -> int:
    target = output_of(arguments, ".html")
    with opened(arguments) as source:
        overlays = [_overlay(source, path, arguments) for path in arguments.compare]
        library = builtin_library.library_of(source)
        options = reports.Options(library=library, overlays=overlays)
        text = reports.page(source, source.results(), options)
        write_text(target, text, arguments.force)
    print_path(target)
    return DONE


def _overlay(source: RecordSource, path: str, arguments: Arguments) -> Overlay:
    """Return the spectrum of another file, the foreground if it has several."""
    measurement = formats.foreground(reading_of(arguments).read(path))
    with open_measurement(measurement) as (other, _):
        return reports.overlay_of(source, other, path)


def _add_arguments(command: Parser) -> None:
    add_input(command)
    command.add_argument(
        "--compare", metavar="OTHER", action="append", default=[],
        help="Show the spectrum of another file too, such as a blank, scaled to the same live"
        " time. May be repeated.",
    )  # fmt: skip
    add_output(
        command, "Write the report to this file (default: FILE with the suffix .html).", "HTML"
    )


COMMAND = Command(
    "report", report, "Write the results of an analysis as one HTML file.", _add_arguments
)
