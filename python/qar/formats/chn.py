"""Binary integer spectra (.chn), reading: a header, the contents, calibrations and texts.

All numbers are little-endian. Channels count from 0 in the energy calibration.
"""

from typing import List, Tuple

from ..values import MAX_CHANNELS
from . import binary
from .binary_fields import energy_polynomial, start_of, width_polynomial
from .measurement import FormatError, Measurement, checked

_MARK = -1
_HEADER = "hhh2sII8s4sHH"
_HEADER_SIZE = 32
_TICK = 0.02  # seconds; live and real time count in these
_TRAILERS = (-101, -102)  # energy as a straight line, energy with a quadratic term
_DETECTOR, _SAMPLE = 256, 320  # offsets of texts in the trailer: their length, then 63 characters


def matches(data: bytes) -> bool:
    """True if the data begins like a file of this format."""
    return data[:2] == b"\xff\xff" and len(data) >= _HEADER_SIZE


def read(data: bytes) -> List[Measurement]:
    """Return the one spectrum in the file. Raises FormatError."""
    header = binary.unpack(_HEADER, data, 0)
    mark, _, _, seconds, real, live, date, clock, offset, channels = header
    if mark != _MARK:
        raise FormatError(f"the file begins with {mark}; expected {_MARK}")
    if not 1 <= channels <= MAX_CHANNELS - offset:
        raise FormatError(f"channels {offset} to {offset + channels} are not a spectrum")
    notes: List[str] = []
    counts = binary.whole_counts(binary.unpack(f"{channels}I", data, _HEADER_SIZE), notes)
    if offset:
        notes.append(f"channels 0 to {offset - 1} (from 0) are not in the file and set to 0")
    trailer = data[_HEADER_SIZE + 4 * channels :]
    energy, shape = _calibrations(trailer, offset + channels, notes)
    return [
        checked(
            Measurement(
                counts=tuple([0] * offset + counts),
                live_time=live * _TICK,
                real_time=real * _TICK,
                start=start_of(_plain(date), _plain(clock + seconds)),
                title=_trailer_text(trailer, _SAMPLE),
                detector=_trailer_text(trailer, _DETECTOR),
                energy=energy,
                shape=shape,
                notes=tuple(notes),
            )
        )
    ]


def _plain(field: bytes) -> str:
    return field.decode("cp1252", "replace")


def _trailer_text(trailer: bytes, offset: int) -> str:
    if len(trailer) < offset + 64:
        return ""
    return binary.text(trailer, offset + 1, min(trailer[offset], 63)) if trailer[offset] else ""


def _calibrations(
    trailer: bytes, channels: int, notes: List[str]
) -> Tuple[Tuple[float, ...], Tuple[float, ...]]:
    if len(trailer) < 28 or binary.unpack("h", trailer, 0)[0] not in _TRAILERS:
        notes.append("no energy calibration")
        return (), ()
    terms = 3 if binary.unpack("h", trailer, 0)[0] == _TRAILERS[1] else 2
    energy = energy_polynomial(binary.unpack(f"{terms}f", trailer, 4), notes)
    widths = binary.unpack(f"{terms}f", trailer, 16)
    return energy, width_polynomial(widths, energy, channels, notes)
