"""The numbers behind an interactive report, in the form that its script reads.

The curves are rounded to a tenth of a standard deviation and stored as differences of neighbours,
which takes half the space.
"""

import json
import math
from typing import Any, Dict, List, NamedTuple, Optional, Sequence

from ..analysis import peak_curves
from ..analysis.calibration import Calibration
from ..analysis.expected_lines import expected_lines
from ..analysis.peak_curves import Curve
from ..analysis.results import Analysis, Nuclide
from ..values import is_known
from .layout import Axis
from .printable import printable
from .tables import with_uncertainty

_TOLERANCE = 1.0  # keV, of the engine if the file has no setting
_ROUNDING = 10  # steps for each standard deviation


class Overlay(NamedTuple):
    """Another spectrum to compare with, in the channels of the first and scaled to it."""

    name: str
    counts: Sequence[float]


def json_of(data: Any) -> str:
    """Return JSON that can stand in a script element: no character ends the element."""
    text = json.dumps(data, separators=(",", ":"), allow_nan=False)
    return text.replace("&", "\\u0026").replace("<", "\\u003c").replace(">", "\\u003e")


def data_of(
    counts: Sequence[int],
    analysis: Analysis,
    curves: Sequence[Curve],
    axis: Axis,
    library: Sequence[Nuclide],
    tolerance: float,
    overlays: Sequence[Overlay],
) -> Dict[str, Any]:
    """Return the contents of the report's script element."""
    return {
        "unit": axis.unit if axis.calibration.energy else "",
        "energy": [*axis.calibration.energy],
        "counts": [*counts],
        "excess": _excess(counts),
        "overlays": [
            {"name": printable(overlay.name), "counts": [_short(c) for c in overlay.counts]}
            for overlay in overlays
        ],
        "regions": [_region(curve) for curve in curves],
        "peaks": [
            {
                "channel": _number(peak.centroid, 3),
                "energy": _number(peak.energy, 3),
                "label": printable(peak.label),
                "nuclide": printable(peak.nuclide),
                "significance": _number(peak.significance, 1),
                "area": with_uncertainty(peak.area, peak.area_uncertainty),
            }
            for peak in analysis.peaks
        ],
        "nuclides": _nuclides(analysis, axis, library, tolerance, len(counts)),
        "hasEfficiency": bool(axis.calibration.efficiency),
    }


def _excess(counts: Sequence[int]) -> List[float]:
    return [round(value, 2) for value in peak_curves.excess_variance(counts)]


def _short(value: float) -> float:
    """Return a count with the digits that a picture shows."""
    return round(value, 2) if value < 100 else round(value)


def _number(value: float, digits: int) -> Any:
    return round(value, digits) if is_known(value) and math.isfinite(value) else None


def _rounded(value: Optional[float], digits: int) -> Optional[float]:
    is_finite = value is not None and math.isfinite(value)
    return float(f"{value:.{digits}g}") if is_finite else None


def _region(curve: Curve) -> Dict[str, Any]:
    region = curve.region
    deviation = math.sqrt(max(min(curve.model), peak_curves.MIN_VARIANCE))
    unit = float(f"{deviation / _ROUNDING:.2g}")
    result: Dict[str, Any] = {
        "first": region.first,
        "unit": unit,
        "model": _differences(curve.model, unit),
        "continuum": _differences(curve.continuum, unit),
        "peaks": [*region.peaks],
        "isFit": region.is_fit,
    }
    if len(region.shapes) > 1:
        result["net"] = [_cut(part, unit) for part in curve.peaks]
    return result


def _cut(part: Sequence[float], unit: float) -> Dict[str, Any]:
    """Return the channels in which a single peak is visible."""
    visible = [index for index, value in enumerate(part) if abs(value) >= unit / 2]
    first, last = (visible[0], visible[-1]) if visible else (0, 0)
    return {"offset": first, "counts": _differences(part[first : last + 1], unit)}


def _differences(values: Sequence[float], unit: float) -> List[int]:
    steps = [round(value / unit) for value in values]
    return [steps[0], *(b - a for a, b in zip(steps, steps[1:]))]


def _nuclides(
    analysis: Analysis, axis: Axis, library: Sequence[Nuclide], tolerance: float, channels: int
) -> List[Dict[str, Any]]:
    """Return the lines of the nuclides, first those found, then the others, as in the tables."""
    if not axis.calibration.energy:
        return []
    known = {nuclide.name: nuclide for nuclide in library}
    max_energy = axis.position(channels)
    result = []
    for nuclide in (*analysis.nuclides, *analysis.not_found):
        lines = expected_lines(
            known.get(nuclide.name, Nuclide()),
            analysis.peaks,
            axis.calibration,
            tolerance,
            max_energy,
        )
        result.append(
            {
                "name": printable(nuclide.name),
                "lines": [
                    [
                        _number(line.energy, 2),
                        _rounded(line.photons, 4),
                        -1 if line.peak is None else line.peak,
                        int(line.is_own),
                        _rounded(line.expected, 3),
                    ]
                    for line in lines
                ],
            }
        )
    return result


def tolerance_of(setting: Any) -> float:
    """Return the tolerance of the identification in keV, from the setting in the file."""
    return float(setting) if is_known(setting) and 0 < setting < 1e6 else _TOLERANCE


def rebinned(
    counts: Sequence[int], calibration: Calibration, target: Calibration, channels: int
) -> List[float]:
    """Return a spectrum in the channels of another one, which share their counts by energy.

    Without energy calibrations, or with equal ones, the channels stay as they are.
    """
    if calibration.energy == target.energy or not (calibration.energy and target.energy):
        return [*map(float, counts[:channels]), *[0.0] * (channels - len(counts))]
    sums = [0.0]
    for count in counts:
        sums.append(sums[-1] + count)

    def counts_below(energy: float) -> float:
        try:
            edge = calibration.channel_at(energy) - 0.5
        except ValueError:
            return 0.0
        index = min(max(int(math.floor(edge)), 0), len(counts))
        part = min(max(edge - index, 0.0), 1.0)
        return sums[index] + (part * counts[index] if index < len(counts) else 0.0)

    below = [counts_below(target.energy_at(channel + 0.5)) for channel in range(channels + 1)]
    return [high - low for low, high in zip(below, below[1:])]
