"""Plot the times of saving and reading one value over the size of the file."""

import math

import matplotlib

matplotlib.use("Agg")

from matplotlib import pyplot, ticker  # noqa: E402

COLOURS = {"pyORV3": "#1b6ca8", "sqlite3": "#d1495b", "h5py": "#7a7a7a"}
PANELS = [("save one value", "Save one changed value"), ("open", "Open, read one value, close")]


def points(rows, beginning):
    """Return (size in bytes, seconds) for each way, by size."""
    series = {}
    for row in rows:
        if row.size and row.name.startswith(beginning) and "records" in row.name:
            series.setdefault("pyORV3", {})[row.size] = row.own
            series.setdefault(row.other, {})[row.size] = row.its
    return {name: sorted(sizes.items()) for name, sizes in series.items()}


def whole_decades(axis):
    """Extend an axis to whole decades, so that it has labels at both ends."""
    low, high = axis.get_ylim()
    axis.set_ylim(10 ** math.floor(math.log10(low)), 10 ** math.ceil(math.log10(high)))


def draw(rows, path):
    figure, axes = pyplot.subplots(1, 2, figsize=(9, 3.8), sharex=True, sharey=True)
    for axis, (beginning, title) in zip(axes, PANELS):
        for name, series in points(rows, beginning).items():
            sizes, seconds = zip(*series)
            axis.loglog(
                [size / 1024 for size in sizes],
                [1e6 * value for value in seconds],
                "o-",
                color=COLOURS.get(name),
                label=name,
            )
        axis.set_title(title, fontsize=11)
        axis.set_xlabel("size of the file / KiB")
        axis.grid(True, which="major", alpha=0.3)
        for scale in (axis.xaxis, axis.yaxis):
            scale.set_major_formatter(ticker.StrMethodFormatter("{x:,.0f}"))
    whole_decades(axes[0])
    axes[0].set_ylabel("time / µs")
    axes[0].legend(frameon=False)
    figure.tight_layout()
    figure.savefig(path, dpi=120)
