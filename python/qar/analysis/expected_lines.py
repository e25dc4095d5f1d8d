"""The lines of a nuclide in a spectrum: found or missing, with the counts that each should have."""

from typing import List, NamedTuple, Optional, Sequence

from .calibration import FWHM_PER_SIGMA, Calibration
from .results import Nuclide, Peak

_MIN_PART = 0.01  # of the strongest line; fainter lines are left out
_MAX_LINES = 40  # of a nuclide, the strongest
_MAX_PHOTONS = 100.0  # per decay; more are an error of the library


class ExpectedLine(NamedTuple):
    """A gamma line and the peak at its energy."""

    energy: float  # keV
    photons: float  # per decay
    peak: Optional[int]  # index of the peak at the line; None: missing
    is_own: bool  # True if the peak is assigned to the nuclide
    expected: Optional[float]  # counts; None if the efficiency or the activity is not known


def expected_lines(
    nuclide: Nuclide,
    peaks: Sequence[Peak],
    calibration: Calibration,
    tolerance: float,
    max_energy: float,
) -> List[ExpectedLine]:
    """Return the lines of a nuclide by rising energy.

    tolerance, max_energy: keV. The expected counts follow from the peaks that are assigned to the
    nuclide, the photons per decay and the efficiency.
    """
    lines = [line for line in nuclide.lines if 0 < line.photons <= _MAX_PHOTONS]
    strongest = max((line.photons for line in lines), default=0.0)
    lines = [
        line
        for line in lines
        if line.photons >= _MIN_PART * strongest and 0 < line.energy <= max_energy
    ]
    lines = sorted(lines, key=lambda line: -line.photons)[:_MAX_LINES]
    result = []
    for line in sorted(lines, key=lambda line: line.energy):
        index = _nearest(peaks, line.energy, tolerance, nuclide.name)
        is_own = index is not None and peaks[index].nuclide == nuclide.name
        result.append(ExpectedLine(line.energy, line.photons, index, is_own, None))
    return _with_counts(result, peaks, calibration)


def _nearest(peaks: Sequence[Peak], energy: float, tolerance: float, name: str) -> Optional[int]:
    """Return the nearest peak within the tolerance, one of the nuclide's own first."""
    near = [
        (peak.nuclide != name, abs(peak.energy - energy), index)
        for index, peak in enumerate(peaks)
        if abs(peak.energy - energy) <= max(tolerance, peak.fwhm / FWHM_PER_SIGMA)
    ]
    return min(near)[2] if near else None


def _with_counts(
    lines: List[ExpectedLine], peaks: Sequence[Peak], calibration: Calibration
) -> List[ExpectedLine]:
    """Add the expected counts: those of the decays that fit the nuclide's own peaks best."""
    if not calibration.efficiency:
        return lines
    try:
        parts = [line.photons * calibration.efficiency_at(line.energy) for line in lines]
        decays = _decays(lines, parts, peaks)
    except ArithmeticError:  # impossible efficiencies or uncertainties
        return lines
    return [line._replace(expected=decays * part) for line, part in zip(lines, parts)]


def _decays(lines: Sequence[ExpectedLine], parts: Sequence[float], peaks: Sequence[Peak]) -> float:
    """Return the number of decays; parts: counts of each line per decay.

    Raises ZeroDivisionError if no peak is assigned to the nuclide.
    """
    above = below = 0.0
    for line, part in zip(lines, parts):
        peak = peaks[line.peak] if line.is_own and line.peak is not None else None
        if peak is not None and peak.area_uncertainty > 0:
            above += part * peak.area / peak.area_uncertainty**2
            below += (part / peak.area_uncertainty) ** 2
    return above / below
