"""The command `report`: the results as one HTML file."""

from ...atomic_files import write_text
from ...display import layout
from ...display.report import html_of
from ..command import DONE, Arguments, Command, Parser, add_output
from ..inputs import add_input, opened, output_of
from ..output import print_path


def report(arguments: Arguments) -> int:
    target = output_of(arguments, ".html")
    with opened(arguments) as source:
        axis = layout.axis_of(source.calibration())
        text = html_of(source, source.results(), axis)
        write_text(target, text, arguments.force)
    print_path(target)
    return DONE


def _add_arguments(command: Parser) -> None:
    add_input(command)
    add_output(
        command, "Write the report to this file (default: FILE with the suffix .html).", "HTML"
    )


COMMAND = Command(
    "report", report, "Write the results of an analysis as one HTML file.", _add_arguments
)
