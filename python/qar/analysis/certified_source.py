"""A source with certified activities: the expected photons and the peaks that they belong to."""

import math
from datetime import datetime
from typing import AbstractSet, Dict, List, NamedTuple, Optional, Sequence, Tuple

from .results import Nuclide, Peak
from .summing import ANNIHILATION

MAX_AREA_UNCERTAINTY = 0.1
"""Peaks with a larger relative uncertainty of the area are not used."""

_MIN_SHARE = 0.04  # photons of a line over those of the strongest line of its nuclide
_REACH = 0.5  # distance of a line from its peak, in FWHM
_BLEND_REACH = 1.2  # distance in FWHM from which on a line does not disturb a peak
_MAX_BLEND = 0.02  # share of photons of lines that disturb a peak
_MAX_HALF_LIVES = 20.0


class CertifiedActivity(NamedTuple):
    """A line of a certificate."""

    nuclide: str
    activity: float  # Bq
    uncertainty: float  # one sigma, Bq
    reference: datetime  # the time to which the activity refers, in UTC


class Acquisition(NamedTuple):
    """The times of a measurement."""

    start: datetime  # in UTC
    real_time: float  # s
    live_time: float  # s


class SourceLine(NamedTuple):
    """A line of a certified nuclide."""

    nuclide: str
    number: int  # of the line in the nuclide
    energy: float  # keV
    photons: float  # emitted during the live time
    yield_uncertainty: float  # relative, one sigma
    activity_uncertainty: float  # relative, one sigma, common to the lines of the nuclide
    share: float  # photons over those of the strongest line of the nuclide


class PeakLines(NamedTuple):
    """A peak with the lines in it; reason: why it cannot be used, or empty."""

    peak: Peak
    lines: Tuple[SourceLine, ...]
    reason: str = ""


def source_lines(
    certificate: Sequence[CertifiedActivity], nuclides: Sequence[Nuclide], acquisition: Acquisition
) -> List[SourceLine]:
    """Return the lines of a certified source, with the photons emitted during the live time.

    The activity decays from its reference date to the start and during the real time. A nuclide
    decays with the half-life of its parent if the certificate contains that too.

    Raises ValueError if a nuclide is not among `nuclides` or has decayed.
    """
    known = {plain_name(nuclide.name): nuclide for nuclide in nuclides}
    certified = {plain_name(entry.nuclide) for entry in certificate}
    lines: List[SourceLine] = []
    for entry in certificate:
        nuclide = known.get(plain_name(entry.nuclide))
        if nuclide is None or not nuclide.lines:
            raise ValueError(f"the nuclide {entry.nuclide!r} is not in the nuclide library")
        ruling = _ruling(nuclide, known, certified)
        constant = math.log(2) / ruling.half_life
        elapsed = (acquisition.start - entry.reference).total_seconds()
        if abs(elapsed) > _MAX_HALF_LIVES * ruling.half_life:
            raise ValueError(
                f"{nuclide.name}: the reference date is more than {_MAX_HALF_LIVES:g} half-lives"
                " from the measurement"
            )
        decay = math.exp(-constant * elapsed) * mean_activity(constant * acquisition.real_time)
        half_life = (ruling.half_life_uncertainty or 0.0) / ruling.half_life
        uncertainty = math.hypot(entry.uncertainty / entry.activity, constant * elapsed * half_life)
        emitted = entry.activity * decay * acquisition.live_time
        strongest = max(line.photons for line in nuclide.lines)
        lines += [
            SourceLine(
                *(nuclide.name, number, line.energy, emitted * line.photons),
                *((line.photons_uncertainty or 0.0) / line.photons, uncertainty),
                line.photons / strongest,
            )
            for number, line in enumerate(nuclide.lines)
        ]
    return lines


def plain_name(name: str) -> str:
    """Return the name of a nuclide without case and hyphen: Cs-137 becomes cs137."""
    return name.replace("-", "").casefold()


def mean_activity(decays: float) -> float:
    """Return the mean activity during a time over that at its start.

    decays: decay constant times the time.
    """
    return -math.expm1(-decays) / decays if decays > 0 else 1.0


def _ruling(nuclide: Nuclide, known: Dict[str, Nuclide], certified: AbstractSet[str]) -> Nuclide:
    """Return the longest-lived certified nuclide of the chain that a nuclide ends."""
    ruling, parent = nuclide, known.get(plain_name(nuclide.parent or ""))
    seen = {nuclide.name}
    while parent is not None and parent.name not in seen:
        seen.add(parent.name)
        if plain_name(parent.name) in certified and parent.half_life > ruling.half_life:
            ruling = parent
        parent = known.get(plain_name(parent.parent or ""))
    return ruling


# ---- Peaks -------------------------------------------------------------------------------------


def peaks_with_lines(peaks: Sequence[Peak], lines: Sequence[SourceLine]) -> List[PeakLines]:
    """Return the peaks that lines belong to, by energy.

    A line belongs to the nearest peak if it is within half the FWHM.
    """
    own: Dict[int, List[SourceLine]] = {}
    disturbing: Dict[int, float] = {}
    for line in lines:
        number = _nearest(peaks, line.energy)
        if number is None:
            continue
        distance = abs(peaks[number].energy - line.energy) / peaks[number].fwhm
        if distance <= _REACH:
            own.setdefault(number, []).append(line)
        elif distance <= _BLEND_REACH:
            disturbing[number] = disturbing.get(number, 0.0) + line.photons
    return [
        PeakLines(
            peaks[number],
            tuple(own[number]),
            _reason(peaks[number], own[number], disturbing.get(number, 0.0)),
        )
        for number in sorted(own)
        if max(line.share for line in own[number]) >= _MIN_SHARE
    ]


def _nearest(peaks: Sequence[Peak], energy: float) -> Optional[int]:
    """Return the number of the peak with an area that is nearest to an energy, if any."""
    usable = [number for number, peak in enumerate(peaks) if peak.fwhm > 0 and peak.area > 0]
    return min(usable, key=lambda number: abs(peaks[number].energy - energy)) if usable else None


def _reason(peak: Peak, lines: Sequence[SourceLine], disturbing: float) -> str:
    if any(abs(line.energy - ANNIHILATION) < peak.fwhm for line in lines):
        return "annihilation"
    if not peak.area_uncertainty <= MAX_AREA_UNCERTAINTY * peak.area:
        return "area uncertain"
    if disturbing > _MAX_BLEND * sum(line.photons for line in lines):
        return "another line within the peak"
    return ""
