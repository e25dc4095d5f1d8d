"""The analysis of a spectrum: a nuclide library in, an engine, its results as plain records out."""

import warnings
from typing import (
    TYPE_CHECKING,
    Any,
    Dict,
    Iterable,
    List,
    NamedTuple,
    Optional,
    Tuple,
    Type,
    TypeVar,
)

import pyORV3

from ..errors import check, logger
from ..status import RANGE_PARTLY_SEARCHED, describe, unsigned

if TYPE_CHECKING:
    from ..source import DataSource

ENGINE, ENTRY_POINT = "peak_search", "searchPeaks"  # of the embedded library
NAN = float("nan")
_ORIGINS = {1: "annihilation", 2: "single escape", 3: "double escape", 4: "sum"}


class GammaLine(NamedTuple):
    """A gamma line of a nuclide in the library; uncertainties are one sigma. NaN or None: the
    file does not say.
    """

    energy: float = NAN  # keV
    photons: float = NAN  # per decay
    energy_uncertainty: Optional[float] = None  # keV
    photons_uncertainty: Optional[float] = None  # per decay
    key: Optional[bool] = None  # whether the nuclide cannot be identified without the line


class Nuclide(NamedTuple):
    """A nuclide of the library that the identification works with."""

    name: str = ""
    half_life: float = NAN  # s
    lines: Tuple[GammaLine, ...] = ()
    half_life_uncertainty: Optional[float] = None  # one sigma, s
    parent: Optional[str] = None
    active: Optional[bool] = None  # None as True: the identification looks for it


class Peak(NamedTuple):
    """A peak that an engine found. NaN, None or an empty text: the engine did not write it."""

    energy: float = NAN  # keV
    centroid: float = NAN  # channels, counted from 1
    fwhm: float = NAN  # keV
    area: float = NAN  # counts, net
    area_uncertainty: float = NAN  # one sigma, counts
    continuum: float = NAN  # counts under the peak
    significance: float = NAN  # sigma
    nuclide: str = ""  # that it was assigned to; empty: none
    left: Optional[int] = None  # first channel of its region, counted from 1
    right: Optional[int] = None  # last channel of its region
    chi_square: Optional[float] = None  # reduced, of the fit
    origin: Optional[int] = None  # 0 gamma line, 1 annihilation, 2 and 3 escapes, 4 sum

    @property
    def label(self) -> str:
        """The nuclide, else what the peak is known as; empty for a line that nothing explains."""
        return self.nuclide or _ORIGINS.get(self.origin or 0, "")


class IdentifiedNuclide(NamedTuple):
    """A nuclide that an engine identified, the most confident first. NaN or None: not written."""

    name: str = ""
    lines: int = 0  # that match a peak
    confidence: float = NAN  # 0 to 1
    energy: float = NAN  # of the strongest matching line, keV
    activity: Optional[float] = None  # Bq
    activity_uncertainty: Optional[float] = None  # one sigma, Bq
    detection_limit: Optional[float] = None  # Bq
    state: Optional[int] = None  # 0 not reviewed, 1 accepted, 2 rejected


class Analysis(NamedTuple):
    """The results of an analysis."""

    peaks: Tuple[Peak, ...]
    nuclides: Tuple[IdentifiedNuclide, ...]
    not_found: Tuple[IdentifiedNuclide, ...] = ()  # looked for; with their detection limits


# Which parameter each field of a record stands in.
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
}
Record = TypeVar("Record", bound=NamedTuple)


def run_engine(
    source: "DataSource", engine: str = ENGINE, entry_point: str = ENTRY_POINT, options: int = 0
) -> None:
    """Runs an engine on an open source; EngineError where it fails or is missing.

    A warning where peak_search did its work but could not look for peaks everywhere.

    options: the engine's option word; see qar.constants for those of peak_search.
    """
    logger.info("running %s.%s on %s", engine, entry_point, source.path)
    answer = pyORV3.executeNativeEngine(engine, entry_point, source.handle, options)
    if engine == ENGINE and unsigned(answer) == RANGE_PARTLY_SEARCHED:
        warnings.warn(f"{source.path}: {describe(answer).text}", stacklevel=2)
    else:
        check(answer, f"running {engine}.{entry_point} on", source.path)


def results(source: "DataSource") -> Analysis:
    """The peaks and nuclides that the file has."""
    found: List[IdentifiedNuclide] = []
    not_found: List[IdentifiedNuclide] = []
    for nuclide in _records(source, IdentifiedNuclide, _IDENTIFIED):
        # Of what it did not find an engine knows a limit and no line.
        is_missing = nuclide.detection_limit is not None and nuclide.energy != nuclide.energy
        (not_found if is_missing else found).append(nuclide)
    return Analysis(_records(source, Peak, _PEAK), tuple(found), tuple(not_found))


def _records(
    source: "DataSource", kind: Type[Record], columns: Dict[str, str]
) -> Tuple[Record, ...]:
    count = source.record_count(next(iter(columns.values())))
    return tuple(kind(**_fields(source, columns, record, 1)) for record in range(1, count + 1))


def _fields(
    source: "DataSource", columns: Dict[str, str], record: int, entry: int
) -> Dict[str, Any]:
    """The fields whose parameters have a value."""
    found = {field: source.get(name, record, entry) for field, name in columns.items()}
    return {field: value for field, value in found.items() if value is not None}


def nuclide_library(source: "DataSource") -> List[Nuclide]:
    """The nuclide library of a file, which the identification works with."""
    found = []
    for record in range(1, source.record_count(_LIBRARY["name"]) + 1):
        entries = range(1, source.entry_count(_LINES["energy"], record) + 1)
        lines = tuple(GammaLine(**_fields(source, _LINES, record, entry)) for entry in entries)
        found.append(Nuclide(lines=lines, **_fields(source, _LIBRARY, record, 1)))
    return found


def write_nuclide_library(source: "DataSource", nuclides: Iterable[Nuclide]) -> None:
    """Replaces the nuclide library of a file."""
    source.clear(_LIBRARY["name"])
    for record, nuclide in enumerate(nuclides, start=1):
        _write(source, nuclide, _LIBRARY, record, 1)
        for entry, line in enumerate(nuclide.lines, start=1):
            _write(source, line, _LINES, record, entry)


def _write(
    source: "DataSource", fields: NamedTuple, columns: Dict[str, str], record: int, entry: int
) -> None:
    for field, name in columns.items():
        value = getattr(fields, field)
        if value is not None and value == value:  # not NaN
            source[name, record, entry] = value
