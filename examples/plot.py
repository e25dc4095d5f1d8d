"""Spectra as pictures: in the terminal and, where matplotlib is installed, as a PNG file."""

import math

BLOCKS = " ▁▂▃▄▅▆▇█"


def column_heights(channels, columns):
    """The logarithm of the largest content in each of the columns; nothing lies below 1 count."""
    edges = [len(channels) * column // columns for column in range(columns + 1)]
    largest = (max(channels[low:high], default=0) for low, high in zip(edges, edges[1:]))
    return [math.log10(max(count, 1)) for count in largest]


def energy_axis(energy_at, channel_count, columns):
    """Two lines: ticks at every 200 keV or more, and their energies."""
    top = energy_at(channel_count)
    step = next(s for s in (200, 500, 1000, 2000, 5000) if top / s <= 11 or s == 5000)
    ticks, labels = ["─"] * columns, [" "] * (columns + 4)
    for energy in range(0, int(top) + 1, step):
        column = round(energy / top * (columns - 1))
        ticks[column] = "┬"
        labels[column : column + len(str(energy))] = str(energy)
    return "".join(ticks), "".join(labels).rstrip() + " keV"


def terminal_plot(channels, energy_at, columns=66, rows=14):
    """The lines of a plot with a logarithmic axis of counts; a column shows its largest channel."""
    heights = column_heights(channels, columns)
    decades = max(1, math.ceil(max(heights)))
    decade_rows = {round(decade / decades * rows): decade for decade in range(1, decades + 1)}
    for row in range(rows, 0, -1):
        label = f"{10 ** decade_rows[row]:>9,} ┤" if row in decade_rows else " " * 10 + "│"
        filled = (8 * (height / decades * rows - row + 1) for height in heights)
        yield label + "".join(BLOCKS[max(0, min(8, round(eighths)))] for eighths in filled).rstrip()
    ticks, labels = energy_axis(energy_at, len(channels), columns)
    yield " " * 10 + "└" + ticks
    yield " " * 11 + labels


def save_picture(channels, energy_at, title, path):
    """Saves the spectrum as a picture; False where matplotlib is not installed."""
    try:
        from matplotlib.figure import Figure
    except ImportError:
        return False
    figure = Figure(figsize=(10, 5))
    axes = figure.subplots()
    energies = [energy_at(channel) for channel in range(1, len(channels) + 1)]
    axes.step(energies, channels, where="mid", linewidth=0.7)
    axes.set(yscale="log", ylim=(0.7, None), xlabel="keV", ylabel="counts", title=title)
    figure.savefig(path, dpi=120)
    return True
