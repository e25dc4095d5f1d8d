"""Results as tables of text, the same for the terminal and for a report."""

import math
from typing import Any, Callable, List, NamedTuple, Optional, Sequence

from ..analysis.results import Analysis, IdentifiedNuclide, Peak

SIGMAS_PER_FWHM = 1 / (2 * math.sqrt(2 * math.log(2)))


class Column(NamedTuple):
    """A column: its heading, the unit below it and the text of a cell."""

    title: str
    unit: str
    text: Callable[[Any], str]


def is_known(value: Optional[float]) -> bool:
    """Whether a number was written: neither None nor NaN."""
    return value is not None and value == value


def number(value: Optional[float], digits: int = 6) -> str:
    """The number with so many digits; a dash where it is not known."""
    return f"{value:.{digits}g}" if value is not None and value == value else "-"


def counted(count: int, thing: str) -> str:
    """So many things: 1 peak, 2 peaks."""
    return f"{count:,} {thing}" if count == 1 else f"{count:,} {thing}s"


def with_uncertainty(value: Optional[float], uncertainty: Optional[float]) -> str:
    """The value and its uncertainty with two digits of the latter: 12.34 ± 0.56."""
    if value is None or value != value:
        return "-"
    if uncertainty is None or not 0 < uncertainty < math.inf:
        return number(value)
    decimals = max(0, 1 - math.floor(math.log10(uncertainty)))
    return f"{value:.{decimals}f} ± {uncertainty:.{decimals}f}"


def relative_uncertainty(peak: Peak) -> float:
    """That of the net area; NaN where it is not known."""
    return peak.area_uncertainty / peak.area if peak.area else math.nan


def energy_uncertainty(peak: Peak) -> float:
    """The standard deviation of the energy in keV, estimated from the counts alone: a peak's
    place is known to its standard deviation times the relative uncertainty of its area.
    """
    return peak.fwhm * SIGMAS_PER_FWHM * relative_uncertainty(peak)


def width_uncertainty(peak: Peak) -> float:
    """As `energy_uncertainty` for the FWHM: FWHM times that of the area, by the root of 2."""
    return peak.fwhm * relative_uncertainty(peak) / math.sqrt(2)


def _region(peak: Peak) -> str:
    return "-" if peak.left is None or peak.right is None else f"{peak.left} to {peak.right}"


BADLY_DESCRIBED = 1.5  # reduced chi-square beyond which a fit does not describe its region


def _is_badly_described(peak: Peak) -> bool:
    return peak.chi_square is not None and peak.chi_square > BADLY_DESCRIBED


PEAKS = (
    Column("energy", "keV", lambda p: with_uncertainty(p.energy, energy_uncertainty(p))),
    Column("FWHM", "keV", lambda p: with_uncertainty(p.fwhm, width_uncertainty(p))),
    Column("net area", "counts", lambda p: with_uncertainty(p.area, p.area_uncertainty)),
    Column(
        "continuum", "counts", lambda p: with_uncertainty(p.continuum, math.sqrt(abs(p.continuum)))
    ),
    Column("significance", "sigma", lambda p: number(p.significance, 4)),
    Column("region", "channels", _region),
    Column(
        "chi square",
        "reduced",
        lambda p: number(p.chi_square, 3) + (" !" if _is_badly_described(p) else ""),
    ),
    Column("assigned", "", lambda p: p.label or "-"),
)

_STATES = {0: "not reviewed", 1: "accepted", 2: "rejected"}


def _state(nuclide: IdentifiedNuclide) -> str:
    return "-" if nuclide.state is None else _STATES.get(nuclide.state, str(nuclide.state))


NUCLIDES = (
    Column("nuclide", "", lambda n: str(n.name)),
    Column("lines", "", lambda n: str(n.lines)),
    Column("confidence", "0 to 1", lambda n: number(n.confidence, 3)),
    Column("strongest line", "keV", lambda n: number(n.energy)),
    Column("activity", "Bq", lambda n: with_uncertainty(n.activity, n.activity_uncertainty)),
    Column("detection limit", "Bq", lambda n: number(n.detection_limit, 3)),
    Column("state", "", _state),
)


def cells(columns: Sequence[Column], records: Sequence[Any]) -> List[List[str]]:
    """The texts of a table, one list for each record."""
    return [[column.text(record) for column in columns] for record in records]


def lines(columns: Sequence[Column], records: Sequence[Any]) -> List[str]:
    """The table for a terminal: headings, units, one line for each record."""
    rows = [[c.title for c in columns], [c.unit for c in columns], *cells(columns, records)]
    widths = [max(map(len, column)) for column in zip(*rows)]
    return ["  ".join(cell.rjust(w) for cell, w in zip(row, widths)).rstrip() for row in rows]


def results(analysis: Analysis) -> List[str]:
    """Peaks, nuclides, and the detection limits of those that were not found, for a terminal."""
    peaks, nuclides = analysis.peaks, analysis.nuclides
    found = [counted(len(peaks), "peak"), *(lines(PEAKS, peaks) if peaks else [])]
    if any(map(_is_badly_described, peaks)):
        found.append("!: the fit does not describe its region, uncertainties are enlarged")
    found += [counted(len(nuclides), "nuclide"), *(lines(NUCLIDES, nuclides) if nuclides else [])]
    if analysis.not_found:
        found.append("not found, with their detection limits in Bq:")
        limits = [f"{n.name:<9}{number(n.detection_limit, 3):>9}" for n in analysis.not_found]
        found += ["  ".join(limits[start : start + 4]) for start in range(0, len(limits), 4)]
    return found
