"""Data sources and results in a notebook: tables, and the spectrum as a figure."""

import base64
import io
import math
from html import escape
from typing import Any, Iterator, Optional, Sequence, Tuple, TypeVar

from .. import optional_imports
from ..analysis.results import Analysis
from ..records import RecordSource
from . import plot, tables
from .plot import Drawing
from .printable import printable, value_text
from .tables import Column

CLASSES = ("QAR_CLS_MEASUREMENT", "QAR_CLS_SAMPLE", "QAR_CLS_CALIBRATION")
WIDTH, HEIGHT = 640, 120  # pixels
Record = TypeVar("Record")


# ---- Results -----------------------------------------------------------------------------------


class Table(Tuple[Record, ...]):
    """A tuple of records that a notebook shows as a table."""

    columns: Sequence[Column] = ()

    def _repr_html_(self) -> str:
        return _table(self.columns, self)


class Peaks(Table[Any]):
    columns = tables.PEAKS


class Nuclides(Table[Any]):
    columns = tables.NUCLIDES


class Results(Analysis):
    """The results of a source with its spectrum, which they can be drawn on."""

    drawing: Optional[Drawing] = None

    def plot(
        self,
        region: Optional[Tuple[float, float]] = None,
        residuals: bool = False,
        peaks: bool = False,
        scale: str = "log",
    ) -> Any:
        """Return a matplotlib Figure of the spectrum with its fits; see `DataSource.plot`.

        Raises ImportError if matplotlib is not installed, ValueError if there is no spectrum or
        nothing would be shown.
        """
        if self.drawing is None:
            raise ValueError("the source of these results has no spectrum")
        return plot.figure_of(self.drawing, region, residuals, peaks, scale=scale)

    def _repr_html_(self) -> str:
        parts = [f"<p>{escape(note)}</p>" for note in self.notes]
        for thing, columns, records in (
            ("peak", tables.PEAKS, self.peaks),
            ("nuclide", tables.NUCLIDES, self.nuclides),
        ):
            heading = f"<p><b>{tables.counted(len(records), thing)}</b></p>"
            parts += [heading, _table(columns, records) if records else ""]
        return "".join(parts)


def results_of(analysis: Analysis, drawing: Optional[Drawing]) -> Results:
    """Return results as a notebook shows them. drawing: of their source, if it has a spectrum."""
    results = Results(*analysis)._replace(
        peaks=Peaks(analysis.peaks), nuclides=Nuclides(analysis.nuclides)
    )
    results.drawing = drawing
    return results


def _table(columns: Sequence[Column], records: Sequence[Any]) -> str:
    heads = "".join(f"<th>{escape(c.title)}<br>{escape(c.unit)}</th>" for c in columns)
    rows = "".join(
        "<tr>" + "".join(f"<td>{escape(printable(cell))}</td>" for cell in row) + "</tr>"
        for row in tables.cells(columns, records)
    )
    return f"<table><thead><tr>{heads}</tr></thead><tbody>{rows}</tbody></table>"


# ---- Data sources ------------------------------------------------------------------------------


def html_of(source: RecordSource, drawing: Optional[Drawing]) -> str:
    """Return the HTML of a source, which may be closed. drawing: its own, if it has a spectrum."""
    heading = f"<b>{escape(printable(source.path))}</b>"
    if source.closed:
        return f"<p>{heading}, closed</p>"
    picture = "" if drawing is None else _spectrum(drawing)
    return f"<p>{heading}</p>{picture}<table>{''.join(_rows(source))}</table>"


def _spectrum(drawing: Drawing) -> str:
    """Return the figure as a picture, or a plain line if matplotlib is not installed."""
    title = "counts per channel, logarithmic"
    if optional_imports.optional("matplotlib.figure"):
        content = io.BytesIO()
        plot.save(plot.figure_of(drawing), content, "png")
        data = base64.b64encode(content.getvalue()).decode("ascii")
        return f'<img style="max-width: 100%" alt="{title}" src="data:image/png;base64,{data}">'
    return (
        f'<svg width="{WIDTH}" height="{HEIGHT}" role="img"><title>{title}</title><polyline'
        f' fill="none" stroke="currentColor" points="{_points(drawing.counts)}"/></svg>'
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
