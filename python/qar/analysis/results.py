"""The analysis of a spectrum: nuclide library, engine and results, as plain records."""

import warnings
from typing import Any, Callable, Dict, Iterable, List, NamedTuple, Optional, Tuple, TypeVar

import pyORV3

from ..errors import check, logger
from ..records import RecordSource
from ..status import RANGE_PARTLY_SEARCHED, describe, unsigned
from ..values import is_known
from .calibration_notes import calibration_notes
from .provenance import Provenance, provenance_of

ENGINE, ENTRY_POINT = "peak_search", "searchPeaks"  # of the embedded library
NAN = float("nan")
_ORIGINS = {1: "annihilation", 2: "single escape", 3: "double escape", 4: "sum", 5: "X-ray"}


class GammaLine(NamedTuple):
    """A gamma line of a nuclide in the library. NaN or None: the file has no value."""

    energy: float = NAN  # keV
    photons: float = NAN  # per decay
    energy_uncertainty: Optional[float] = None  # one sigma, keV
    photons_uncertainty: Optional[float] = None  # one sigma, per decay
    key: Optional[bool] = None  # True if the nuclide is not identified without this line
    summing_factor: Optional[float] = None  # peak area with coincidence summing / without it
    summing_uncertainty: Optional[float] = None  # one sigma, relative, signed: common to all lines


class Nuclide(NamedTuple):
    """A nuclide of the library that an identification searches for."""

    name: str = ""
    half_life: float = NAN  # s
    lines: Tuple[GammaLine, ...] = ()
    half_life_uncertainty: Optional[float] = None  # one sigma, s
    parent: Optional[str] = None
    active: Optional[bool] = None  # False if the identification skips it


class Peak(NamedTuple):
    """A peak that an engine found. NaN, None or an empty string: the engine wrote no value."""

    energy: float = NAN  # keV
    centroid: float = NAN  # channels, counted from 1
    fwhm: float = NAN  # keV
    area: float = NAN  # counts, net
    area_uncertainty: float = NAN  # one sigma, counts
    continuum: float = NAN  # counts under the peak
    significance: float = NAN  # sigma
    nuclide: str = ""  # the assigned nuclide; empty: none
    left: Optional[int] = None  # first channel of its region, counted from 1
    right: Optional[int] = None  # last channel of its region
    chi_square: Optional[float] = None  # reduced, of the fit
    origin: Optional[int] = None  # 0 gamma line, 1 annihilation, 2 and 3 escapes, 4 sum, 5 X-ray

    @property
    def label(self) -> str:
        """The nuclide, otherwise the origin of the peak; empty if neither is known."""
        return self.nuclide or _ORIGINS.get(self.origin or 0, "")


class LineArea(NamedTuple):
    """Net counts at one line, or at several that overlap, from which an activity was computed."""

    energy: float = NAN  # keV, of the strongest of the lines
    area: float = NAN  # counts, before the blank is subtracted; may be negative
    area_uncertainty: float = NAN  # one sigma, counts
    blank: float = 0.0  # counts of the blank, scaled to the live time of the sample
    blank_uncertainty: float = 0.0  # one sigma, counts
    null_uncertainty: float = NAN  # that the area would have without net counts, counts


class IdentifiedNuclide(NamedTuple):
    """A nuclide of the library, found or not. NaN or None: the engine wrote no value.

    The activity is the primary result; it may be negative. Activities are in `unit`.
    """

    name: str = ""
    lines: int = 0  # number of lines that match a peak
    confidence: float = NAN  # 0 to 1
    energy: float = NAN  # of the strongest matching line, keV
    activity: Optional[float] = None
    activity_uncertainty: Optional[float] = None  # one sigma
    detection_limit: Optional[float] = None
    state: Optional[int] = None  # 0 not reviewed, 1 accepted, 2 rejected
    reason: str = ""  # why the confidence is not higher
    decision_threshold: Optional[float] = None
    best_estimate: Optional[float] = None  # not negative
    best_estimate_uncertainty: Optional[float] = None  # one sigma
    lower_limit: Optional[float] = None  # of the coverage interval
    upper_limit: Optional[float] = None
    unit: str = ""  # Bq, or Bq per unit of the sample quantity, such as Bq/kg
    activity_reason: str = ""  # why one of these values is missing
    blank: Optional[float] = None  # activity that was subtracted for the blank
    # The parts of activity_uncertainty, one sigma: their squares add up to its square.
    counts_uncertainty: Optional[float] = None
    blank_uncertainty: Optional[float] = None
    efficiency_uncertainty: Optional[float] = None
    summing_uncertainty: Optional[float] = None  # of the correction of coincidence summing
    yield_uncertainty: Optional[float] = None
    half_life_uncertainty: Optional[float] = None
    quantity_uncertainty: Optional[float] = None
    line_areas: Tuple[LineArea, ...] = ()


class Analysis(NamedTuple):
    """The results of an analysis; nuclides with the highest confidence come first."""

    peaks: Tuple[Peak, ...]
    nuclides: Tuple[IdentifiedNuclide, ...]
    not_found: Tuple[IdentifiedNuclide, ...] = ()  # with reasons and the same values
    notes: Tuple[
        str, ...
    ] = ()  # a line for each calibration that the engine estimated or corrected
    provenance: Provenance = Provenance()

    @property
    def has_activities(self) -> bool:
        """True if live time and efficiency gave activities, of some nuclides at least."""
        return any(nuclide.unit for nuclide in (*self.nuclides, *self.not_found))


# The parameter of each field of a record.
_PEAK = {
    "energy": "QAR_D_PEAKENERGY",
    "centroid": "QAR_D_PEAKCENTR",
    "fwhm": "QAR_D_PEAKFWHM",
    "area": "QAR_D_PEAKAREA",
    "area_uncertainty": "QAR_D_PEAKAREAU",
    "continuum": "QAR_D_PEAKCONT",
    "significance": "QAR_D_PEAKSIGNIF",
    "nuclide": "QAR_C_PEAKNUCL",
    "left": "QAR_L_PEAKLEFT",
    "right": "QAR_L_PEAKRIGHT",
    "chi_square": "QAR_F_PEAKCHISQ",
    "origin": "QAR_S_PEAKORIGIN",
}
_IDENTIFIED = {
    "name": "QAR_C_RESNUCLIDE",
    "lines": "QAR_L_RESLINES",
    "confidence": "QAR_D_RESCONF",
    "energy": "QAR_D_RESENERGY",
    "activity": "QAR_D_ACTIVITY",
    "activity_uncertainty": "QAR_D_ACTIVITYUNC",
    "detection_limit": "QAR_D_DETECTLIMIT",
    "state": "QAR_S_RESSTATE",
    "reason": "QAR_C_RESREASON",
    "activity_reason": "QAR_C_RESNOVALUE",
    "unit": "QAR_C_RESUNIT",
}
_ACTIVITY = {  # of a nuclide with a unit
    "decision_threshold": "QAR_D_RESTHRESH",
    "best_estimate": "QAR_D_RESBEST",
    "best_estimate_uncertainty": "QAR_D_RESBESTUNC",
    "lower_limit": "QAR_D_RESLOWER",
    "upper_limit": "QAR_D_RESUPPER",
    "blank": "QAR_D_RESBLANK",
    "counts_uncertainty": "QAR_D_RESUCOUNTS",
    "blank_uncertainty": "QAR_D_RESUBLANK",
    "efficiency_uncertainty": "QAR_D_RESUEFFIC",
    "summing_uncertainty": "QAR_D_RESUSUMMING",
    "yield_uncertainty": "QAR_D_RESUYIELD",
    "half_life_uncertainty": "QAR_D_RESUHALFLIFE",
    "quantity_uncertainty": "QAR_D_RESUQUANTITY",
}
_AREAS = {
    "energy": "QAR_D_RESLINE",
    "area": "QAR_D_RESAREA",
    "area_uncertainty": "QAR_D_RESAREAUNC",
    "blank": "QAR_D_RESBLKAREA",
    "blank_uncertainty": "QAR_D_RESBLKUNC",
    "null_uncertainty": "QAR_D_RESNULLUNC",
}
_LIBRARY = {
    "name": "QAR_C_NUCLNAME",
    "half_life": "QAR_D_HALFLIFE",
    "half_life_uncertainty": "QAR_D_HALFLIFEUNC",
    "parent": "QAR_C_NUCLPARENT",
    "active": "QAR_B_NUCLACTIVE",
}
_LINES = {
    "energy": "QAR_D_LINEENERGY",
    "photons": "QAR_D_LINEYIELD",
    "energy_uncertainty": "QAR_D_LINEUNC",
    "photons_uncertainty": "QAR_D_LINEYIELDUNC",
    "key": "QAR_B_LINEKEY",
    "summing_factor": "QAR_D_LINESUMFACT",
    "summing_uncertainty": "QAR_D_LINESUMUNC",
}
Record = TypeVar("Record")


def run_engine(
    source: RecordSource, engine: str = ENGINE, entry_point: str = ENTRY_POINT, options: int = 0
) -> None:
    """Run an engine on an open source. Raises EngineError if it fails or is missing.

    options: the engine's option word; qar.constants has the options of peak_search. Warns if
    peak_search could not search all channels.
    """
    logger.info("running %s.%s on %s", engine, entry_point, source.path)
    answer = pyORV3.executeNativeEngine(engine, entry_point, source.handle, options)
    if engine == ENGINE and unsigned(answer) == RANGE_PARTLY_SEARCHED:
        warnings.warn(f"{source.path}: {describe(answer).text}", stacklevel=2)
    else:
        check(answer, f"running {engine}.{entry_point} on", source.path)


def results(source: RecordSource) -> Analysis:
    """Return the peaks and nuclides in a source."""
    nuclides: List[IdentifiedNuclide] = []
    not_found: List[IdentifiedNuclide] = []
    for record, nuclide in enumerate(_records(source, IdentifiedNuclide, _IDENTIFIED), start=1):
        if nuclide.unit:
            nuclide = _with_activity(source, nuclide, record)
        # An engine writes no energy for a nuclide that it did not find.
        is_judged = nuclide.detection_limit is not None or nuclide.reason != ""
        is_missing = is_judged and not is_known(nuclide.energy)
        (not_found if is_missing else nuclides).append(nuclide)
    peaks = _records(source, Peak, _PEAK)
    return Analysis(
        peaks, tuple(nuclides), tuple(not_found), calibration_notes(source), provenance_of(source)
    )


def _with_activity(
    source: RecordSource, nuclide: IdentifiedNuclide, record: int
) -> IdentifiedNuclide:
    entries = range(1, source.entry_count(_AREAS["energy"], record) + 1)
    areas = (LineArea(**_fields(source, _AREAS, record, entry)) for entry in entries)
    measured = tuple(area for area in areas if is_known(area.energy))
    return nuclide._replace(line_areas=measured, **_fields(source, _ACTIVITY, record, 1))


def _records(
    source: RecordSource, kind: Callable[..., Record], columns: Dict[str, str]
) -> Tuple[Record, ...]:
    count = source.record_count(next(iter(columns.values())))
    return tuple(kind(**_fields(source, columns, record, 1)) for record in range(1, count + 1))


def _fields(
    source: RecordSource, columns: Dict[str, str], record: int, entry: int
) -> Dict[str, Any]:
    """Return the fields whose parameters have a value."""
    fields = {field: source.get(name, record, entry) for field, name in columns.items()}
    return {field: value for field, value in fields.items() if value is not None}


def nuclide_library(source: RecordSource) -> List[Nuclide]:
    """Return the nuclide library of a source."""
    nuclides = []
    for record in range(1, source.record_count(_LIBRARY["name"]) + 1):
        entries = range(1, source.entry_count(_LINES["energy"], record) + 1)
        lines = tuple(GammaLine(**_fields(source, _LINES, record, entry)) for entry in entries)
        nuclides.append(Nuclide(lines=lines, **_fields(source, _LIBRARY, record, 1)))
    return nuclides


def write_nuclide_library(source: RecordSource, nuclides: Iterable[Nuclide]) -> None:
    """Replace the nuclide library of a source."""
    source.clear(_LIBRARY["name"])
    for record, nuclide in enumerate(nuclides, start=1):
        _write(source, nuclide, _LIBRARY, record, 1)
        for entry, line in enumerate(nuclide.lines, start=1):
            _write(source, line, _LINES, record, entry)


def _write(
    source: RecordSource, fields: NamedTuple, columns: Dict[str, str], record: int, entry: int
) -> None:
    for field, name in columns.items():
        value = getattr(fields, field)
        if is_known(value):
            source[name, record, entry] = value
