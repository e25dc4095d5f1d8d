"""Peaks of known lines, measured by the engine peak_search in a scratch copy of a source."""

import warnings
from typing import Dict, Iterable, List, Mapping, NamedTuple, Sequence, Tuple

from .. import constants
from ..errors import refuse
from ..records import RecordSource
from . import results
from .calibration import FWHM_PER_SIGMA, Calibration, polynomial
from .known_lines import MeasuredPeak, calibrate
from .results import Nuclide

NATURAL_BACKGROUND = ("K-40", "Bi-214", "Pb-214", "Tl-208", "Pb-212", "Ac-228")
MAX_DISTANCE = 10  # channels between the given channel and the peak, at least
SIGNIFICANCE = 4.0
WIDTH_ROUNDS = 4
MAX_SHIFT = 0.5  # FWHM between a line of a nuclide and its peak
SINGLE_LINE_DISTANCE = 1.2  # FWHM around a line in which other lines must be weak
WEAK_PART = 0.15
MIN_ENERGY = 50.0  # keV; X-rays of lower energy are several lines


class _Found(NamedTuple):
    """A peak of the engine with its net counts."""

    peak: MeasuredPeak
    area: float


def near_channels(
    copy: RecordSource, lines: Mapping[float, float], existing: Sequence[float]
) -> Dict[float, MeasuredPeak]:
    """Return the peak of each line, by its energy.

    copy: a scratch copy, in which calibrations and results are replaced. lines: energies in keV,
    each with a channel near its peak. existing: the energy polynomial of the source, used if
    there is only one line.

    Raises ValueError if there is no peak near a channel, EngineError if the engine fails.
    """
    channels = copy["QAR_L_CHANNELS"] or 0
    for channel in lines.values():
        if not 1 <= channel <= channels:
            raise ValueError(f"channel {channel:g} is not within the spectrum")
    energy = _straight(lines) if len(lines) > 1 else tuple(existing)
    if not energy:
        raise ValueError("1 line; expected at least 2 without an energy calibration")
    copy.set_column("QAR_D_ENERGYCAL", energy)
    shape: Tuple[float, ...] = ()
    for _ in range(WIDTH_ROUNDS):
        found = _search(copy, constants.OPTION_SEARCH_PEAKS, shape)
        peaks = {line: _nearest(found, channel) for line, channel in lines.items()}
        # The widths of weak peaks follow the calibration, which is therefore fitted again.
        shape = calibrate(peaks, Calibration(energy), channels, 1).calibration.shape
    return peaks


def of_nuclides(copy: RecordSource, nuclides: Sequence[Nuclide]) -> Dict[float, MeasuredPeak]:
    """Return the peaks of the lines of nuclides in a spectrum without a calibration, by energy.

    copy: a scratch copy, in which nuclides, calibrations and results are replaced. Lines that are
    not resolved are left out. Raises EngineError if the peaks cannot be assigned to the lines.
    """
    results.write_nuclide_library(copy, nuclides)
    found = _search(copy, constants.OPTION_CALIBRATE | constants.OPTION_SEARCH_PEAKS)
    calibration = Calibration(tuple(copy.column("QAR_D_ENERGYCAL")))
    lines = [(line.energy, line.photons) for nuclide in nuclides for line in nuclide.lines]
    matched: Dict[float, MeasuredPeak] = {}
    for peak, _ in found:
        energy = calibration.energy_at(peak.centroid)
        low, high = (calibration.energy_at(peak.centroid + s * peak.fwhm / 2) for s in (-1, 1))
        fwhm = high - low
        near = [line for line in lines if abs(line[0] - energy) < SINGLE_LINE_DISTANCE * fwhm]
        if near:
            line, photons = max(near, key=lambda one: one[1])
            others = sum(one[1] for one in near) - photons
            is_near = abs(line - energy) < MAX_SHIFT * fwhm
            if is_near and others < WEAK_PART * photons and line > MIN_ENERGY:
                matched[line] = peak
    return matched


def _search(copy: RecordSource, options: int, shape: Sequence[float] = ()) -> List[_Found]:
    """Return the peaks that the engine finds, by rising channel. It estimates a missing shape."""
    copy.set_column("QAR_D_SHAPECAL", shape)
    copy.set_column("QAR_D_SHAPEEST", ())
    copy["QAR_D_PEAKLIMIT"] = SIGNIFICANCE
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")  # about channels without a usable width
        results.run_engine(copy, options=options)
    energy = tuple(copy.column("QAR_D_ENERGYCAL"))
    gain = copy.get("QAR_D_ENERGYCORR", 1, 2) if copy.get("QAR_L_CORRLINES") else 1.0
    return [_found(peak, energy, gain) for peak in results.results(copy).peaks if peak.area > 0]


def _found(peak: results.Peak, energy: Sequence[float], gain: float) -> _Found:
    low, high = (polynomial(energy, peak.centroid + shift) for shift in (-0.5, 0.5))
    fwhm = peak.fwhm / (gain * (high - low))
    relative = peak.area_uncertainty / peak.area
    centroid = MeasuredPeak(peak.centroid, fwhm / FWHM_PER_SIGMA * relative, fwhm, relative)
    return _Found(centroid, peak.area)


def _nearest(found: Iterable[_Found], channel: float) -> MeasuredPeak:
    """Return the peak at a channel, otherwise the largest one near it."""
    near = [
        one
        for one in found
        if abs(one.peak.centroid - channel) <= max(MAX_DISTANCE, 0.7 * one.peak.fwhm)
    ]
    if not near:
        raise ValueError(f"no peak within {MAX_DISTANCE} channels of channel {channel:g}")
    at = [one for one in near if abs(one.peak.centroid - channel) <= 0.5 * one.peak.fwhm]
    return max(at or near, key=lambda one: one.area).peak


def _straight(lines: Mapping[float, float]) -> Tuple[float, float]:
    """Return the straight line through the lowest and the highest line."""
    (low, first), (high, last) = min(lines.items()), max(lines.items())
    if first >= last:
        raise ValueError("the energies do not rise with the channels of their peaks")
    gain = (high - low) / (last - first)
    return low - gain * first, gain


def named_nuclides(
    names: Sequence[str], libraries: Iterable[Sequence[Nuclide]], path: str
) -> List[Nuclide]:
    """Return the nuclides with these names, each from the first library that has it.

    Raises BadArgumentError if a name is unknown.
    """
    known: Dict[str, Nuclide] = {}
    for library in libraries:
        for nuclide in library:
            known.setdefault(nuclide.name.replace("-", "").lower(), nuclide)
    for name in names:
        if name.replace("-", "").lower() not in known:
            raise refuse("calibrating", path, f"unknown nuclide '{name}'; see qar nuclides")
    return [known[name.replace("-", "").lower()] for name in names]
