"""Results as tables of strings, for the terminal and for reports."""

import itertools
import math
import textwrap
from typing import Any, Callable, List, NamedTuple, Optional, Sequence

from ..analysis.calibration import FWHM_PER_SIGMA
from ..analysis.provenance import Provenance
from ..analysis.results import Analysis, IdentifiedNuclide, Peak
from ..values import is_known
from .printable import printable


class Column(NamedTuple):
    """A column: its heading, the unit below it and the function that gives a cell."""

    title: str
    unit: str
    text: Callable[[Any], str]


def number(value: Optional[float], digits: int = 6) -> str:
    """Return a number with a number of digits, or a dash if it is not known."""
    return f"{value:.{digits}g}" if is_known(value) else "-"


def counted(count: int, thing: str) -> str:
    """Return a count with its noun: 1 peak, 2 peaks."""
    return f"{count:,} {thing}" if count == 1 else f"{count:,} {thing}s"


def with_uncertainty(value: Optional[float], uncertainty: Optional[float]) -> str:
    """Return a value and its uncertainty, with two digits of the latter: 12.34 ± 0.56."""
    if not is_known(value):
        return "-"
    if uncertainty is None or not 0 < uncertainty < math.inf:
        return number(value)
    decimals = max(0, 1 - math.floor(math.log10(uncertainty)))
    return f"{value:.{decimals}f} ± {uncertainty:.{decimals}f}"


def relative_uncertainty(peak: Peak) -> float:
    """Return the relative uncertainty of the net area; NaN if it is not known."""
    return peak.area_uncertainty / peak.area if peak.area else math.nan


def energy_uncertainty(peak: Peak) -> float:
    """Return the standard deviation of the energy in keV, estimated from the counts alone.

    It is the standard deviation of the peak times the relative uncertainty of its area.
    """
    return peak.fwhm / FWHM_PER_SIGMA * relative_uncertainty(peak)


def width_uncertainty(peak: Peak) -> float:
    """Return the standard deviation of the FWHM in keV, estimated from the counts alone."""
    return peak.fwhm * relative_uncertainty(peak) / math.sqrt(2)


def _region(peak: Peak) -> str:
    return "-" if peak.left is None or peak.right is None else f"{peak.left} to {peak.right}"


MAX_CHI_SQUARE = 1.5  # the largest reduced chi-square of a fit that describes its region


def is_poor_fit(peak: Peak) -> bool:
    """Return True if the fit does not describe its region."""
    return peak.chi_square is not None and peak.chi_square > MAX_CHI_SQUARE


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
        lambda p: number(p.chi_square, 3) + (" !" if is_poor_fit(p) else ""),
    ),
    Column("assigned", "", lambda p: printable(p.label) or "-"),
)

_STATES = {0: "not reviewed", 1: "accepted", 2: "rejected"}


def _state(nuclide: IdentifiedNuclide) -> str:
    return "-" if nuclide.state is None else _STATES.get(nuclide.state, str(nuclide.state))


def _activity(nuclide: IdentifiedNuclide) -> str:
    """Return the activity with its uncertainty, or the reason why it is not known."""
    if is_known(nuclide.activity) or not nuclide.activity_reason:
        return with_uncertainty(nuclide.activity, nuclide.activity_uncertainty)
    return printable(nuclide.activity_reason)


def _best_estimate(nuclide: IdentifiedNuclide) -> str:
    return with_uncertainty(nuclide.best_estimate, nuclide.best_estimate_uncertainty)


def _limits(nuclide: IdentifiedNuclide) -> str:
    if not is_known(nuclide.lower_limit):
        return "-"
    return f"{number(nuclide.lower_limit, 3)} to {number(nuclide.upper_limit, 3)}"


_NAME = Column("nuclide", "", lambda n: printable(n.name))
_UNIT = Column("unit", "", lambda n: printable(n.unit) or "-")
_REASON = Column("reason", "", lambda n: printable(n.reason) or "-")
ACTIVITIES = (
    Column("activity", "", _activity),
    Column("decision threshold", "", lambda n: number(n.decision_threshold, 3)),
    Column("detection limit", "", lambda n: number(n.detection_limit, 3)),
    Column("best estimate", "", _best_estimate),
    Column("coverage interval", "", _limits),
    _UNIT,
)
"""The values of a nuclide that an activity measurement gives, found or not."""

_EVIDENCE = (
    _NAME,
    Column("lines", "", lambda n: str(n.lines)),
    Column("confidence", "0 to 1", lambda n: number(n.confidence, 3)),
    Column("strongest line", "keV", lambda n: number(n.energy)),
)
_STATE = Column("state", "", _state)
NUCLIDES = (*_EVIDENCE, *ACTIVITIES, _STATE)
NOT_FOUND = (
    _NAME,
    *ACTIVITIES,
    Column("confidence", "0 to 1", lambda n: number(n.confidence, 3)),
    _REASON,
)
# For a terminal: best estimate and coverage interval matter little if a nuclide is not found.
_NOT_FOUND_SHORT = (_NAME, *ACTIVITIES[:3], _UNIT, _REASON)


def cells(columns: Sequence[Column], records: Sequence[Any]) -> List[List[str]]:
    """Return the cells of a table, one list for each record."""
    return [[column.text(record) for column in columns] for record in records]


_MAX_TITLE = 12  # letters of a title that never continues on the next line


class Heading(str):
    """A line above the rows of a table, which a terminal may show in bold."""


def _unbroken(title: str) -> List[str]:
    """Return the parts of a title that stay in one line."""
    return title.split() if len(title) > _MAX_TITLE else [title]


def lines(columns: Sequence[Column], records: Sequence[Any]) -> List[str]:
    """Return a table for a terminal: headings, units, one line for each record.

    A long title that is wider than the cells below it continues on the next line.
    """
    units = [[column.unit for column in columns]] if any(c.unit for c in columns) else []
    rows = [*units, *cells(columns, records)]
    widths = [
        max(map(len, (*below, *_unbroken(column.title))))
        for column, below in zip(columns, zip(*rows))
    ]
    titles = [textwrap.wrap(column.title, width) for column, width in zip(columns, widths)]
    heads = [*itertools.zip_longest(*titles, fillvalue="")]
    texts = [
        "  ".join(cell.rjust(width) for cell, width in zip(row, widths)).rstrip()
        for row in (*heads, *rows)
    ]
    count = len(heads) + len(units)
    return [*map(Heading, texts[:count]), *texts[count:]]


def results(analysis: Analysis) -> List[str]:
    """Return the lines of all results for a terminal: peaks, nuclides found and not, origin."""
    peaks, nuclides = analysis.peaks, analysis.nuclides
    result = [*analysis.notes, counted(len(peaks), "peak"), *(lines(PEAKS, peaks) if peaks else [])]
    if any(map(is_poor_fit, peaks)):
        result.append("!: the fit does not describe its region, uncertainties are enlarged")
    result += [counted(len(nuclides), "nuclide"), *_found(analysis)]
    if analysis.has_activities and analysis.not_found:
        result += ["not found:", *lines(_NOT_FOUND_SHORT, analysis.not_found)]
    return [*result, *_origin(analysis.provenance)]


def _found(analysis: Analysis) -> List[str]:
    """Return a table of the nuclides that were found, without columns that have no value."""
    nuclides = analysis.nuclides
    if not nuclides:
        return []
    columns = (
        *_EVIDENCE,
        *(ACTIVITIES if analysis.has_activities else ()),
        *([_STATE] if any(nuclide.state for nuclide in nuclides) else ()),
    )
    reasons = {} if analysis.has_activities else {n.activity_reason: None for n in nuclides}
    return [
        *lines(columns, nuclides),
        *(f"activities: {printable(reason)}" for reason in reasons if reason),
    ]


def _origin(provenance: Provenance) -> List[str]:
    """Return lines on the time, program, library and blank of an analysis."""
    if not provenance.analysed:
        return []
    library = provenance.library or "that of the file"
    blank = printable(provenance.blank) or "none"
    if provenance.blank_live_time:
        blank += f", live time {number(provenance.blank_live_time)} s"
    return [
        f"analysed {provenance.analysed} by {provenance.version}; nuclide library: {library};"
        f" blank: {blank}"
    ]
