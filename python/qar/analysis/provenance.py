"""Date, program, library, calibrations and blank of an analysis."""

import contextlib
from datetime import datetime, timezone
from typing import Any, Dict, NamedTuple, Optional, Tuple

from ..errors import NotFoundError
from ..records import RecordSource
from ..version import __version__


class Provenance(NamedTuple):
    """The origin of results. Empty or None: not known, or not used."""

    analysed: str = ""  # the time, such as 2026-11-25T21:02:12.000Z
    version: str = ""  # of the program
    library: str = ""  # name and version of the built-in library; empty: that of the file
    blank: str = ""  # name of the blank that was subtracted
    blank_live_time: Optional[float] = None  # s
    energy_calibration: Tuple[float, ...] = ()  # coefficients, see Calibration
    shape_calibration: Tuple[float, ...] = ()
    efficiency_calibration: Tuple[float, ...] = ()
    energy_calibration_time: str = ""
    efficiency_calibration_time: str = ""
    geometry: str = ""  # of the efficiency calibration


_VALUES = {
    "analysed": "QAR_T_ANALYSED",
    "version": "QAR_C_ANVERSION",
    "library": "QAR_C_ANLIBRARY",
    "blank": "QAR_C_ANBLANK",
    "blank_live_time": "QAR_D_ANBLANKLIVE",
    "energy_calibration_time": "QAR_T_ENERGYTIME",
    "efficiency_calibration_time": "QAR_T_EFFICTIME",
    "geometry": "QAR_C_CALGEOMETRY",
}
_CALIBRATIONS = {
    "energy_calibration": "QAR_D_ENERGYCAL",
    "shape_calibration": "QAR_D_SHAPECAL",
    "efficiency_calibration": "QAR_D_EFFICCAL",
}


def provenance_of(source: RecordSource) -> Provenance:
    """Return the origin of the results in a source."""
    values = {field: _stored(source, name) for field, name in _VALUES.items()}
    known: Dict[str, Any] = {field: value for field, value in values.items() if value is not None}
    if not known.get("blank"):
        known.pop("blank_live_time", None)
    known.update((field, tuple(source.column(name))) for field, name in _CALIBRATIONS.items())
    return Provenance(**known)


def record_analysis(source: RecordSource) -> None:
    """Store the time and the version of the program, if the dictionary has their parameters."""
    with contextlib.suppress(NotFoundError):
        source["QAR_T_ANALYSED"] = datetime.now(timezone.utc)
        source["QAR_C_ANVERSION"] = f"qar {__version__}"


def _stored(source: RecordSource, name: str) -> Any:
    try:
        return source.get(name)
    except NotFoundError:  # the dictionary of another suite may lack it
        return None
