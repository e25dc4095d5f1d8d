"""Measurements into QAR files and out of them.

    for measurement in qar.formats.read("portal.n42"):
        qar.transfer.conversion.store(measurement, measurement.name + ".qar")

Between the two worlds what one cannot carry is told, never dropped in silence: each function that
could lose something returns it as notes, a line for each.
"""

import contextlib
import os
import re
from datetime import timedelta, timezone
from typing import Dict, Iterator, List, Set, Tuple

from .. import dictionary, formats
from ..atomic_files import Path, new_file
from ..dictionary import Key
from ..errors import NotFoundError
from ..formats import FormatError, Measurement
from ..formats.measurement import checked
from ..source import DataSource
from ..source import open as open_source
from ..values import CODE_PAGE, FIRST_DATE, LAST_DATE, MOST_CHANNELS, datetime_of

QAR_SUFFIX = ".qar"

_TEXTS = {  # the fields of a measurement and where a QAR file has them
    "title": "QAR_C_MEASNAME",
    "detector": "QAR_C_DETECTOR",
    "instrument": "QAR_C_INSTRUMENT",
    "remarks": "QAR_C_COMMENT",
}
_TIMES = {"live_time": "QAR_D_LIVETIME", "real_time": "QAR_D_REALTIME"}
_CALIBRATIONS = {"energy": "QAR_D_ENERGYCAL", "shape": "QAR_D_SHAPECAL"}
_START, _STOP = "QAR_T_ACQSTART", "QAR_T_ACQSTOP"

# Follow from the rest: nothing is lost without them.
_DERIVED = {"QAR_L_CHANNELS", "QAR_Q_TOTALCOUNT", "QAR_F_DEADTIME"}
_MOST_NAMES_TOLD = 5


# ---- Into a QAR file ---------------------------------------------------------------------------


def store(measurement: Measurement, path: Path, replace: bool = False) -> List[str]:
    """Makes a QAR file of a measurement; returns what it could not take over as it was.

    The file appears complete or not at all. FormatError: more than 32,768 channels;
    FileExistsError: the name is taken and is not to be replaced; QarError as from a DataSource.
    """
    if len(checked(measurement).counts) > MOST_CHANNELS:
        raise FormatError(
            f"{len(measurement.counts):,} channels; a QAR file takes {MOST_CHANNELS:,}"
        )
    notes: List[str] = []
    with new_file(path, replace) as temporary, open_source(temporary, "x") as source:
        _write(measurement, source, notes)
    return notes


def _write(measurement: Measurement, source: DataSource, notes: List[str]) -> None:
    source.set_spectrum(measurement.counts)
    with _known(notes):
        source["QAR_Q_TOTALCOUNT"] = sum(measurement.counts)
    for field, name in _TEXTS.items():
        if getattr(measurement, field):
            with _known(notes):
                source[name] = _fitting(getattr(measurement, field), field, name, notes)
    for field, name in (*_TIMES.items(), *_CALIBRATIONS.items()):
        if getattr(measurement, field) not in (None, ()):
            with _known(notes):
                source.update({name: getattr(measurement, field)})
    start = measurement.start
    if start is not None and not FIRST_DATE <= start <= LAST_DATE:
        notes.append(f"left out: the start, {start.date()}, which no QAR file can hold")
    elif start is not None:
        start = start.astimezone(timezone.utc)
        if start.microsecond % 1000:
            notes.append("the start is kept to the millisecond")
        with _known(notes):
            write_date(source, _START, 1, 1, start.isoformat(timespec="milliseconds")[:23] + "Z")


def write_date(source: DataSource, key: Key, record: int, entry: int, text: str) -> None:
    """Writes a date so that its text comes back as it is.

    A date is stored as a floating-point number that may lie just below the millisecond, and what
    is below a millisecond is cut off when it is read. Such a one is written five microseconds later.
    """
    source[key, record, entry] = text
    if re.search(r"\.\d{3}Z$", text) and source[key, record, entry] != text:
        source[key, record, entry] = text[:-1] + "005Z"


@contextlib.contextmanager
def _known(notes: List[str]) -> Iterator[None]:
    """Notes a parameter that the dictionary in use has not, that of another suite for instance."""
    try:
        yield
    except NotFoundError as error:
        notes.append(f"left out: {error.argument}, {error.text}")


def _fitting(text: str, field: str, name: str, notes: List[str]) -> str:
    """The text as the parameter can take it."""
    plain = text.replace("\0", "?").encode(CODE_PAGE, "replace").decode(CODE_PAGE)
    if plain != text:
        notes.append(f"the {field}: characters that a QAR file cannot hold become ?")
    most = dictionary.describe(name).length or len(plain)
    if len(plain) > most:
        notes.append(f"the {field} is cut off at {most} of {len(plain)} characters")
    return plain[:most]


# ---- Out of a QAR file -------------------------------------------------------------------------


def measurement_of(source: DataSource) -> Measurement:
    """The measurement in an open data source; its notes say what of the source is not in it.

    NotFoundError: there is no spectrum. FormatError: a content is negative.
    """
    spectrum = source.spectrum()
    start = source.get(_START)
    stem = os.path.splitext(os.path.basename(source.path))[0]
    fields: Dict[str, object] = {
        **{field: source.get(name, default="") for field, name in _TEXTS.items()},
        **{field: source.get(name) for field, name in _TIMES.items()},
        **{field: tuple(source.column(name)) for field, name in _CALIBRATIONS.items()},
    }
    measurement = Measurement(
        counts=spectrum,
        start=None if start is None else datetime_of(start),
        name=stem,
        **fields,  # type: ignore[arg-type]
    )
    return checked(measurement)._replace(notes=tuple(_left_out(source, measurement)))


def load(path: Path) -> Measurement:
    """The measurement in a QAR file. Raises as `measurement_of` and `qar.open` do."""
    with open_source(path) as source:
        return measurement_of(source)


def _left_out(source: DataSource, measurement: Measurement) -> Iterator[str]:
    carried: Set[str] = {
        _START,
        *_TEXTS.values(),
        *_TIMES.values(),
        *_CALIBRATIONS.values(),
        *_DERIVED,
    }
    if _stop_follows(source, measurement):
        carried.add(_STOP)
    single: List[str] = []
    for name, number in dictionary.classes().items():
        records = source.record_count(number)
        if not records or name == "QAR_CLS_SPECTRUM":
            continue
        parameters = dictionary.parameters_of(number)
        if records == 1 and parameters:
            values = source.parameters(number)
            single += [parameter.name for parameter, _ in values if parameter.name not in carried]
        else:
            yield f"left out: {records:,} records of {name}"
    if single:
        more = len(single) - _MOST_NAMES_TOLD
        told = ", ".join(single[:_MOST_NAMES_TOLD]) + (f" and {more} more" if more > 0 else "")
        yield f"left out: {told}"


def _stop_follows(source: DataSource, measurement: Measurement) -> bool:
    """Whether the end is the start and the real time, to the millisecond."""
    stop = source.get(_STOP)
    if stop is None or measurement.start is None or measurement.real_time is None:
        return stop is None
    try:
        expected = measurement.start + timedelta(seconds=measurement.real_time)
    except OverflowError:
        return False
    return abs(datetime_of(stop) - expected) <= timedelta(milliseconds=1)


# ---- From any file to any file -----------------------------------------------------------------


def is_qar_file(path: Path) -> bool:
    """Whether a file is not one of the formats that are text: then the library shall judge it."""
    if os.path.splitext(os.fspath(path))[1].lower() == QAR_SUFFIX:
        return True
    with open(path, "rb") as file:
        return file.read(16).startswith(b"SQLite format 3\0")


def read_any(path: Path, format: str = "") -> List[Measurement]:
    """The measurements in a QAR file or in one of the formats.

    format: "qar" or one of formats.FORMATS; empty: the content decides.
    """
    if format == "qar" or (not format and is_qar_file(path)):
        return [load(path)]
    return formats.read(path, format or None)


def write_any(
    measurement: Measurement, path: Path, format: str = "", replace: bool = False
) -> List[str]:
    """Makes a file; returns what it could not take over. format: as for `read_any`; empty: the
    name's suffix decides, and FormatError says where it says none.
    """
    suffix = os.path.splitext(os.fspath(path))[1].lower()
    if format == "qar" or (not format and suffix == QAR_SUFFIX):
        return store(measurement, path, replace)
    return formats.write(path, measurement, format or None, replace)


def chosen(measurements: List[Measurement], name: str, path: Path) -> List[Measurement]:
    """Those of the measurements that the name means, all without one; FormatError without any."""
    if not name:
        return measurements
    found = [measurement for measurement in measurements if measurement.name == name]
    if not found:
        names = ", ".join(measurement.name or "?" for measurement in measurements[:20])
        raise FormatError(f"{os.fspath(path)} has no spectrum {name}; it has {names}")
    return found


def output_names(measurements: List[Measurement], path: Path) -> List[Tuple[Measurement, str]]:
    """Each measurement with the name of its file: with more than one its own name goes before
    the suffix, without what a file name cannot have.
    """
    path = os.fspath(path)
    if len(measurements) == 1:
        return [(measurements[0], path)]
    stem, suffix = os.path.splitext(path)
    names: List[Tuple[Measurement, str]] = []
    taken: Set[str] = set()
    for measurement in measurements:
        name = "".join(c if c.isalnum() or c in "-_." else "_" for c in measurement.name)[:60]
        while name.lower() in taken:
            name += "_"
        taken.add(name.lower())
        names.append((measurement, f"{stem}-{name}{suffix}"))
    return names
