"""Measurements in QAR files: reading and writing, with notes of everything that is left out."""

import contextlib
import math
import os
from datetime import datetime, timedelta, timezone
from typing import Any, Dict, Iterator, List, Optional, Set, Tuple

from .. import dictionary
from ..analysis import calibration
from ..display.tables import counted
from ..errors import NotFoundError
from ..records import RecordSource
from ..values import CODE_PAGE, MAX_DATE, MAX_WRITABLE_CHANNELS, MIN_DATE, datetime_of
from .measurement import FormatError, Measurement, checked

SUFFIX = ".qar"

_STRINGS = {  # the parameters of the fields of a measurement
    "title": "QAR_C_MEASNAME",
    "detector": "QAR_C_DETECTOR",
    "instrument": "QAR_C_INSTRUMENT",
    "remarks": "QAR_C_COMMENT",
}
_TIMES = {"live_time": "QAR_D_LIVETIME", "real_time": "QAR_D_REALTIME"}
_CALIBRATIONS = {field: calibration.PARAMETERS[field] for field in ("energy", "shape")}
_START, _STOP, _TOTAL = "QAR_T_ACQSTART", "QAR_T_ACQSTOP", "QAR_Q_TOTALCOUNT"

# These follow from the other values, so nothing is lost without them.
_DERIVED = {"QAR_L_CHANNELS", _TOTAL, "QAR_F_DEADTIME"}
_MAX_NAMES = 5  # in a note


def recognises(start: bytes, suffix: str) -> bool:
    """Return True if a file is a QAR file, from its first bytes and its suffix.

    The suffix is enough, because the files of the suite's own library have other first bytes.
    """
    return suffix == SUFFIX or start.startswith(b"SQLite format 3\0")


# ---- Reading -----------------------------------------------------------------------------------


def read(path: str) -> List[Measurement]:
    """Return the measurement in a QAR file; without a spectrum it has no counts.

    Raises QarError.
    """
    with RecordSource(path) as source:
        return [measurement_of(source)]


def measurement_of(source: RecordSource) -> Measurement:
    """Return the measurement in an open source."""
    has_spectrum = source.record_count("QAR_CLS_SPECTRUM") > 0
    start = source.get(_START)
    fields: Dict[str, Any] = {
        **{field: source.get(name, default="") for field, name in _STRINGS.items()},
        **{field: _time(source.get(name)) for field, name in _TIMES.items()},
        **{field: _finite(source.column(name)) for field, name in _CALIBRATIONS.items()},
    }
    return Measurement(
        counts=source.spectrum() if has_spectrum else (),
        start=None if start is None else datetime_of(start),
        name=os.path.splitext(os.path.basename(source.path))[0],
        qar_file=os.path.abspath(source.path),
        **fields,
    )


def _time(seconds: Optional[float]) -> Optional[float]:
    """Return a time, or None for a number that is not a time."""
    return seconds if seconds is not None and 0 <= seconds < math.inf else None


def _finite(coefficients: List[float]) -> Tuple[float, ...]:
    """Return coefficients, or an empty tuple if one of them is not a number."""
    return tuple(coefficients) if all(map(math.isfinite, coefficients)) else ()


def left_out(measurement: Measurement) -> List[str]:
    """Return the content of a measurement's QAR file that no other format stores."""
    if not measurement.qar_file:
        return []
    with RecordSource(measurement.qar_file) as source:
        return list(_left_out(source, measurement))


def _left_out(source: RecordSource, measurement: Measurement) -> Iterator[str]:
    stored: Set[str] = {_START, *_STRINGS.values(), *_DERIVED}
    for field, name in (*_TIMES.items(), *_CALIBRATIONS.items()):
        if getattr(measurement, field) not in (None, ()):
            stored.add(name)
    if _stop_follows(source, measurement):
        stored.add(_STOP)
    single: List[str] = []
    for name, number in dictionary.classes().items():
        records = source.record_count(number)
        if not records or name == "QAR_CLS_SPECTRUM":
            continue
        if records == 1 and dictionary.parameters_of(number):
            values = source.parameters(number)
            single += [parameter.name for parameter, _ in values if parameter.name not in stored]
        else:
            yield f"left out: {counted(records, 'record')} of {name}"
    if single:
        more = len(single) - _MAX_NAMES
        yield "left out: " + ", ".join(single[:_MAX_NAMES]) + (f" and {more} more" * (more > 0))


def _stop_follows(source: RecordSource, measurement: Measurement) -> bool:
    """Return True if the end is the start plus the real time, to the millisecond."""
    stop = source.get(_STOP)
    if stop is None or measurement.start is None or measurement.real_time is None:
        return stop is None
    try:
        expected = measurement.start + timedelta(seconds=measurement.real_time)
    except (OverflowError, ValueError):
        return False
    return abs(datetime_of(stop) - expected) <= timedelta(milliseconds=1)


# ---- Writing -----------------------------------------------------------------------------------


def write(measurement: Measurement, path: str) -> List[str]:
    """Create a QAR file of a measurement; return notes of everything that was changed or left out.

    A measurement that was read from a QAR file keeps everything else in that file. Raises
    FormatError if the spectrum is too long, QarError.
    """
    notes: List[str] = []
    with RecordSource(path, "x") as source:
        unchanged = Measurement(())
        if measurement.qar_file:
            with RecordSource(measurement.qar_file) as original:
                original.copy_to(source)
                unchanged = measurement_of(original)
        _write(measurement, unchanged, source, notes)
    return notes


def _write(
    measurement: Measurement, unchanged: Measurement, source: RecordSource, notes: List[str]
) -> None:
    """Write the fields of a measurement that differ from the content of the source."""

    def differs(field: str) -> bool:
        return bool(getattr(measurement, field) != getattr(unchanged, field))

    if differs("counts") or not measurement.qar_file:
        channels = len(checked(measurement).counts)
        if channels > MAX_WRITABLE_CHANNELS:
            raise FormatError(
                f"{channels:,} channels; a QAR file stores at most {MAX_WRITABLE_CHANNELS:,}"
            )
        source.set_spectrum(measurement.counts)
        with _if_known(notes):
            source[_TOTAL] = sum(measurement.counts)
    for field, name in _STRINGS.items():
        if differs(field):
            with _if_known(notes):
                source[name] = _fitting(getattr(measurement, field), field, name, notes)
    for field, name in (*_TIMES.items(), *_CALIBRATIONS.items()):
        value = getattr(measurement, field)
        if differs(field) and value is not None:
            with _if_known(notes):
                source.update({name: value})
    if differs("start") and measurement.start is not None:
        _write_start(measurement.start, source, notes)


def _write_start(start: datetime, source: RecordSource, notes: List[str]) -> None:
    start = start.astimezone(timezone.utc)
    if not MIN_DATE <= start <= MAX_DATE:
        notes.append(f"left out: the start, {start.date()}, which no QAR file can store")
        return
    if start.microsecond % 1000:
        notes.append("the start is stored to the millisecond")
    with _if_known(notes):
        source[_START] = start


@contextlib.contextmanager
def _if_known(notes: List[str]) -> Iterator[None]:
    """Note a parameter that the dictionary in use does not have, such as that of another suite."""
    try:
        yield
    except NotFoundError as error:
        notes.append(f"left out: {error.argument}, {error.text}")


def _fitting(text: str, field: str, name: str, notes: List[str]) -> str:
    """Return a string in the code page and with the maximum length of a parameter."""
    result = text.replace("\0", "?").encode(CODE_PAGE, "replace").decode(CODE_PAGE)
    if result != text:
        notes.append(f"the {field}: characters that a QAR file cannot store become ?")
    max_length = dictionary.describe(name).length or len(result)
    if len(result) > max_length:
        notes.append(f"the {field} is cut off at {max_length} of {len(result)} characters")
    return result[:max_length]
