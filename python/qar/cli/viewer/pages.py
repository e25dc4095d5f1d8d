"""The pages of `qar view`: the list of files, and a report of each spectrum with a form."""

import contextlib
import os
import time
import warnings
from typing import Any, Dict, List, Optional, Sequence, Tuple

from ... import formats
from ...analysis.results import Analysis
from ...display import report, tables
from ...display.assets import assets
from ...display.templates import Html, each, fill, fill_file, joined
from ...errors import QarError
from ...formats import FormatError, Measurement
from ...nuclides import builtin_library
from ...source import DataSource
from ...transfer.any_file import open_copy
from ..output import failure_text
from .catalogue import Catalogue

_LIMIT, _LIBRARY, _SPECTRUM = "limit", "library", "spectrum"  # fields of the form
_LIST = """\
<table>
<thead><tr>
<th scope="col">file</th><th scope="col">bytes</th><th scope="col">modified</th>
</tr></thead>
<tbody>
$rows</tbody>
</table>"""
_FILE = (
    '<tr><th scope="row"><a href="$number">$name</a></th><td>$size</td><td>$modified</td></tr>\n'
)
_CONTROLS = """\
<nav class="controls" aria-label="Files">$links</nav>
<form class="controls" action="$number" method="get">
$spectra
<label>limit / sigma
<input name="limit" type="number" min="1" max="100" step="any" value="$limit"></label>
$libraries
<button>Analyse a copy</button>
</form>
$notes"""
_LINK = '<a href="$address">$text</a> '
_SELECT = '<label>$title <select name="$name">$options</select></label>'
_OPTION = '<option value="$value"$selected>$text</option>'
_NOTES = '<section class="warnings" role="status"><ul>$items</ul></section>'


class Pages:
    """Makes the pages of a catalogue. Spectra are analysed in temporary copies."""

    def __init__(self, catalogue: Catalogue) -> None:
        self._catalogue = catalogue

    def __call__(self, path: str, query: Dict[str, str]) -> Optional[str]:
        """Return the page of a path below the token, or None if there is none."""
        if path == "":
            return self._list()
        return self._spectrum(path, query) if path in self._catalogue.files else None

    def _list(self) -> str:
        rows = joined(self._row(number, path) for number, path in self._catalogue.files.items())
        number = tables.counted(len(self._catalogue.files), "file")
        title = f"{number} in {self._catalogue.folder}"
        return _plain_page(title, fill(_LIST, rows=rows))

    def _row(self, number: str, path: str) -> Html:
        size, modified = "-", "-"
        with contextlib.suppress(OSError):  # a deleted file remains in the list
            status = os.stat(path)
            size = f"{status.st_size:,}"
            modified = time.strftime("%Y-%m-%d %H:%M", time.localtime(status.st_mtime))
        name = self._catalogue.name(path)
        return fill(_FILE, number=number, name=name, size=size, modified=modified)

    def _spectrum(self, number: str, query: Dict[str, str]) -> str:
        path = self._catalogue.files[number]
        name = self._catalogue.name(path)
        measurements: List[Measurement] = []
        try:
            measurements = self._catalogue.reading.read(path)
            measurement, query[_SPECTRUM] = _chosen(measurements, query.get(_SPECTRUM, ""))
            with open_copy(measurement) as (source, notes):
                source.path = path
                analysis, more = self._analysed(source, query)
                controls = self._controls(number, query, measurements, [*notes, *more])
                library = builtin_library.library_of(source)
                options = report.Options(name=name, library=library, controls=controls)
                return report.page(source, analysis, options)
        except (FormatError, QarError, OSError, ValueError) as error:
            notes = [failure_text(error)]
            return _plain_page(name, self._controls(number, query, measurements, notes))

    def _analysed(self, source: DataSource, query: Dict[str, str]) -> Tuple[Analysis, List[str]]:
        """Return the results in a source, or those of a new analysis, with its notes.

        There is a new analysis if the query has settings for it or the source has no results.
        """
        library = self._catalogue.libraries.get(query.get(_LIBRARY, ""))
        stored = source.results()
        if not query.get(_LIMIT) and library is None and (stored.peaks or stored.nuclides):
            return stored, []
        settings: Dict[str, Any] = {}
        if query.get(_LIMIT):
            settings["QAR_D_PEAKLIMIT"] = _limit(query[_LIMIT])
        if library is not None:
            source.set_nuclide_library(library.nuclides)
        groups = library.groups if library is not None else ()
        with warnings.catch_warnings(record=True) as caught:
            warnings.simplefilter("always")
            try:
                analysis: Analysis = source.analyse(groups=groups, **settings)
            except QarError as error:
                return stored, [failure_text(error)]
        return analysis, [str(item.message) for item in caught]

    def _controls(
        self,
        number: str,
        query: Dict[str, str],
        measurements: Sequence[Measurement],
        notes: Sequence[str],
    ) -> Html:
        """Return the links to other files, the form of another analysis, and notes."""
        libraries = {key: item.title for key, item in self._catalogue.libraries.items()}
        spectra = {str(i): item.name for i, item in enumerate(measurements, start=1)}
        chosen = query.get(_SPECTRUM, "")
        items = each("<li>$value</li>", notes)
        return fill(
            _CONTROLS,
            links=self._links(number),
            number=number,
            spectra=_select("spectrum", _SPECTRUM, spectra, chosen) if len(spectra) > 1 else "",
            limit=query.get(_LIMIT, ""),
            libraries=_select(
                "nuclides", _LIBRARY, {"": "of the file", **libraries}, query.get(_LIBRARY, "")
            ),
            notes=fill(_NOTES, items=items) if notes else "",
        )

    def _links(self, number: str) -> Html:
        files = list(self._catalogue.files)
        position = files.index(number)
        links = [("./", "all files")]
        links += [(files[position - 1], "previous")] if position > 0 else []
        links += [(files[position + 1], "next")] if position + 1 < len(files) else []
        return joined(fill(_LINK, address=address, text=text) for address, text in links)


def _chosen(measurements: Sequence[Measurement], number: str) -> Tuple[Measurement, str]:
    """Return the spectrum with a number, or the foreground if there is none; and its number."""
    numbered = {str(i): item for i, item in enumerate(measurements, start=1)}
    chosen = numbered.get(number) or formats.foreground(measurements)
    return next((item, key) for key, item in numbered.items() if item is chosen)


def _limit(text: str) -> float:
    try:
        return float(text)
    except ValueError:
        raise FormatError(f"limit: {text!r} is not a number") from None


def _select(title: str, name: str, options: Dict[str, str], chosen: str) -> Html:
    items = joined(
        fill(_OPTION, value=key, selected=" selected" if key == chosen else "", text=text)
        for key, text in options.items()
    )
    return fill(_SELECT, title=title, name=name, options=items)


def _plain_page(title: str, content: Html) -> str:
    found = assets("", shared=False, has_form=True)
    return fill_file(
        "list.html", policy=found.policy, style=found.style, title=title, content=content
    )
