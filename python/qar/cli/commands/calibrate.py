"""The command `calibrate`: energy and peak width from known lines."""

import argparse
from typing import Tuple

from ...display import tables
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
from ..output import print_json


def calibrate(arguments: Arguments) -> int:
    lines = dict(arguments.line)
    if len(lines) != len(arguments.line):
        energies = [energy for energy, _ in arguments.line]
        twice = next(energy for energy in energies if energies.count(energy) > 1)
        raise CommandError(f"--line: the energy {twice:g} keV is given twice")
    with open_source(arguments.file, "r+") as source:
        result = source.calibrate(lines, arguments.degree)
    if arguments.json:
        print_json(result)
        return DONE
    for name, coefficients in (
        ("energy", result.calibration.energy),
        ("shape", result.calibration.shape),
    ):
        print(f"{name}: {' '.join(f'{c:.9g}' for c in coefficients)}")
    print("  energy / keV   channel (from 1)   FWHM / keV   residual / keV")
    for point in result.points:
        channel = tables.with_uncertainty(point.centroid, point.centroid_uncertainty)
        print(f"{point.energy:14.3f} {channel:>18} {point.fwhm:12.3f} {point.residual:16.3f}")
    return DONE


def _add_arguments(command: Parser) -> None:
    command.add_argument(
        "file", metavar="FILE", help="The QAR file, whose calibration is replaced."
    )
    command.add_argument(
        "--line", metavar="CHANNEL=ENERGY", type=_calibration_line, action="append", required=True,
        help="A known line: the channel near its peak, counted from 1, and its energy in keV;"
        " give at least two.",
    )  # fmt: skip
    command.add_argument(
        "--degree", metavar="N", type=number_up_to(5), default=1,
        help="Fit an energy polynomial of degree N (default: %(default)s).",
    )  # fmt: skip
    add_json(command)


def _calibration_line(text: str) -> Tuple[float, float]:
    """Return the energy and the channel."""
    channel, equals, energy = text.partition("=")
    try:
        return positive_number(energy), positive_number(channel)
    except argparse.ArgumentTypeError:
        raise argparse.ArgumentTypeError(f"{text!r} is not of the form CHANNEL=ENERGY") from None


COMMAND = Command(
    "calibrate", calibrate, "Calibrate energy and peak width with known lines.", _add_arguments
)
