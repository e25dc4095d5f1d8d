"""A spectrum as a plot of characters for a terminal."""

import math
import sys
from typing import Iterator, List, Sequence, Tuple

from .layout import Axis, ticks

_BLOCKS = " ▁▂▃▄▅▆▇█"
_PLAIN_BLOCKS = "    #####"
_MARGIN = 10  # characters for the numbers on the axis of counts


def _column_heights(counts: Sequence[int], columns: int) -> List[float]:
    """Return the logarithm of the maximum content of each column; contents below 1 count as 1."""
    edges = [len(counts) * column // columns for column in range(columns + 1)]
    maxima = (max(counts[low:high], default=0) for low, high in zip(edges, edges[1:]))
    return [math.log10(max(count, 1)) for count in maxima]


def _scale(axis: Axis, channels: int, columns: int) -> Tuple[str, str]:
    """Return the two lines of the horizontal axis: ticks and their numbers."""
    low, high = axis.position(1), axis.position(channels)
    marks, numbers = ["-"] * columns, [" "] * (columns + 8)
    for tick in ticks(low, high, max(2, columns // 7)):
        column = round((tick - low) / (high - low) * (columns - 1))
        marks[column] = "+"
        text = f"{tick:g}"
        numbers[column : column + len(text)] = text
    return "".join(marks), "".join(numbers).rstrip() + " " + axis.unit


def plot(counts: Sequence[int], axis: Axis, columns: int = 66, rows: int = 14) -> Iterator[str]:
    """Yield the lines of the plot: the maximum of each column on a logarithmic scale."""
    blocks = _BLOCKS if _can_print(_BLOCKS) else _PLAIN_BLOCKS
    heights = _column_heights(counts, columns)
    decades = max(1, math.ceil(max(heights)))
    named = {round(decade / decades * rows): decade for decade in range(1, decades + 1)}
    for row in range(rows, 0, -1):
        label = f"{10 ** named[row]:,} +" if row in named else "|"
        filled = (8 * (height / decades * rows - row + 1) for height in heights)
        bars = "".join(blocks[max(0, min(8, round(eighths)))] for eighths in filled)
        yield (label.rjust(_MARGIN + 1) + bars).rstrip()
    marks, numbers = _scale(axis, len(counts), columns)
    yield " " * _MARGIN + "+" + marks
    yield "counts".rjust(_MARGIN) + " " + numbers


def _can_print(text: str) -> bool:
    """Return True if standard output can encode a string."""
    try:
        text.encode(sys.stdout.encoding or "ascii")
    except UnicodeEncodeError:
        return False
    return True
