"""A spectrum as a PNG picture, drawn with matplotlib."""

import textwrap
from typing import Any, Sequence

from .. import optional_imports
from ..analysis.results import Peak
from . import layout
from .layout import FIT_COLOUR, SPECTRUM_COLOUR, Axis
from .printable import printable

_INCHES, _DOTS_PER_INCH = (11.0, 5.5), 130
_LABEL_SPACING = 0.0145  # as a fraction of the width of the axis
_MAX_LABELS = 45
_TITLE_WIDTH = 80  # characters; the legend is beside it


def figure_class() -> Any:
    """Return matplotlib's Figure. Raises ImportError if matplotlib is not installed."""
    return optional_imports.required("matplotlib.figure").Figure


def save(path: str, counts: Sequence[int], peaks: Sequence[Peak], axis: Axis, title: str) -> None:
    """Draw the counts on a logarithmic scale with fits, labels and residuals, and save a PNG.

    The residuals are those of `layout.residuals`. Raises ImportError if matplotlib is not
    installed, OSError if the file cannot be written.
    """
    figure = figure_class()(figsize=_INCHES)
    axes = figure.add_axes([0.075, 0.27, 0.905, 0.65])
    positions = [axis.position(channel) for channel in range(1, len(counts) + 1)]
    shown = [max(count, layout.MIN_COUNT) for count in counts]
    axes.step(positions, shown, where="mid", linewidth=0.7, color=SPECTRUM_COLOUR, label="counts")
    curves = layout.fitted_curves(counts, peaks, axis.calibration)
    for number, curve in enumerate(curves):
        xs = [axis.position(channel) for channel in curve.channels]
        heights = [max(height, layout.MIN_COUNT) for height in curve.counts]
        label = "fitted peaks" if number == 0 else None
        axes.plot(xs, heights, "--", linewidth=1.3, color=FIT_COLOUR, label=label)
    low, high = min(positions[0], positions[-1]), max(positions[0], positions[-1])
    has_labels = _draw_labels(axes, counts, peaks, axis, high - low)
    top = max(max(shown), 10.0)
    # The labels are above the highest peak and take about a third of the decades.
    room = (top / layout.MIN_COUNT) ** 0.45 if has_labels else 2.0
    axes.set(yscale="log", xlim=(low, high), ylim=(layout.MIN_COUNT, top * room))
    axes.set(ylabel="counts per channel")
    axes.tick_params(labelbottom=False)
    _draw_residuals(figure.add_axes([0.075, 0.1, 0.905, 0.16], sharex=axes), counts, peaks, axis)
    axes.set_title(_label_text(textwrap.shorten(title, _TITLE_WIDTH)), loc="left", fontsize=11)
    axes.legend(loc="lower left", frameon=False, ncol=2, bbox_to_anchor=(0.7, 1.0))
    figure.savefig(path, dpi=_DOTS_PER_INCH, format="png")


def _draw_residuals(axes: Any, counts: Sequence[int], peaks: Sequence[Peak], axis: Axis) -> None:
    for curve in layout.residuals(counts, peaks, axis.calibration):
        xs = [axis.position(channel) for channel in curve.channels]
        axes.step(xs, curve.counts, where="mid", linewidth=0.7, color=FIT_COLOUR)
    axes.axhline(0, linewidth=0.5, color="0.4")
    axes.set(xlabel=axis.label, ylabel="residual / σ", ylim=(-6, 6), yticks=(-3, 0, 3))


def _draw_labels(
    axes: Any, counts: Sequence[int], peaks: Sequence[Peak], axis: Axis, width: float
) -> bool:
    """Draw the labels of peaks. Returns True if there is one."""
    labels = layout.labels(counts, peaks, axis, _LABEL_SPACING * width, _MAX_LABELS)
    for label in labels:
        axes.annotate(
            _label_text(label.text),
            xy=(label.position, max(label.height, layout.MIN_COUNT) * 1.15),
            xytext=(label.shifted, 0.985),
            textcoords=("data", "axes fraction"),
            rotation=90,
            fontsize=7,
            ha="center",
            va="top",
            arrowprops={"arrowstyle": "-", "linewidth": 0.4, "color": "0.6"},
        )
    return bool(labels)


def _label_text(text: str) -> str:
    """Return a string that matplotlib does not read as mathematics."""
    return printable(text).replace("$", r"\$")
