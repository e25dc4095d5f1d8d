"""A data source as HTML in a notebook: its parameters as a table, its spectrum as a line."""

import math
from html import escape
from typing import Iterator, Sequence

from ..records import RecordSource
from .printable import printable, value_text

CLASSES = ("QAR_CLS_MEASUREMENT", "QAR_CLS_SAMPLE", "QAR_CLS_CALIBRATION")
WIDTH, HEIGHT = 640, 120  # pixels


def html_of(source: RecordSource) -> str:
    """Return the HTML of a source, which may be closed."""
    heading = f"<b>{escape(printable(source.path))}</b>"
    if source.closed:
        return f"<p>{heading}, closed</p>"
    return f"<p>{heading}</p>{_spectrum(source)}<table>{''.join(_rows(source))}</table>"


def _spectrum(source: RecordSource) -> str:
    if source.get("QAR_L_CHANNELS") is None:
        return ""
    title = "counts per channel, logarithmic"
    return (
        f'<svg width="{WIDTH}" height="{HEIGHT}" role="img"><title>{title}</title>'
        f'<polyline fill="none" stroke="currentColor" points="{_points(source.spectrum())}"/></svg>'
    )


def _points(channels: Sequence[int]) -> str:
    """Return the maximum content of each column of pixels, on a logarithmic scale."""
    edges = [len(channels) * column // WIDTH for column in range(WIDTH + 1)]
    heights = [
        math.log10(max(1, *channels[low : max(high, low + 1)]))
        for low, high in zip(edges, edges[1:])
    ]
    top = max(max(heights), 1)
    return " ".join(
        f"{column},{HEIGHT - height / top * (HEIGHT - 4) - 2:.1f}"
        for column, height in enumerate(heights)
    )


def _rows(source: RecordSource) -> Iterator[str]:
    for class_key in CLASSES:
        for parameter, value in source.parameters(class_key):
            texts = (parameter.name, value_text(value), parameter.unit, parameter.description)
            cells = "".join(f"<td>{escape(printable(text))}</td>" for text in texts)
            yield f"<tr>{cells}</tr>"
