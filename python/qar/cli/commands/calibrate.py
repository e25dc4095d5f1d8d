"""The command `calibrate`: energy and peak width from known lines or nuclides."""

import argparse
import os
from typing import Iterator, Tuple

from ... import formats
from ...analysis.known_lines import CalibrationPoint, LineCalibration
from ...atomic_files import new_file
from ...display import calibration_plot, plot, tables
from ...formats.qar_file import SUFFIX
from ...source import DataSource
from ...source import open as open_source
from ..command import (
    DONE,
    Arguments,
    Command,
    CommandError,
    Parser,
    add_json,
    number_up_to,
    positive_number,
)
from ..inputs import beside, one
from ..output import print_json, print_lines, print_path, warn
from ..pictures import check_picture
from ..reading import add_reading, reading_of

NO_CALIBRATION = "no energy calibration"  # a note of the formats, which the command remedies


def calibrate(arguments: Arguments) -> int:
    lines = dict(arguments.line)
    if len(lines) != len(arguments.line):
        energies = [energy for energy, _ in arguments.line]
        twice = next(energy for energy in energies if energies.count(energy) > 1)
        raise CommandError(f"--line: the energy {twice:g} keV is given twice")
    names = arguments.nuclide
    if bool(lines) == bool(names or arguments.background):
        raise CommandError("expected either --line, or --nuclide and --background")
    if arguments.plot:
        check_picture(arguments.plot, arguments.force)
    path, is_new = _qar_file(arguments)
    try:
        with open_source(path, "r+") as source:
            result = _calibrated(source, arguments)
            channels = source["QAR_L_CHANNELS"]
    except BaseException:
        if is_new:
            os.unlink(path)
        raise
    if arguments.plot:
        with new_file(arguments.plot, arguments.force) as temporary:
            figure = calibration_plot.figure_of(result, channels, os.path.basename(path))
            plot.save(figure, temporary, plot.format_of(arguments.plot))
    _report(result, path, is_new, arguments)
    return DONE


def _calibrated(source: DataSource, arguments: Arguments) -> LineCalibration:
    options = arguments.degree, arguments.force
    if arguments.line:
        return source.calibrate(dict(arguments.line), *options)
    return source.calibrate_from_nuclides(arguments.nuclide, arguments.background, *options)


def _qar_file(arguments: Arguments) -> Tuple[str, bool]:
    """Return the QAR file to calibrate, and whether it was converted from another format."""
    path = arguments.file
    measurements = reading_of(arguments).read(path)
    if measurements[0].qar_file:
        return path, False
    measurement = one(formats.with_name(measurements, arguments.spectrum, path), path)
    target = arguments.output or beside(path, SUFFIX)
    notes = formats.write(target, measurement, "qar", arguments.force)
    warn(target, [note for note in (*measurement.notes, *notes) if note != NO_CALIBRATION])
    return target, True


def _report(result: LineCalibration, path: str, is_new: bool, arguments: Arguments) -> None:
    if arguments.json:
        print_json(result)
        return
    for name, coefficients in (
        ("energy", result.calibration.energy),
        ("shape", result.calibration.shape),
    ):
        print(f"{name}: {' '.join(f'{c:.9g}' for c in coefficients)}")
    print_lines(_table(result))
    warn(path, result.notes)
    for written in [path] * is_new + [arguments.plot] * bool(arguments.plot):
        print_path(written)


def _table(result: LineCalibration) -> Iterator[str]:
    yield "  energy / keV   channel (from 1)      FWHM / keV   residual / keV"
    for point in result.points:
        channel = tables.with_uncertainty(point.centroid, point.centroid_uncertainty)
        width = tables.with_uncertainty(point.fwhm, point.fwhm * point.width_uncertainty)
        residual = f"{point.residual:.3f}{_mark(point)}"
        yield f"{point.energy:14.3f} {channel:>18} {width:>15} {residual:>16}"


def _mark(point: CalibrationPoint) -> str:
    return " (width not used)" if point.is_outlying else ""


def _add_arguments(command: Parser) -> None:
    command.add_argument(
        "file", metavar="FILE",
        help="The QAR file to calibrate, or a file of another format, which is converted.",
    )  # fmt: skip
    command.add_argument(
        "--line", metavar="CHANNEL=ENERGY", type=_calibration_line, action="append", default=[],
        help="A known line: the channel near its peak, counted from 1, and its energy in keV;"
        " one line is enough for the width if there is an energy calibration.",
    )  # fmt: skip
    command.add_argument(
        "--nuclide", metavar="NAME", action="append", default=[],
        help="A nuclide in the spectrum, such as Eu-152, to whose lines the peaks are assigned;"
        " can be repeated.",
    )  # fmt: skip
    command.add_argument(
        "--background", action="store_true",
        help="Assign peaks to the lines of natural background too.",
    )  # fmt: skip
    command.add_argument(
        "--degree", metavar="N", type=number_up_to(5),
        help="Fit an energy polynomial of degree N (default: chosen by the residuals).",
    )  # fmt: skip
    command.add_argument(
        "--force", action="store_true",
        help="Replace a better energy calibration and existing files.",
    )  # fmt: skip
    command.add_argument(
        "--plot", metavar="PICTURE", default="",
        help="Draw residuals and widths into this .png, .svg or .pdf file (needs matplotlib).",
    )  # fmt: skip
    command.add_argument(
        "--output", "-o", metavar="QAR", default="",
        help="Write a converted file to this file (default: FILE with the suffix .qar).",
    )  # fmt: skip
    command.add_argument(
        "--spectrum", metavar="NAME", default="",
        help="Use the spectrum NAME if the file has several.",
    )  # fmt: skip
    add_reading(command)
    add_json(command)


def _calibration_line(text: str) -> Tuple[float, float]:
    """Return the energy and the channel."""
    channel, equals, energy = text.partition("=")
    try:
        return positive_number(energy), positive_number(channel)
    except argparse.ArgumentTypeError:
        raise argparse.ArgumentTypeError(f"{text!r} is not of the form CHANNEL=ENERGY") from None


COMMAND = Command(
    "calibrate",
    calibrate,
    "Calibrate energy and peak width with known lines or nuclides.",
    _add_arguments,
    """\
examples:
  qar calibrate sample.qar --nuclide Eu-152       assign the peaks to the lines of Eu-152
  qar calibrate sample.spe --nuclide Cs-137 --background
                                                  convert sample.spe to sample.qar and calibrate it
  qar calibrate sample.qar --line 119=59.541 --line 1327=661.657
                                                  use the peaks near two channels
  qar calibrate sample.qar --line 1327=661.657    width only; the energy calibration is kept
""",
)
