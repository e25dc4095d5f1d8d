"""How a data source looks in a notebook: its parameters as a table, its spectrum as a line."""

import math
from html import escape
from typing import TYPE_CHECKING, Any, Iterator, Sequence

if TYPE_CHECKING:
    from ..source import DataSource

CLASSES = ("QAR_CLS_MEASUREMENT", "QAR_CLS_SAMPLE", "QAR_CLS_CALIBRATION")
WIDTH, HEIGHT = 640, 120


def of_source(source: "DataSource") -> str:
    heading = f"<b>{escape(source.path)}</b>"
    if source.closed:
        return f"<p>{heading}, closed</p>"
    return f"<p>{heading}</p>{_spectrum(source)}<table>{''.join(_rows(source))}</table>"


def _spectrum(source: "DataSource") -> str:
    if source.get("QAR_L_CHANNELS") is None:
        return ""
    title = "counts of the channels, logarithmic"
    return (
        f'<svg width="{WIDTH}" height="{HEIGHT}" role="img"><title>{title}</title>'
        f'<polyline fill="none" stroke="currentColor" points="{_points(source.spectrum())}"/></svg>'
    )


def _points(channels: Sequence[int]) -> str:
    """The largest content in each column of pixels, with a logarithmic scale."""
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


def _rows(source: "DataSource") -> Iterator[str]:
    for class_key in CLASSES:
        for parameter, value in source.parameters(class_key):
            cells = (parameter.name, _text(value), parameter.unit, parameter.description)
            yield "<tr>" + "".join(f"<td>{escape(cell)}</td>" for cell in cells) + "</tr>"


def _text(value: Any) -> str:
    if isinstance(value, list):
        return ", ".join(map(_text, value))
    return f"{value:.6g}" if isinstance(value, float) else str(value)
