"""Estimated peak widths and corrected energies of an analysis: notes, and the calibration."""

import math
from typing import List, Optional, Tuple

from ..records import RecordSource
from ..values import is_known
from .calibration import PARAMETERS, Calibration

_KINDS = {1: "germanium", 2: "CdZnTe", 3: "LaBr3", 4: "NaI or CsI", 5: "BGO"}
_ORIGINS = {
    1: "estimated from the peaks",
    2: "assumed as there are no peaks to estimate it",
    3: "estimated from the peaks, which contradict the given width calibration",
}
_REFERENCE = 661.7  # keV


def calibration_notes(source: RecordSource) -> Tuple[str, ...]:
    """Return a line for each calibration that the engine estimated or corrected.

    Empty if the calibrations in the file were used as they are.
    """
    notes: List[str] = []
    origin = _ORIGINS.get(source.get("QAR_S_SHAPEORIGIN"))
    constant, slope = (source.get("QAR_D_SHAPECAL", 1, entry) for entry in (1, 2))
    if origin and constant is not None and slope is not None:
        width = math.sqrt(max(0.0, constant + slope * _REFERENCE))
        kind = _KINDS.get(source.get("QAR_S_DETECTORKIND"), "unknown")
        notes.append(
            f"peak width {origin}: FWHM {width:.3g} keV at {_REFERENCE:.0f} keV, as of {kind},"
            f" sqrt({constant:.4g} + {slope:.4g} E)"
        )
    correction = _correction(source)
    if correction:
        lines, offset, gain = correction
        notes.append(
            f"energies corrected by {lines} line{'s' if lines > 1 else ''}:"
            f" {offset:+.2f} keV and {(gain - 1) * 100:+.3f} %"
        )
    return tuple(notes)


def corrected_calibration(source: RecordSource) -> Calibration:
    """Return the calibrations of a source, with the energies that its results have."""
    energy, shape, efficiency = (tuple(source.column(name)) for name in PARAMETERS.values())
    correction = _correction(source)
    if energy and correction:
        _, offset, gain = correction
        energy = (offset + gain * energy[0], *(gain * value for value in energy[1:]))
    return Calibration(energy, shape, efficiency)


def _correction(source: RecordSource) -> Optional[Tuple[int, float, float]]:
    """Return the lines that corrected the energies, the offset in keV and the gain, or None."""
    lines = source.get("QAR_L_CORRLINES")
    offset, gain = (source.get("QAR_D_ENERGYCORR", 1, entry) for entry in (1, 2))
    return (lines, offset, gain) if lines and is_known(offset) and is_known(gain) else None
