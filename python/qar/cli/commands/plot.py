"""The command `plot`: a PNG picture of the spectrum."""

import os

from ...atomic_files import new_file
from ...display import layout
from ...display import plot as picture
from ..command import DONE, Arguments, Command, Parser, add_output
from ..inputs import add_input, opened, output_of
from ..output import print_path


def plot(arguments: Arguments) -> int:
    target = output_of(arguments, ".png")
    picture.figure_class()  # fails early if matplotlib is missing
    with opened(arguments) as source:
        counts, peaks = source.spectrum(), source.results().peaks
        axis = layout.axis_of(source.calibration())
        title = source.get("QAR_C_MEASNAME") or os.path.basename(arguments.file)
        with new_file(target, arguments.force) as temporary:
            picture.save(temporary, counts, peaks, axis, title)
    print_path(target)
    return DONE


def _add_arguments(command: Parser) -> None:
    add_input(command)
    add_output(
        command, "Write the picture to this file (default: FILE with the suffix .png).", "PNG"
    )


COMMAND = Command(
    "plot", plot, "Draw the spectrum with its fitted peaks as a PNG picture.", _add_arguments
)
