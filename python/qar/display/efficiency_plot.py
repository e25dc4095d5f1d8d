"""An efficiency calibration as a picture."""

from typing import Any, Sequence

from ..analysis.efficiency import EfficiencyCalibration, EfficiencyCurve, EfficiencyPoint
from .layout import FIT_COLOUR, SPECTRUM_COLOUR
from .plot import figure_class

_SAMPLES = 200
_LEFT_OUT_COLOUR = "0.6"


def figure_of(calibration: EfficiencyCalibration, title: str) -> Any:
    """Return a matplotlib Figure of points, curve and residuals.

    Raises ImportError if matplotlib is not installed.
    """
    curve = calibration.fit.curve
    figure = figure_class()(figsize=(8.0, 6.0))
    axes = figure.add_axes([0.11, 0.36, 0.86, 0.58])
    ratio = (curve.max_energy / curve.min_energy) ** (1 / _SAMPLES)
    energies = [curve.min_energy * ratio**number for number in range(_SAMPLES + 1)]
    _draw_curve(axes, curve, energies)
    below = figure.add_axes([0.11, 0.1, 0.86, 0.22], sharex=axes)
    band = [100 * curve.uncertainty_at(energy) for energy in energies]
    below.fill_between(energies, [-item for item in band], band, color=FIT_COLOUR, alpha=0.25)
    below.axhline(0, linewidth=0.8, color=FIT_COLOUR)
    for colour, label, points in (
        (SPECTRUM_COLOUR, "peaks", [point for point in calibration.points if not point.reason]),
        (_LEFT_OUT_COLOUR, "not used", [point for point in calibration.points if point.reason]),
    ):
        if points:
            _draw_points(axes, below, points, colour, label)
    axes.set(xscale="log", yscale="log", ylabel="efficiency")
    axes.tick_params(labelbottom=False, which="both")
    axes.set_title(title.replace("$", r"\$"), loc="left", fontsize=11)
    axes.legend(frameon=False)
    below.set(xlabel="energy / keV", ylabel="residual / %")
    return figure


def _draw_curve(axes: Any, curve: EfficiencyCurve, energies: Sequence[float]) -> None:
    values = [curve.value_at(energy) for energy in energies]
    axes.plot(energies, values, color=FIT_COLOUR, linewidth=1.2, label="curve")


def _draw_points(
    axes: Any, below: Any, points: Sequence[EfficiencyPoint], colour: str, label: str
) -> None:
    energies = [point.energy for point in points]
    values = [point.efficiency for point in points]
    errors = [point.efficiency * point.uncertainty for point in points]
    style = {"fmt": "o", "markersize": 4, "linewidth": 1, "color": colour}
    axes.errorbar(energies, values, errors, label=label, **style)
    residuals = [100 * point.residual for point in points]
    below.errorbar(energies, residuals, [100 * point.uncertainty for point in points], **style)
