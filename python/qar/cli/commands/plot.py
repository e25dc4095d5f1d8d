"""The command `plot`: a picture of the spectrum."""

import argparse
import io
import math
import sys
from typing import Tuple

from ... import formats
from ...analysis.results import Analysis
from ...atomic_files import new_file
from ...display import plot as picture
from ...display.plot import Drawing
from ...errors import QarError
from ...transfer.any_file import open_measurement
from ..command import DONE, Arguments, Command, CommandError, Parser, add_output
from ..inputs import add_input, opened, output_of
from ..output import STANDARD_OUTPUT, failure_text, print_path, warn
from ..pictures import check_picture


def plot(arguments: Arguments) -> int:
    target = output_of(arguments, ".png")
    is_piped = target == STANDARD_OUTPUT
    format = "png" if is_piped else check_picture(target, arguments.force)
    drawing = _drawing(arguments)
    other = _other(arguments.compare) if arguments.compare else None
    options = (arguments.region, arguments.residuals, arguments.peaks, other, arguments.scale)
    try:
        figure = picture.figure_of(drawing, *options)
    except ValueError as error:
        raise CommandError(str(error)) from None
    if is_piped:
        content = io.BytesIO()
        picture.save(figure, content, format)
        sys.stdout.buffer.write(content.getvalue())
    else:
        with new_file(target, arguments.force) as temporary:
            picture.save(figure, temporary, format)
        print_path(target)
    return DONE


def _drawing(arguments: Arguments) -> Drawing:
    """Return the drawing of the input, which is analysed in a copy if it has no results."""
    with opened(arguments, copy=True) as source:
        results = source.results()
        if not results.peaks and not results.nuclides:
            try:
                results = source.analyse()
            except QarError as error:
                warn(arguments.file, [f"drawn without an analysis: {failure_text(error)}"])
        return picture.drawing_of(source, results)


def _other(path: str) -> Drawing:
    """Return the drawing of the spectrum to compare, without peaks."""
    measurement = formats.foreground(formats.read(path))
    with open_measurement(measurement) as (source, _):
        source.path = path
        return picture.drawing_of(source, Analysis((), ()))


def _region(text: str) -> Tuple[float, float]:
    try:
        low, high = map(float, text.split(":"))
    except ValueError:
        low, high = math.nan, math.nan
    if not 0 <= low < high < math.inf:
        raise argparse.ArgumentTypeError(f"{text!r} is not a region such as 600:700")
    return low, high


def _add_arguments(command: Parser) -> None:
    add_input(command)
    command.add_argument(
        "--region", metavar="LOW:HIGH", type=_region, help="Draw only these energies in keV."
    )
    command.add_argument(
        "--residuals", action="store_true",
        help="Add the counts minus the fits, in standard deviations.",
    )  # fmt: skip
    command.add_argument(
        "--peaks", action="store_true", help="Draw the continuum and the single peaks of each fit."
    )
    command.add_argument(
        "--compare", metavar="OTHER", default="",
        help="Draw the spectrum in this file too, scaled to the same live time.",
    )  # fmt: skip
    command.add_argument(
        "--scale", choices=picture.SCALES, default="log", metavar="SCALE",
        help="The axis of counts: log, linear or sqrt (default: %(default)s).",
    )  # fmt: skip
    add_output(
        command,
        "Write the picture to this file, whose suffix .png, .svg or .pdf decides its format"
        " (default: FILE with the suffix .png); - writes a PNG to standard output.",
        "PICTURE",
    )


COMMAND = Command(
    "plot",
    plot,
    "Draw the spectrum with its fitted peaks as a PNG, SVG or PDF picture.",
    _add_arguments,
    """\
examples:
  qar plot sample.n42                             analyse a copy, draw sample.png
  qar plot sample.qar -o sample.svg --residuals   with the residuals of the fits
  qar plot sample.qar --region 600:700 --peaks --scale linear -o caesium.pdf
                                                  the parts of a fit
  qar plot sample.qar --compare blank.qar         with another spectrum
""",
)
