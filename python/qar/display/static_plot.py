"""A spectrum as an SVG picture: for pages without scripts, and for print."""

import math
from typing import Iterator, List, Sequence, Tuple

from ..analysis.peak_curves import Curve
from ..analysis.results import Peak
from . import layout
from .layout import Axis
from .templates import Html, fill, joined

_WIDTH, _HEIGHT = 1120, 470
_LEFT, _RIGHT, _TOP, _BOTTOM = 78, 14, 14, 50  # margins of the plot
_LABEL_ROOM = 112  # pixels above the spectrum for the labels of peaks
_LABEL_SPACING = 14  # pixels between them
_MAX_LABELS = 60


class _Plot:
    """Converts positions on the axis and counts to pixels."""

    def __init__(self, counts: Sequence[int], axis: Axis, has_labels: bool) -> None:
        self.low, self.high = axis.position(1), axis.position(len(counts))
        if not self.high > self.low:
            self.low, self.high = 1.0, max(2.0, float(len(counts)))
        self.bottom = math.log10(layout.MIN_COUNT)
        self.top = max(1.0, math.log10(max(*counts, 1)) + 0.1)
        self.ceiling = _TOP + (_LABEL_ROOM if has_labels else 0)

    def x(self, position: float) -> float:
        share = (position - self.low) / (self.high - self.low)
        return _LEFT + share * (_WIDTH - _LEFT - _RIGHT)

    def y(self, count: float) -> float:
        height = math.log10(max(count, layout.MIN_COUNT))
        share = (height - self.bottom) / (self.top - self.bottom)
        return _HEIGHT - _BOTTOM - share * (_HEIGHT - _BOTTOM - self.ceiling)

    @property
    def per_pixel(self) -> float:
        return (self.high - self.low) / (_WIDTH - _LEFT - _RIGHT)


_LINE = '<path class="$kind" d="M$points"/>\n'
_TEXT = '<text x="$x" y="$y" class="$kind">$text</text>\n'
_TURNED = '<text transform="$transform" class="$kind">$text</text>\n'
_SVG = (
    f'<svg viewBox="0 0 {_WIDTH} {_HEIGHT}" role="img" aria-label="Spectrum with fitted peaks">\n'
    "$content</svg>"
)


def svg(counts: Sequence[int], peaks: Sequence[Peak], curves: Sequence[Curve], axis: Axis) -> Html:
    """Return an SVG element: the spectrum on a logarithmic scale with its fits and labels."""
    plot = _Plot(counts, axis, bool(peaks))
    parts = [*_frame(plot, axis)]
    parts.append(fill(_LINE, kind="counts", points=_outline(counts, 1, axis, plot)))
    for curve in curves:
        points = _outline(curve.model, curve.region.first, axis, plot)
        parts.append(fill(_LINE, kind="fit", points=points))
    parts += _labels(counts, peaks, axis, plot)
    parts += _legend(bool(curves))
    return fill(_SVG, content=joined(parts))


def _outline(counts: Sequence[float], first: int, axis: Axis, plot: _Plot) -> str:
    """Return the points of an outline: the minimum and maximum of each column of pixels."""
    columns: List[Tuple[int, float, float]] = []
    for channel, count in enumerate(counts, start=first):
        pixel = round(plot.x(axis.position(channel)))
        if columns and columns[-1][0] == pixel:
            _, low, high = columns[-1]
            columns[-1] = (pixel, min(low, count), max(high, count))
        else:
            columns.append((pixel, count, count))
    points = []
    for pixel, low, high in columns:
        ends = (low,) if low == high else (low, high)
        points += [f"{pixel},{plot.y(end):.0f}" for end in ends]
    return " ".join(points)


def _frame(plot: _Plot, axis: Axis) -> Iterator[Html]:
    right, base = _WIDTH - _RIGHT, _HEIGHT - _BOTTOM
    for tick in layout.ticks(plot.low, plot.high, 12):
        x = f"{plot.x(tick):.1f}"
        yield fill(_LINE, kind="frame", points=f"{x},{base} v5")
        yield fill(_TEXT, x=x, y=base + 19, kind="middle", text=f"{tick:g}")
    for decade in range(0, math.floor(plot.top) + 1):
        y = plot.y(10.0**decade)
        yield fill(_LINE, kind="grid", points=f"{_LEFT},{y:.1f} H{right}")
        yield fill(_TEXT, x=_LEFT - 7, y=f"{y + 4:.1f}", kind="end", text=f"{10**decade:,}")
    yield fill(_LINE, kind="frame", points=f"{_LEFT},{plot.ceiling} V{base} H{right}")
    middle = (_LEFT + right) // 2
    yield fill(_TEXT, x=middle, y=_HEIGHT - 8, kind="middle", text=axis.label)
    turned = f"translate(12 {(plot.ceiling + base) // 2}) rotate(-90)"
    yield fill(_TURNED, transform=turned, kind="middle", text="counts per channel")


def _labels(
    counts: Sequence[int], peaks: Sequence[Peak], axis: Axis, plot: _Plot
) -> Iterator[Html]:
    spacing = _LABEL_SPACING * plot.per_pixel
    for label in layout.labels(counts, peaks, axis, spacing, _MAX_LABELS):
        x = plot.x(label.shifted)
        foot = plot.ceiling - 6
        end = f"{plot.x(label.position):.1f},{plot.y(label.height) - 3:.1f}"
        yield fill(_LINE, kind="leader", points=f"{x:.1f},{foot + 2} L{end}")
        turned = f"translate({x + 4:.1f} {foot}) rotate(-90)"
        yield fill(_TURNED, transform=turned, kind="label", text=label.text)


def _legend(has_fits: bool) -> Iterator[Html]:
    entries = [("counts", "counts")] + ([("fit", "fitted peaks")] if has_fits else [])
    for index, (kind, text) in enumerate(entries):
        x, y = _WIDTH - 250 + 100 * index, _HEIGHT - 12
        yield fill(_LINE, kind=kind, points=f"{x},{y} h28")
        yield fill(_TEXT, x=x + 34, y=y + 4, kind="start", text=text)
