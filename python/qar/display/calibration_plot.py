"""Residuals and widths of a calibration as a picture, drawn with matplotlib."""

import textwrap
from typing import Any

from ..analysis.calibration import polynomial
from ..analysis.known_lines import LineCalibration
from .layout import FIT_COLOUR, SPECTRUM_COLOUR
from .plot import figure_class
from .printable import printable

_INCHES = (11.0, 5.5)
_TITLE_WIDTH = 80  # characters


def figure_of(result: LineCalibration, channels: int, title: str) -> Any:
    """Return a matplotlib Figure of residuals and widths of a calibration over the energy.

    Raises ImportError if matplotlib is not installed.
    """
    figure = figure_class()(figsize=_INCHES)
    residuals = figure.add_axes([0.075, 0.56, 0.905, 0.36])
    widths = figure.add_axes([0.075, 0.1, 0.905, 0.38], sharex=residuals)
    calibration = result.calibration
    name = printable(textwrap.shorten(title, _TITLE_WIDTH)).replace("$", r"\$")
    energies = [point.energy for point in result.points]
    errors = [
        point.centroid_uncertainty
        * (
            calibration.energy_at(point.centroid + 0.5)
            - calibration.energy_at(point.centroid - 0.5)
        )
        for point in result.points
    ]
    residuals.errorbar(
        energies, [point.residual for point in result.points], yerr=errors, fmt="o",
        color=SPECTRUM_COLOUR,
    )  # fmt: skip
    residuals.axhline(0, linewidth=0.5, color="0.4")
    residuals.set(ylabel="residual / keV")
    residuals.set_title(name, loc="left", fontsize=11)
    for is_outlying, colour in ((False, SPECTRUM_COLOUR), (True, FIT_COLOUR)):
        points = [point for point in result.points if point.is_outlying == is_outlying]
        widths.errorbar(
            [point.energy for point in points], [point.fwhm for point in points],
            yerr=[point.fwhm * point.width_uncertainty for point in points], fmt="o", color=colour,
        )  # fmt: skip
    last = calibration.energy_at(channels)
    curve = [last * step / 200 for step in range(1, 201)]
    squares = [max(0.0, polynomial(calibration.shape, energy)) for energy in curve]
    widths.plot(curve, [square**0.5 for square in squares], color=FIT_COLOUR, linewidth=1.0)
    widths.set(xlabel="energy / keV", ylabel="FWHM / keV", xlim=(0, last))
    return figure
