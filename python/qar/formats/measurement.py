"""A spectrum with its data, as it is passed from one format to another."""

import contextlib
import os
from datetime import datetime
from typing import Iterator, List, NamedTuple, Optional, Sequence, Set, Tuple, Union

from ..display.printable import quoted
from ..values import MAX_CHANNELS, MAX_COUNT


class FormatError(ValueError):
    """A file that cannot be read or written; the message gives the reason in one line.

    filename: the file, or empty.
    """

    filename = ""


@contextlib.contextmanager
def reading(path: "Union[str, os.PathLike[str]]") -> Iterator[None]:
    """Add the file name to a FormatError; turn an arithmetic error into a FormatError."""
    try:
        yield
    except FormatError as error:
        error.filename = os.fspath(path)
        raise
    except ArithmeticError:
        out_of_range = FormatError("the numbers of a calibration are out of range")
        out_of_range.filename = os.fspath(path)
        raise out_of_range from None


class Measurement(NamedTuple):
    """One spectrum with its data; a value that is not known is None or empty.

    The energy calibration counts channels from 1, as a QAR file does. Formats that count from 0
    convert it when they read and write.
    """

    counts: Tuple[int, ...]  # of channel 1, 2, ...
    live_time: Optional[float] = None  # s
    real_time: Optional[float] = None  # s
    start: Optional[datetime] = None  # in UTC, with its time zone
    title: str = ""
    detector: str = ""
    instrument: str = ""
    remarks: str = ""  # one or more lines
    energy: Tuple[float, ...] = ()  # keV = polynomial in the channel number, lowest order first
    shape: Tuple[float, ...] = ()  # (FWHM / keV)^2 = polynomial in the energy / keV
    is_background: bool = False  # or a calibration: not the sample itself
    name: str = ""  # distinguishes the spectra of one file
    notes: Tuple[str, ...] = ()  # data of the file that were changed or left out
    qar_file: str = ""  # the QAR file that the measurement was read from, if any


def checked(measurement: Measurement) -> Measurement:
    """Return the measurement. Raises FormatError if no format can store the spectrum."""
    channels = len(measurement.counts)
    if not 1 <= channels <= MAX_CHANNELS:
        raise FormatError(
            f"the spectrum has {channels or 'no'} channels; expected 1 to {MAX_CHANNELS:,}"
        )
    for count in (min(measurement.counts), max(measurement.counts)):
        if not 0 <= count <= MAX_COUNT:
            raise FormatError(
                f"channel {measurement.counts.index(count)} (from 0) has {count} counts;"
                f" expected 0 to {MAX_COUNT}"
            )
    return measurement


def with_name(measurements: List[Measurement], name: str, path: str) -> List[Measurement]:
    """Return the measurements of a file with a name, or all of them if the name is empty.

    Raises FormatError if there is none.
    """
    if not name:
        return measurements
    result = [measurement for measurement in measurements if measurement.name == name]
    if not result:
        names = ", ".join(quoted(measurement.name) for measurement in measurements[:20])
        raise FormatError(f"{path}: no spectrum {quoted(name)}; expected one of {names}")
    return result


def foreground(measurements: Sequence[Measurement]) -> Measurement:
    """Return the spectrum with most counts, background and calibration spectra left out."""
    candidates = [item for item in measurements if not item.is_background] or measurements
    return max(candidates, key=lambda item: sum(item.counts))


def file_names(measurements: List[Measurement], path: str) -> List[Tuple[Measurement, str]]:
    """Return each measurement of a file with the name of the file to write it to.

    If there are several, the name of the spectrum is added before the suffix of `path`, with
    characters replaced that a file name cannot have.
    """
    if len(measurements) == 1:
        return [(measurements[0], path)]
    stem, suffix = os.path.splitext(path)
    result: List[Tuple[Measurement, str]] = []
    taken: Set[str] = set()
    for measurement in measurements:
        name = "".join(c if c.isalnum() or c in "-_." else "_" for c in measurement.name)[:60]
        while name.lower() in taken:
            name += "_"
        taken.add(name.lower())
        result.append((measurement, f"{stem}-{name}{suffix}"))
    return result
