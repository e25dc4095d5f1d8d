"""A spectrum with its fitted curves as a figure of matplotlib."""

import math
import os
import textwrap
from typing import Any, BinaryIO, Dict, List, NamedTuple, Optional, Sequence, Tuple, Union

from .. import optional_imports
from ..analysis import peak_curves
from ..analysis.calibration_notes import corrected_calibration
from ..analysis.peak_curves import Curve, Region
from ..analysis.results import Analysis, Peak
from ..atomic_files import Path
from ..records import RecordSource
from . import layout
from .layout import FIT_COLOUR, SPECTRUM_COLOUR, Axis
from .printable import printable

FORMATS = ("png", "svg", "pdf")
SCALES = ("log", "linear", "sqrt")

_INCHES, _DOTS_PER_INCH = (11.0, 5.5), 130
_LABEL_SPACING = 0.0145  # as a fraction of the width of the axis
_MAX_LABELS = 45
_TITLE_WIDTH = 70  # characters; the legend is beside it
_COMPARED_COLOUR = "#777777"


class Drawing(NamedTuple):
    """A spectrum and its results, detached from the data source that contained them."""

    title: str
    counts: Tuple[int, ...]
    axis: Axis
    peaks: Tuple[Peak, ...] = ()
    regions: Tuple[Region, ...] = ()
    live_time: Optional[float] = None  # s

    def curves(self) -> List[Curve]:
        return [peak_curves.curve_of(region) for region in self.regions]

    def positions(self) -> List[float]:
        return [self.axis.position(channel) for channel in range(1, len(self.counts) + 1)]


def drawing_of(source: RecordSource, results: Analysis) -> Drawing:
    """Return the drawing of an open source. Raises NotFoundError if it has no spectrum."""
    counts, calibration = source.spectrum(), corrected_calibration(source)
    regions = peak_curves.regions_of(source, results.peaks, counts, calibration)
    title = source.get("QAR_C_MEASNAME") or os.path.basename(source.path)
    live_time = source.get("QAR_D_LIVETIME")
    axis = layout.axis_of(calibration)
    return Drawing(title, counts, axis, results.peaks, tuple(regions), live_time)


def figure_class() -> Any:
    """Return matplotlib's Figure. Raises ImportError if matplotlib is not installed."""
    return optional_imports.required("matplotlib.figure").Figure


def format_of(path: Path) -> str:
    """Return the format of a picture from the suffix of its name. Raises ValueError."""
    suffix = os.path.splitext(os.fspath(path))[1].lower()
    if suffix[1:] not in FORMATS:
        raise ValueError(
            f"{os.fspath(path)}: unknown file extension '{suffix}'; expected .png, .svg or .pdf"
        )
    return suffix[1:]


def save(figure: Any, file: Union[str, BinaryIO], format: str) -> None:
    """Write a figure, without the time, as one of FORMATS."""
    dates = {"svg": {"Date": None}, "pdf": {"CreationDate": None}}
    metadata: Dict[str, None] = dates.get(format, {})
    figure.savefig(file, dpi=_DOTS_PER_INCH, format=format, metadata=metadata)


def figure_of(
    drawing: Drawing,
    region: Optional[Tuple[float, float]] = None,
    residuals: bool = False,
    peaks: bool = False,
    compare: Optional[Drawing] = None,
    scale: str = "log",
) -> Any:
    """Return a matplotlib Figure of a spectrum with its fits and the labels of its peaks.

    region: the shown energies in keV (default: all). residuals: add a panel with the counts minus
    the fits in standard deviations. peaks: draw the continuum and the single peaks of each fit.
    compare: another spectrum, scaled to the same live time. scale: one of SCALES.

    Raises ImportError if matplotlib is not installed, ValueError if nothing would be shown.
    """
    limits = _limits(drawing, region, compare)
    if scale not in SCALES:
        raise ValueError(f"unknown scale '{scale}'; expected one of {', '.join(SCALES)}")
    figure = figure_class()(figsize=_INCHES)
    bottom = 0.27 if residuals else 0.1
    axes = figure.add_axes([0.085, bottom, 0.895, 0.92 - bottom])
    top = _draw_counts(axes, drawing, "counts", SPECTRUM_COLOUR, limits)
    if compare is not None:
        top = max(top, _draw_compared(axes, drawing, compare, limits))
    curves = drawing.curves()
    _draw_curves(axes, drawing, curves, peaks)
    has_labels = _draw_labels(axes, drawing, limits)
    _set_scale(axes, scale, top, has_labels)
    axes.set(xlim=limits, ylabel="counts per channel")
    axes.set_title(_plain(textwrap.shorten(drawing.title, _TITLE_WIDTH)), loc="left", fontsize=11)
    axes.legend(loc="lower right", frameon=False, ncol=4, bbox_to_anchor=(1.0, 1.0))
    lowest = axes
    if residuals:
        axes.tick_params(labelbottom=False)
        lowest = figure.add_axes([0.085, 0.1, 0.895, 0.16], sharex=axes)
        _draw_residuals(lowest, drawing, curves)
    lowest.set_xlabel(drawing.axis.label)
    return figure


def _limits(
    drawing: Drawing, region: Optional[Tuple[float, float]], compare: Optional[Drawing]
) -> Tuple[float, float]:
    """Return the ends of the horizontal axis. Raises ValueError if it would show nothing."""
    if compare is not None and compare.axis.unit != drawing.axis.unit:
        raise ValueError("only one of the two spectra has an energy calibration")
    positions = drawing.positions()
    low, high = min(positions), max(positions)
    if region is None:
        return (low, high) if high > low else (low - 0.5, low + 0.5)
    if not drawing.axis.calibration.energy:
        raise ValueError("a region in keV needs an energy calibration")
    if not any(region[0] <= position <= region[1] for position in positions):
        raise ValueError(
            f"the region {region[0]:g}:{region[1]:g} keV has no channel; the spectrum is from"
            f" {low:.1f} to {high:.1f} keV"
        )
    return region


# ---- The panel of the counts -------------------------------------------------------------------


def _draw_counts(
    axes: Any,
    drawing: Drawing,
    label: str,
    colour: str,
    limits: Tuple[float, float],
    factor: float = 1.0,
) -> float:
    """Draw counts as steps; return the largest one between the limits."""
    positions = drawing.positions()
    counts = [count * factor for count in drawing.counts]
    axes.step(positions, counts, where="mid", linewidth=0.8, color=colour, label=label)
    low, high = limits
    return max((c for p, c in zip(positions, counts) if low <= p <= high), default=0.0)


def _draw_compared(
    axes: Any, drawing: Drawing, other: Drawing, limits: Tuple[float, float]
) -> float:
    own, others = drawing.live_time or 0.0, other.live_time or 0.0
    is_scaled = 0 < own < math.inf and 0 < others < math.inf
    factor = own / others if is_scaled else 1.0
    scaled = f"× {factor:.3g}" if is_scaled else "not scaled"
    name = textwrap.shorten(other.title, 30)
    label = f"{_plain(name)} ({scaled})"
    return _draw_counts(axes, other, label, _COMPARED_COLOUR, limits, factor)


def _draw_curves(axes: Any, drawing: Drawing, curves: Sequence[Curve], peaks: bool) -> None:
    """Draw the contents of the channels that the fits give, which are integrals over them."""
    labelled = {"fit": "fit", "continuum": "continuum", "peak": "single peaks"}
    styles = {
        "fit": {"color": FIT_COLOUR, "linewidth": 1.3},
        "continuum": {"color": "#009e73", "linewidth": 1.0, "linestyle": "--"},
        "peak": {"color": "#cc79a7", "linewidth": 1.0},
    }

    def draw(kind: str, curve: Curve, contents: Sequence[float]) -> None:
        label = labelled.pop(kind, None)
        axes.plot(_positions(drawing, curve), contents, label=label, **styles[kind])

    for curve in curves:
        if peaks:
            draw("continuum", curve, curve.continuum)
            for peak in curve.peaks:
                draw("peak", curve, [sum(pair) for pair in zip(curve.continuum, peak)])
        draw("fit", curve, curve.model)


def _positions(drawing: Drawing, curve: Curve) -> List[float]:
    region = curve.region
    return [drawing.axis.position(channel) for channel in range(region.first, region.last + 1)]


def _draw_labels(axes: Any, drawing: Drawing, limits: Tuple[float, float]) -> bool:
    """Draw the labels of the peaks between the limits. Returns True if there is one."""
    low, high = limits
    shown = [p for p in drawing.peaks if low <= drawing.axis.position(p.centroid) <= high]
    spacing = _LABEL_SPACING * (high - low)
    labels = layout.labels(drawing.counts, shown, drawing.axis, spacing, _MAX_LABELS, limits)
    for label in labels:
        axes.annotate(
            _plain(label.text),
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


def _set_scale(axes: Any, scale: str, top: float, has_labels: bool) -> None:
    """Set the vertical axis; labels are above the highest peak, in about a third of it."""
    top = max(top, 10.0)
    if scale == "log":
        room = (top / layout.MIN_COUNT) ** 0.45 if has_labels else 2.0
        axes.set_yscale("log", nonpositive="clip")
        axes.set_ylim(layout.MIN_COUNT, top * room)
        return
    if scale == "sqrt":
        axes.set_yscale("function", functions=(_root, _square))
    axes.set_ylim(0, top * (1.5 if has_labels else 1.1) ** (2 if scale == "sqrt" else 1))


def _root(values: Any) -> Any:
    return abs(values) ** 0.5 * (1 - 2 * (values < 0))


def _square(values: Any) -> Any:
    return values * abs(values)


# ---- The panel of the residuals ----------------------------------------------------------------


def _draw_residuals(axes: Any, drawing: Drawing, curves: Sequence[Curve]) -> None:
    excess = peak_curves.excess_variance(drawing.counts)
    largest = 3.0
    for curve in curves:
        residuals = curve.residuals(drawing.counts, excess)
        largest = max(largest, *(abs(residual) for residual in residuals))
        positions = _positions(drawing, curve)
        axes.step(positions, residuals, where="mid", linewidth=0.8, color=FIT_COLOUR)
    axes.axhline(0, linewidth=0.5, color="0.4")
    end = 6 if largest <= 6 else 12
    axes.set(ylabel="residual / σ", ylim=(-end, end), yticks=(-end // 2, 0, end // 2))
    axes.grid(axis="y", linewidth=0.3)


def _plain(text: str) -> str:
    """Return a string that matplotlib does not read as mathematics."""
    return printable(text).replace("$", r"\$")
