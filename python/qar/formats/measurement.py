"""What the exchange formats and a QAR file have in common: one spectrum with what belongs to it."""

import contextlib
import os
from datetime import datetime
from typing import Iterator, NamedTuple, Optional, Tuple, Union

MOST_CHANNELS = 65535
"""More channels no QAR file can hold."""

MOST_COUNTS = 2**31 - 1
"""More counts no channel of a QAR file can hold."""


class FormatError(ValueError):
    """A file that cannot be read or written; the message says in one line what is wrong where.

    filename: the file, empty where it is not a matter of one.
    """

    filename = ""


@contextlib.contextmanager
def reading(path: "Union[str, os.PathLike[str]]") -> Iterator[None]:
    """Gives a FormatError the name of the file, and makes one of numbers beyond all reason."""
    try:
        yield
    except FormatError as error:
        error.filename = os.fspath(path)
        raise
    except ArithmeticError:
        found = FormatError("the numbers of a calibration are out of range")
        found.filename = os.fspath(path)
        raise found from None


class Measurement(NamedTuple):
    """One spectrum as it is handed from format to format; what is not known is None or empty.

    The numbers are those of a QAR file: channels count from 1 in the energy calibration. The
    formats of the field count them from 0; each reads and writes its own way, so that nobody
    else has to shift.
    """

    counts: Tuple[int, ...]  # of channel 1, 2, ...; each from 0 to MOST_COUNTS
    live_time: Optional[float] = None  # s
    real_time: Optional[float] = None  # s
    start: Optional[datetime] = None  # in UTC, with its time zone
    title: str = ""
    detector: str = ""
    instrument: str = ""
    remarks: str = ""  # one or more lines
    energy: Tuple[float, ...] = ()  # keV = polynomial in the channel number, lowest order first
    shape: Tuple[float, ...] = ()  # (FWHM / keV)^2 = polynomial in the energy / keV
    name: str = ""  # tells the spectra of one file apart
    notes: Tuple[str, ...] = ()  # what the file said that could not be taken over as it was


def checked(measurement: Measurement) -> Measurement:
    """The same; raises FormatError where no QAR file and no format can carry the spectrum."""
    channels = len(measurement.counts)
    if channels == 0:
        raise FormatError("the spectrum has no channels")
    if channels > MOST_CHANNELS:
        raise FormatError(f"the spectrum has more than {MOST_CHANNELS:,} channels")
    for channel, count in enumerate(measurement.counts):
        if not 0 <= count <= MOST_COUNTS:
            raise FormatError(
                f"channel {channel} (from 0) has {count} counts; 0 to {MOST_COUNTS} can be carried"
            )
    return measurement
