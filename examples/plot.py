"""Spectra as pictures: in the terminal and, where matplotlib is installed, as a PNG file."""

import math
from typing import Callable, Iterator, List, Sequence, Tuple

STEPS = [digit * 10**power for power in range(7) for digit in (1, 2, 5)]
BLOCKS = " ▁▂▃▄▅▆▇█"


def column_heights(channels: Sequence[int], columns: int) -> List[float]:
    """The logarithm of the largest content in each of the columns; nothing lies below 1 count."""
    edges = [len(channels) * column // columns for column in range(columns + 1)]
    largest = (max(channels[low:high], default=0) for low, high in zip(edges, edges[1:]))
    return [math.log10(max(count, 1)) for count in largest]


def axis(top: float, unit: str, columns: int) -> Tuple[str, str]:
    """Two lines: ticks, at most eleven and the one at 0, and their numbers."""
    step = next(s for s in STEPS if top / s <= 11)
    ticks, labels = ["─"] * columns, [" "] * (columns + 4)
    for number in range(0, int(top) + 1, step):
        column = round(number / top * (columns - 1))
        ticks[column] = "┬"
        labels[column : column + len(str(number))] = str(number)
    return "".join(ticks), "".join(labels).rstrip() + " " + unit


def terminal_plot(
    channels: Sequence[int],
    position: Callable[[float], float],
    unit: str,
    columns: int = 66,
    rows: int = 14,
) -> Iterator[str]:
    """The lines of a plot with a logarithmic axis of counts; a column shows its largest channel.

    position: gives the place of a channel, counted from 1, on the axis.
    """
    heights = column_heights(channels, columns)
    decades = max(1, math.ceil(max(heights)))
    decade_rows = {round(decade / decades * rows): decade for decade in range(1, decades + 1)}
    for row in range(rows, 0, -1):
        label = f"{10 ** decade_rows[row]:>9,} ┤" if row in decade_rows else " " * 10 + "│"
        filled = (8 * (height / decades * rows - row + 1) for height in heights)
        yield label + "".join(BLOCKS[max(0, min(8, round(eighths)))] for eighths in filled).rstrip()
    ticks, labels = axis(position(len(channels)), unit, columns)
    yield " " * 10 + "└" + ticks
    yield " " * 11 + labels


def save_picture(
    channels: Sequence[int],
    position: Callable[[float], float],
    unit: str,
    title: str,
    path: str,
) -> bool:
    """Saves the spectrum as a picture; False where matplotlib is not installed."""
    try:
        from matplotlib.figure import Figure
    except ImportError:
        return False
    figure = Figure(figsize=(10, 5))
    axes = figure.subplots()
    positions = [position(channel) for channel in range(1, len(channels) + 1)]
    axes.step(positions, channels, where="mid", linewidth=0.7)
    axes.set(yscale="log", ylim=(0.7, None), xlabel=unit, ylabel="counts", title=title)
    figure.savefig(path, dpi=120)
    return True
