"""Spectra as pictures: in the terminal and, where matplotlib is installed, as PNG files."""

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


# ---- An analysed spectrum ------------------------------------------------------------------------

FWHM_PER_SIGMA = 2 * math.sqrt(2 * math.log(2))


def regions(peaks):
    """The peaks that were fitted together: (first channel, last channel, peaks)."""
    groups = {}
    for peak in peaks:
        groups.setdefault((peak.left, peak.right), []).append(peak)
    return [(left, right, group) for (left, right), group in sorted(groups.items())]


def line_through(points):
    """Level and slope of the straight line that fits (x, y) best."""
    count = len(points)
    mean_x, mean_y = (sum(values) / count for values in zip(*points))
    spread = sum((x - mean_x) ** 2 for x, _ in points)
    slope = sum((x - mean_x) * (y - mean_y) for x, y in points) / spread if spread else 0.0
    return mean_y - slope * mean_x, slope


def drawn_fit(channels, left, right, peaks, energy_at):
    """What the peaks of a region and a straight continuum give in each of its channels.

    The peaks are drawn as Gaussians of the width and area that the file has: what a tail or step
    adds in the engine's own fit shows among the residuals.
    """
    numbers = range(left, right + 1)

    def below(peak, channel):
        sigma = peak.fwhm / FWHM_PER_SIGMA
        distance = energy_at(channel) - energy_at(peak.centroid)
        return 0.5 * peak.area * (1 + math.erf(distance / (math.sqrt(2) * sigma)))

    bumps = [sum(below(p, n + 0.5) - below(p, n - 0.5) for p in peaks) for n in numbers]
    rest = [(number, channels[number - 1] - bump) for number, bump in zip(numbers, bumps)]
    level, slope = line_through(rest)
    continuum = [max(level + slope * number, 0.0) for number in numbers]
    return [bump + below for bump, below in zip(bumps, continuum)], continuum


def spread_out(places, least, low, high):
    """The rising places, moved apart so that neighbours keep a distance, all within the range."""
    moved = []
    for place in places:
        moved.append(max(place, moved[-1] + least) if moved else max(place, low))
    limit = high
    for number in range(len(moved) - 1, -1, -1):
        moved[number] = min(moved[number], limit)
        limit = moved[number] - least
    return moved


def save_analysis(channels, energy_at, peaks, title, path):
    """Saves a picture of the spectrum, its peaks with their nuclides and the residuals of the fits.

    peaks: as qar reads them. False where matplotlib is not installed.
    """
    try:
        from matplotlib.figure import Figure
    except ImportError:
        return False
    figure = Figure(figsize=(14, 8))
    figure.subplots_adjust(left=0.06, right=0.985, bottom=0.07, top=0.95)
    names, spectrum, residuals = figure.subplots(
        3, 1, sharex=True, gridspec_kw={"height_ratios": (2, 6, 2), "hspace": 0.0}
    )
    energies = [energy_at(channel) for channel in range(1, len(channels) + 1)]
    spectrum.step(energies, channels, where="mid", linewidth=0.6, color="0.55", label="spectrum")
    for number, (left, right, group) in enumerate(regions(peaks)):
        model, continuum = drawn_fit(channels, left, right, group, energy_at)
        place = energies[left - 1 : right]
        name = {"label": "peaks"} if number == 0 else {}
        spectrum.plot(place, model, linewidth=1.0, color="tab:red", **name)
        spectrum.fill_between(place, continuum, model, color="tab:red", alpha=0.25, linewidth=0)
        sigmas = [
            (channels[left - 1 + offset] - value) / math.sqrt(max(value, 1))
            for offset, value in enumerate(model)
        ]
        residuals.step(place, sigmas, where="mid", linewidth=0.6, color="tab:blue")
    low, high = energies[0], energies[-1]
    label_peaks(names, [peak for peak in peaks if label_of(peak)], low, high)
    top = max(channels)
    spectrum.set(yscale="log", ylim=(0.7, 2 * top), xlim=(low, high), ylabel="counts")
    spectrum.legend(loc="upper right", frameon=False)
    residuals.axhline(0, linewidth=0.5, color="0.4")
    residuals.set(ylim=(-6, 6), yticks=(-3, 0, 3), xlabel="keV", ylabel="residual / σ")
    figure.suptitle(title, y=0.985)
    figure.savefig(path, dpi=120)
    return True


ORIGINS = {1: "annihilation", 2: "single escape", 3: "double escape", 4: "sum"}


def label_of(peak):
    return peak.nuclide or ORIGINS.get(peak.origin, "")


def label_peaks(axes, peaks, low, high):
    """The names of the peaks upright above the spectrum, with lines down to where the peaks are."""
    axes.set(ylim=(0, 1), yticks=())
    for side in ("left", "right", "top"):
        axes.spines[side].set_visible(False)
    axes.tick_params(bottom=False)
    size = max(4, min(8, 560 // max(len(peaks), 1)))
    least = (high - low) * size * 0.0017
    places = spread_out([peak.energy for peak in peaks], least, low + least, high - least)
    for peak, place in zip(peaks, places):
        axes.plot((peak.energy, peak.energy, place), (0, 0.05, 0.2), linewidth=0.5, color="0.6")
        text = "{} {:.1f}".format(label_of(peak), peak.energy)
        axes.text(place, 0.22, text, rotation=90, fontsize=size, ha="center", va="bottom")
