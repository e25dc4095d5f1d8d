"""Values in binary files: every access is checked against the size of the file."""

import struct
from typing import Any, List, Sequence, Tuple

from ..display.printable import printable
from ..values import MAX_COUNT
from .measurement import FormatError


def unpack(layout: str, data: bytes, offset: int) -> Tuple[Any, ...]:
    """Return the little-endian values of a layout (see `struct`) at an offset.

    Raises FormatError if they lie outside the data.
    """
    size = struct.calcsize("<" + layout)
    if not 0 <= offset <= len(data) - size:
        raise FormatError(f"the file ends before byte {offset + size}; it is cut off")
    return struct.unpack_from("<" + layout, data, offset)


def text(data: bytes, offset: int, size: int) -> str:
    """Return the Windows-1252 text in a field, up to its first NUL, without control characters."""
    (field,) = unpack(f"{size}s", data, offset)
    decoded = field.split(b"\0", 1)[0].decode("cp1252", "replace")
    return " ".join(printable(decoded).split())


def whole_counts(values: Sequence[float], notes: List[str]) -> List[int]:
    """Return the values rounded to whole counts, with a note if that changes some of them.

    Raises FormatError if a value is negative, not a number or more than a channel can hold.
    """
    counts: List[int] = []
    rounded = 0
    for channel, value in enumerate(values):
        if not 0 <= value <= MAX_COUNT:
            raise FormatError(
                f"channel {channel} (from 0) has {value:g} counts; expected 0 to {MAX_COUNT}"
            )
        counts.append(round(value))
        rounded += counts[-1] != value
    if rounded:
        notes.append(f"decimal counts are rounded in {rounded} channels")
    return counts
