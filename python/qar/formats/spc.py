"""Binary spectra in records of 128 bytes (.spc), reading: integer and floating-point contents.

The first record names the records of everything else, counted from 1; 0 means that there is none.
All numbers are little-endian. Widths are in channels, as a polynomial in the channel.
"""

import struct
from typing import List, NamedTuple, Tuple

from ..values import MAX_CHANNELS
from . import binary
from .binary_fields import energy_polynomial, start_of, width_polynomial
from .measurement import FormatError, Measurement, checked

_RECORD = 128
_KINDS = {1: "I", 5: "f"}  # of the contents: integers, floating-point numbers

# Offsets in the first record.
_ACQUISITION, _SAMPLE, _DETECTOR, _CALIBRATION = 8, 10, 12, 34
_SPECTRUM, _RECORDS, _CHANNELS, _FIRST_CHANNEL = 60, 62, 64, 66
_REAL_TIME, _LIVE_TIME = 90, 94

# Offsets in the acquisition record.
_DATE, _CLOCK = 16, 28

_ENERGY, _WIDTH = 20, 32  # offsets of three coefficients each in the calibration record


class _Contents(NamedTuple):
    kind: str
    offset: int
    channels: int
    first_channel: int


def matches(data: bytes) -> bool:
    """True if the first record of the data describes a spectrum."""
    if len(data) < _RECORD:
        return False
    mark, kind = struct.unpack_from("<hh", data, 0)
    record, records, channels = struct.unpack_from("<hhH", data, _SPECTRUM)
    return mark == 1 and kind in _KINDS and record > 1 and records > 0 and channels > 0


def read(data: bytes) -> List[Measurement]:
    """Return the one spectrum in the file. Raises FormatError."""
    if not matches(data):
        raise FormatError("the first record does not describe a spectrum")
    notes: List[str] = []
    contents = _contents(data)
    values = binary.unpack(f"{contents.channels}{contents.kind}", data, contents.offset)
    counts = [0] * contents.first_channel + binary.whole_counts(values, notes)
    real, live = binary.unpack("ff", data, _REAL_TIME)
    energy, shape = _calibration(data, len(counts), notes)
    start = None
    if _has_record(data, _ACQUISITION):
        offset = _offset_of(data, _ACQUISITION)
        start = start_of(
            binary.text(data, offset + _DATE, 10), binary.text(data, offset + _CLOCK, 8)
        )
    return [
        checked(
            Measurement(
                counts=tuple(counts),
                live_time=live if live > 0 else None,
                real_time=real if real > 0 else None,
                start=start,
                title=_text_record(data, _SAMPLE),
                detector=_text_record(data, _DETECTOR),
                energy=energy,
                shape=shape,
                notes=tuple(notes),
            )
        )
    ]


def _contents(data: bytes) -> _Contents:
    (kind,) = binary.unpack("h", data, 2)
    record, records, channels, first = binary.unpack("hhHH", data, _SPECTRUM)
    if channels * 4 > records * _RECORD or first + channels > MAX_CHANNELS:
        raise FormatError(f"{channels} channels do not fit {records} records of {_RECORD} bytes")
    return _Contents(_KINDS[kind], (record - 1) * _RECORD, channels, first)


def _has_record(data: bytes, pointer: int) -> bool:
    return int(binary.unpack("h", data, pointer)[0]) > 0


def _offset_of(data: bytes, pointer: int) -> int:
    """The offset of the record that the first record names at the pointer."""
    return (int(binary.unpack("h", data, pointer)[0]) - 1) * _RECORD


def _text_record(data: bytes, pointer: int) -> str:
    if not _has_record(data, pointer):
        return ""
    return binary.text(data, _offset_of(data, pointer), _RECORD)


def _calibration(
    data: bytes, channels: int, notes: List[str]
) -> Tuple[Tuple[float, ...], Tuple[float, ...]]:
    if not _has_record(data, _CALIBRATION):
        notes.append("no energy calibration")
        return (), ()
    offset = _offset_of(data, _CALIBRATION)
    energy = energy_polynomial(binary.unpack("fff", data, offset + _ENERGY), notes)
    widths = binary.unpack("fff", data, offset + _WIDTH)
    return energy, width_polynomial(widths, energy, channels, notes)
