"""An efficiency calibration as a table of strings for the terminal."""

import math
from typing import List

from ..analysis.efficiency import CurveFit, EfficiencyCalibration, EfficiencyPoint
from . import tables
from .printable import printable
from .tables import Column

_EXAMPLES = 5  # energies whose uncertainty is listed
_CORRECTED = "corrected with the total efficiency"
_NOT_CORRECTED = (
    "not corrected, because no total efficiency is known; the factors are estimates, and their"
    " distance from 1 is an uncertainty"
)


def _curve_value(point: EfficiencyPoint) -> float:
    return point.efficiency / math.exp(point.residual)


def _remark(point: EfficiencyPoint) -> str:
    marks = [point.reason] if point.reason else []
    return "; ".join(marks + ["summing"] * point.has_summing)


POINTS = (
    Column("energy", "keV", lambda p: f"{p.energy:.2f}"),
    Column("nuclide", "", lambda p: printable(p.nuclides)),
    Column("net area", "counts", lambda p: tables.with_uncertainty(p.area, p.area_uncertainty)),
    Column("summing factor", "", lambda p: f"{p.factor.factor:.4f}"),
    Column("efficiency", "", lambda p: tables.number(p.efficiency, 4)),
    Column("uncertainty", "%", lambda p: f"{100 * p.uncertainty:.1f}"),
    Column("curve", "", lambda p: tables.number(_curve_value(p), 4)),
    Column("residual", "%", lambda p: f"{100 * p.residual:+.1f}"),
    Column("remark", "", _remark),
)
"""The columns of a table of EfficiencyPoint records."""


def lines_of(calibration: EfficiencyCalibration) -> List[str]:
    """Return an EfficiencyCalibration as lines for a terminal."""
    fit, curve = calibration.fit, calibration.fit.curve
    used = [point for point in calibration.points if not point.reason]
    summary = (
        f"degree {_degrees(fit)}, {tables.counted(len(used), 'point')}, chi-square"
        f" {fit.chi_square:.1f} for {fit.degrees_of_freedom} degrees of freedom, additional"
        f" scatter {100 * fit.scatter:.1f} %"
    )
    corrected = _CORRECTED if calibration.total is not None else _NOT_CORRECTED
    low, high = curve.min_energy, curve.max_energy
    ratio = (high / low) ** (1 / (_EXAMPLES - 1))
    examples = ", ".join(
        f"{100 * curve.uncertainty_at(energy):.1f} % at {energy:.0f} keV"
        for energy in (low * ratio**number for number in range(_EXAMPLES))
    )
    return [
        *tables.lines(POINTS, calibration.points),
        f"coincidence summing: {corrected}",
        summary,
        f"range: {low:.1f} to {high:.1f} keV",
        f"relative uncertainty: {examples}",
        f"QAR_D_EFFICCAL: {' '.join(f'{item:.9g}' for item in curve.coefficients)}",
    ]


def _degrees(fit: CurveFit) -> str:
    """Return the degree, with the shares of all degrees if there are several."""
    shares = [f"{100 * share:.0f} % {degree}" for degree, share in sorted(fit.weights.items())]
    return f"{fit.degree}" + (f" (mean of {', '.join(shares)})" if len(shares) > 1 else "")
