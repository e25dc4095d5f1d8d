"""The report of an analysis as one self-contained HTML file."""

import math
import os
from html import escape
from typing import Any, Iterator, List, Sequence, Tuple

from ..analysis.calibration import FWHM_PER_SIGMA
from ..analysis.results import Analysis
from ..records import RecordSource
from . import layout, tables
from .layout import FIT_COLOUR, SPECTRUM_COLOUR, Axis
from .printable import printable, value_text
from .tables import Column

_WIDTH, _HEIGHT = 1120, 470
_LEFT, _RIGHT, _TOP, _BOTTOM = 78, 14, 14, 50  # margins of the plot
_LABEL_ROOM = 112  # pixels above the spectrum for the labels of peaks
_LABEL_SPACING = 14  # pixels between them
_MAX_LABELS = 60
_CLASSES = ("QAR_CLS_MEASUREMENT", "QAR_CLS_SAMPLE")
_SETTINGS = ("QAR_CLS_PROC", "QAR_CLS_ANALCNTL")
_CALIBRATION = ("QAR_CLS_CALIBRATION",)

_STYLE = """
body { font: 15px/1.4 sans-serif; color: #111; background: #fff; margin: 2em auto; max-width: 72em;
  padding: 0 1em }
h1 { font-size: 1.4em } h2 { font-size: 1.1em; margin-top: 1.8em }
table { border-collapse: collapse; font-size: 0.9em }
th, td { padding: 0.2em 0.8em; text-align: right; border-bottom: 1px solid #ddd;
  vertical-align: top }
th { border-bottom: 1px solid #555 } th span { font-weight: normal; color: #555 }
td.text, th.text { text-align: left } td.name { white-space: nowrap }
svg { width: 100%; height: auto } svg text { font: 12px sans-serif; fill: #111 }
p.note { color: #555; font-size: 0.9em; max-width: 60em }
@media print { body { margin: 0; max-width: none } tr { break-inside: avoid } }
"""

_UNCERTAINTIES = (
    "Uncertainties are one standard deviation. Those of areas and activities come from the engine."
    " Those of energy and FWHM are estimated from the counts alone: FWHM / "
    f"{FWHM_PER_SIGMA:.3f} and FWHM / {math.sqrt(2):.3f}, times the relative uncertainty of the"
    " area; that of the continuum is the square root of its counts. Detection limits and"
    " confidences have no uncertainty."
)


def html_of(source: RecordSource, analysis: Analysis, axis: Axis, name: str = "") -> str:
    """Return the report of an open source.

    name: the name of the file in the report (default: that of the source). Raises NotFoundError
    if the source has no spectrum.
    """
    name = name or os.path.basename(source.path)
    title = source.get("QAR_C_REPORTTITLE") or source.get("QAR_C_MEASNAME") or name
    counts = source.spectrum()
    parts = [
        "<!DOCTYPE html>",
        '<html lang="en"><head><meta charset="utf-8">',
        '<meta name="viewport" content="width=device-width, initial-scale=1">',
        f"<title>{_text(title)}</title><style>{_STYLE}</style></head><body>",
        f"<h1>{_text(title)}</h1><p>{_text(name)}: {len(counts):,} channels,"
        f" {sum(counts):,} counts</p>",
        *svg(counts, analysis, axis),
        *_results("peak", tables.PEAKS, analysis.peaks),
        *_results("nuclide", tables.NUCLIDES, analysis.nuclides),
        f'<p class="note">{escape(_UNCERTAINTIES)}</p>',
        *_parameters(source, "Measurement", _CLASSES),
        *_parameters(source, "Calibrations", _CALIBRATION),
        *_parameters(source, "Settings of the analysis", _SETTINGS),
        "</body></html>",
    ]
    return "\n".join(parts) + "\n"


def _text(text: str) -> str:
    """Return a string for HTML, without control characters."""
    return escape(printable(text))


def _results(thing: str, columns: Sequence[Column], records: Sequence[Any]) -> Iterator[str]:
    yield f"<h2>{tables.counted(len(records), thing)}</h2>"
    if records:
        yield "<table><tr>"
        for column in columns:
            yield f"<th>{escape(column.title)}<br><span>{escape(column.unit)}</span></th>"
        yield "</tr>"
        for row in tables.cells(columns, records):
            yield "<tr>" + "".join(f"<td>{_text(cell)}</td>" for cell in row) + "</tr>"
        yield "</table>"


def _parameters(source: RecordSource, title: str, classes: Sequence[str]) -> Iterator[str]:
    rows = list(_rows(source, classes))
    if not rows:
        return
    yield f"<h2>{escape(title)}</h2><table>"
    heads = ("parameter", "value", "unit", "meaning")
    yield "<tr>" + "".join(f'<th class="text">{head}</th>' for head in heads) + "</tr>"
    for name, *others in rows:
        cells = "".join(f'<td class="text">{_text(cell)}</td>' for cell in others)
        yield f'<tr><td class="text name">{_text(name)}</td>{cells}</tr>'
    yield "</table>"


def _rows(source: RecordSource, classes: Sequence[str]) -> Iterator[Tuple[str, str, str, str]]:
    for class_name in classes:
        if source.record_count(class_name):
            for parameter, value in source.parameters(class_name):
                unit, meaning = parameter.unit, parameter.description
                yield parameter.name, value_text(value), unit, meaning


# ---- The spectrum as SVG -----------------------------------------------------------------------


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


def svg(counts: Sequence[int], analysis: Analysis, axis: Axis) -> Iterator[str]:
    """Yield the lines of an SVG element: the spectrum with its fits and labels."""
    plot = _Plot(counts, axis, bool(analysis.peaks))
    yield f'<svg viewBox="0 0 {_WIDTH} {_HEIGHT}" role="img" aria-label="spectrum">'
    yield from _frame(plot, axis)
    points = _outline(counts, axis, plot)
    yield f'<path fill="none" stroke="{SPECTRUM_COLOUR}" stroke-width="1" d="M{points}"/>'
    for curve in layout.fitted_curves(counts, analysis.peaks, axis.calibration):
        xs = (plot.x(axis.position(channel)) for channel in curve.channels)
        heights = map(plot.y, curve.counts)
        path = " ".join(f"{x:.1f},{y:.1f}" for x, y in zip(xs, heights))
        yield (
            f'<path fill="none" stroke="{FIT_COLOUR}" stroke-width="1.8"'
            f' stroke-dasharray="5 2" d="M{path}"/>'
        )
    yield from _labels(counts, analysis, axis, plot)
    yield from _legend(bool(analysis.peaks))
    yield "</svg>"


def _outline(counts: Sequence[int], axis: Axis, plot: _Plot) -> str:
    """Return the points of the outline: the minimum and maximum of each column of pixels."""
    columns: List[Tuple[int, int, int]] = []
    for channel, count in enumerate(counts, start=1):
        pixel = round(plot.x(axis.position(channel)))
        if columns and columns[-1][0] == pixel:
            _, low, high = columns[-1]
            columns[-1] = (pixel, min(low, count), max(high, count))
        else:
            columns.append((pixel, count, count))
    points = []
    for pixel, low, high in columns:
        ends = (low,) if low == high else (low, high)
        points += [f"{pixel},{plot.y(end):.1f}" for end in ends]
    return " ".join(points)


def _frame(plot: _Plot, axis: Axis) -> Iterator[str]:
    right, base = _WIDTH - _RIGHT, _HEIGHT - _BOTTOM
    for tick in layout.ticks(plot.low, plot.high, 12):
        x = plot.x(tick)
        yield f'<path stroke="#555" d="M{x:.1f},{base} v5"/>'
        yield f'<text x="{x:.1f}" y="{base + 19}" text-anchor="middle">{tick:g}</text>'
    for decade in range(0, math.floor(plot.top) + 1):
        y = plot.y(10.0**decade)
        yield f'<path stroke="#ddd" d="M{_LEFT},{y:.1f} H{right}"/>'
        yield f'<text x="{_LEFT - 7}" y="{y + 4:.1f}" text-anchor="end">{10**decade:,}</text>'
    yield f'<path fill="none" stroke="#555" d="M{_LEFT},{plot.ceiling} V{base} H{right}"/>'
    middle = (_LEFT + right) / 2
    yield f'<text x="{middle}" y="{_HEIGHT - 8}" text-anchor="middle">{escape(axis.label)}</text>'
    y = (plot.ceiling + base) / 2
    yield (
        f'<text transform="translate(12 {y}) rotate(-90)" text-anchor="middle">'
        "counts per channel</text>"
    )


def _labels(counts: Sequence[int], analysis: Analysis, axis: Axis, plot: _Plot) -> Iterator[str]:
    spacing = _LABEL_SPACING * plot.per_pixel
    for label in layout.labels(counts, analysis.peaks, axis, spacing, _MAX_LABELS):
        x = plot.x(label.shifted)
        foot = plot.ceiling - 6
        yield (
            f'<path fill="none" stroke="#999" stroke-width="0.6" d="M{x:.1f},{foot + 2}'
            f' L{plot.x(label.position):.1f},{plot.y(label.height) - 3:.1f}"/>'
        )
        turned = f"translate({x + 4:.1f} {foot}) rotate(-90)"
        yield f'<text transform="{turned}">{_text(label.text)}</text>'


def _legend(has_fits: bool) -> Iterator[str]:
    entries = [("counts", SPECTRUM_COLOUR, "1", "")]
    if has_fits:
        entries.append(("fitted peaks", FIT_COLOUR, "1.8", ' stroke-dasharray="5 2"'))
    for index, (text, colour, width, dashes) in enumerate(entries):
        x, y = _WIDTH - 250 + 100 * index, _HEIGHT - 12
        yield f'<path stroke="{colour}" stroke-width="{width}"{dashes} d="M{x},{y} h28"/>'
        yield f'<text x="{x + 34}" y="{y + 4}">{text}</text>'
