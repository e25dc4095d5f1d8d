"""Binary files of many spectra (.pcf), reading: records of 256 bytes, contents as floats.

The energy calibration is a polynomial in the channel (counted from 0) divided by the number of
channels, with an additional term for low energies that a polynomial cannot represent.
"""

import re
from datetime import datetime, timezone
from fractions import Fraction
from typing import Iterator, List, NamedTuple, Optional, Tuple

from ..values import MAX_CHANNELS
from . import binary
from .binary_fields import MONTHS, energy_polynomial
from .measurement import FormatError, Measurement, checked

_RECORD = 256
_MAX_SPECTRA = 5000
_DEVIATIONS = b"DeviationPairs"
_FIRST_WITH_DEVIATIONS = (82, 162, 322, 42)  # first record of a spectrum, by variant of the format

# Offsets in the heading of a spectrum.
_TEXTS, _DATE, _TIMES, _ENERGY, _CHANNELS = 0, 180, 204, 224, 252
_TEXT_SIZE = 180


class _Layout(NamedTuple):
    records: int  # of each spectrum, its heading included
    first: int  # offset of the first spectrum


def matches(data: bytes) -> bool:
    """True if the data begins like a file of this format."""
    return data[2:5] in (b"DHS", b"dhs", b"   ") and len(data) >= 2 * _RECORD and data[:2] != b"  "


def read(data: bytes) -> List[Measurement]:
    """Return all spectra in the file, in its order. Raises FormatError."""
    measurements = []
    for number, offset in enumerate(_offsets(data), start=1):
        if number > _MAX_SPECTRA:
            raise FormatError(f"more than {_MAX_SPECTRA} spectra in one file")
        try:
            measurements.append(_measurement(data, offset, f"spectrum-{number}"))
        except FormatError as error:
            raise FormatError(f"spectrum {number}: {error}") from None
    if not measurements:
        raise FormatError("there is no spectrum in the file")
    return measurements


def _offsets(data: bytes) -> Iterator[int]:
    layout = _layout(data)
    for offset in range(layout.first, len(data) - _RECORD + 1, layout.records * _RECORD):
        if binary.unpack("i", data, offset + _CHANNELS)[0] > 0:  # otherwise an empty position
            yield offset


def _layout(data: bytes) -> _Layout:
    (records,) = binary.unpack("h", data, 0)
    if not 2 <= records <= 1 + MAX_CHANNELS * 4 // _RECORD:
        raise FormatError(f"{records} records of {_RECORD} bytes are not a spectrum")
    has_deviations = data[_RECORD : _RECORD + len(_DEVIATIONS)] == _DEVIATIONS
    for first in _FIRST_WITH_DEVIATIONS if has_deviations else (1,):
        size = len(data) - first * _RECORD
        if size > 0 and size % (records * _RECORD) == 0:
            return _Layout(records, first * _RECORD)
    raise FormatError(f"{len(data)} bytes are not whole spectra; the file may be cut off")


def _measurement(data: bytes, offset: int, name: str) -> Measurement:
    notes: List[str] = []
    live, real = binary.unpack("ff", data, offset + _TIMES)
    (channels,) = binary.unpack("i", data, offset + _CHANNELS)
    if not 1 <= channels <= MAX_CHANNELS:
        raise FormatError(f"{channels} channels; expected 1 to {MAX_CHANNELS}")
    counts = binary.whole_counts(binary.unpack(f"{channels}f", data, offset + _RECORD), notes)
    energy = _energy(binary.unpack("5f", data, offset + _ENERGY), channels, notes)
    return checked(
        Measurement(
            counts=tuple(counts),
            live_time=live if live > 0 else None,
            real_time=real if real > 0 else None,
            start=_start(binary.text(data, offset + _DATE, 23)),
            title=binary.text(data, offset + _TEXTS, _TEXT_SIZE),
            energy=energy,
            name=name,
            notes=tuple(notes),
        )
    )


def _energy(terms: Tuple[float, ...], channels: int, notes: List[str]) -> Tuple[float, ...]:
    *polynomial, low_energy = terms
    if low_energy:
        notes.append("left out: the low-energy term of the energy calibration")
    scaled = tuple(value / channels**order for order, value in enumerate(polynomial))
    return energy_polynomial(scaled, notes)


def _start(text: str) -> Optional[datetime]:
    match = re.match(r"(\d{1,2})-(\w{3})-(\d{4}) (\d\d):(\d\d):(\d\d)(\.\d+)?", text)
    if not match or match.group(2).upper() not in MONTHS:
        return None
    day, year, hour, minute, second = (int(match.group(group)) for group in (1, 3, 4, 5, 6))
    fraction = int(Fraction(match.group(7) or "0") * 1000000)
    month = MONTHS.index(match.group(2).upper()) + 1
    try:
        return datetime(year, month, day, hour, minute, second, fraction, tzinfo=timezone.utc)
    except ValueError:
        return None
