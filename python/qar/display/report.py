"""The report of an analysis as an HTML page that needs no network. See docs/reports.md."""

import math
import os
import re
from typing import Any, Dict, Iterator, List, NamedTuple, Optional, Sequence, Tuple

from ..analysis import peak_curves
from ..analysis.blank import Blank
from ..analysis.calibration import FWHM_PER_SIGMA, Calibration
from ..analysis.calibration_notes import corrected_calibration
from ..analysis.results import Analysis, IdentifiedNuclide, Nuclide, nuclide_library
from ..errors import NotFoundError
from ..records import RecordSource
from ..values import is_known
from ..version import __version__
from . import report_data, static_plot, tables
from .assets import NO_LIBRARY, assets, is_interactive
from .layout import Axis, axis_of
from .printable import value_text
from .report_data import Overlay
from .tables import Column
from .templates import Html, each, fill, fill_file, joined

_UNCERTAINTIES = (
    "Uncertainties are one standard deviation. Those of areas and activities come from the engine."
    " Those of energy and FWHM are estimated from the counts alone: FWHM / "
    f"{FWHM_PER_SIGMA:.3f} and FWHM / {math.sqrt(2):.3f}, times the relative uncertainty of the"
    " area; that of the continuum is the square root of its counts."
)
_PARAMETERS = (
    ("measurement", "Measurement", ("QAR_CLS_MEASUREMENT", "QAR_CLS_SAMPLE")),
    ("calibrations", "Calibrations", ("QAR_CLS_CALIBRATION",)),
    ("settings", "Settings of the analysis", ("QAR_CLS_PROC", "QAR_CLS_ANALCNTL")),
)
_FACTS = (  # shown at the top if the file has them
    ("sample", "QAR_C_SAMPLETITLE"),
    ("sample number", "QAR_C_SAMPLEID"),
    ("kind of sample", "QAR_C_SAMPLETYPE"),
    ("location", "QAR_C_LOCATION"),
    ("detector", "QAR_C_DETECTOR"),
    ("measured", "QAR_T_ACQSTART"),
    ("time of reference", "QAR_T_SAMPLETIME"),
    ("analysed", "QAR_T_ANALYSED"),
    ("analysed with", "QAR_C_ANVERSION"),
    ("nuclide library", "QAR_C_ANLIBRARY"),
    ("blank", "QAR_C_ANBLANK"),
)
_FACT = "<div><dt>$name</dt><dd>$value</dd></div>"
_NAME = "<span>$name</span>"
_ITEM = "<li>$reason: $names</li>\n"
_HEAD = '<th scope="col">$title<br><span>$unit</span></th>'
_ROW = '<tr data-index="$index"><th scope="row">$name</th>$cells</tr>\n'
_WORDS = '<tr><th scope="row">$name</th>$cells</tr>\n'


NARROW = "46rem"  # screens on which a row of a table becomes a card; as in report.css


_MIN_CONFIDENCE = 0.01  # of a nuclide without a limit to have a row of its own


class Options(NamedTuple):
    """How a page is made. The default is one file with everything in it."""

    name: str = ""  # of the file, in the page; empty: that of the source
    library: Sequence[Nuclide] = ()  # for the lines of nuclides; empty: that of the source
    overlays: Sequence[Overlay] = ()  # further spectra in the picture
    shared_script: bool = False  # the files of `assets.shared_files` are beside the page
    controls: Html = Html("")  # above the spectrum, such as a form to the page's own server


def page(source: RecordSource, analysis: Analysis, options: Options = Options()) -> str:
    """Return the report of an open source and its results as HTML.

    Strings from the source are escaped; the page's content security policy admits no other
    scripts and no request to another host. Raises NotFoundError if the source has no spectrum.
    """
    name = options.name or os.path.basename(source.path)
    title = source.get("QAR_C_REPORTTITLE") or source.get("QAR_C_MEASNAME") or name
    counts = source.spectrum()
    axis = axis_of(_usable(corrected_calibration(source), len(counts)))
    curves = peak_curves.curves_of(source, analysis.peaks, counts, axis.calibration)
    viewed = is_interactive()
    found = assets(_labels_of_cards(), options.shared_script, bool(options.controls))
    return fill_file(
        "page.html",
        policy=found.policy,
        style=found.style,
        scripts=found.scripts,
        title=title,
        summary=f"{name}: {len(counts):,} channels, {sum(counts):,} counts",
        controls=options.controls,
        facts=_facts(source),
        warnings=_warnings(analysis),
        viewer=fill_file("viewer.html") if viewed else Html(""),
        picture=static_plot.svg(counts, analysis.peaks, curves, axis),
        caption="" if viewed else NO_LIBRARY,
        sections=_sections(source, analysis),
        footer=f"Made by qar {__version__}. {_UNCERTAINTIES}",
        data=Html(_data(source, analysis, options, counts, curves, axis)) if viewed else "{}",
    )


def _usable(calibration: Calibration, channels: int) -> Calibration:
    """Return the calibrations without one of energy whose energies do not rise."""
    if calibration.energy:
        energies = calibration.energies(channels)
        rises = all(low < high for low, high in zip(energies, energies[1:]))
        if not rises or not all(map(math.isfinite, (energies[0], energies[-1]))):
            return calibration._replace(energy=())
    return calibration


def overlay_of(source: RecordSource, other: RecordSource, name: str) -> Overlay:
    """Return the spectrum of another source, scaled to the live time of the first.

    Without both live times the counts stay as they are, and the name of the overlay notes this.
    """
    calibration = corrected_calibration(other)
    return _overlay(source, other.spectrum(), other.get("QAR_D_LIVETIME"), calibration, name)


def overlay_of_blank(source: RecordSource, blank: Blank) -> Overlay:
    """Return a blank, scaled to the live time of a source."""
    calibration = Calibration(blank.energy, blank.shape)
    return _overlay(source, blank.counts, blank.live_time, calibration, blank.name)


def _overlay(
    source: RecordSource,
    counts: Sequence[int],
    live_time: Optional[float],
    calibration: Calibration,
    name: str,
) -> Overlay:
    factor, note = 1.0, ", not scaled"
    own_time = source.get("QAR_D_LIVETIME")
    if live_time and own_time and 0 < live_time < math.inf and 0 < own_time < math.inf:
        factor = own_time / live_time
        note = f" × {factor:.4g}"
    channels = len(source.spectrum())
    rebinned = report_data.rebinned(
        counts,
        _usable(calibration, len(counts)),
        _usable(corrected_calibration(source), channels),
        channels,
    )
    return Overlay(name + note, [factor * count for count in rebinned])


def _data(
    source: RecordSource,
    analysis: Analysis,
    options: Options,
    counts: Sequence[int],
    curves: Sequence[peak_curves.Curve],
    axis: Axis,
) -> str:
    library = options.library or nuclide_library(source)
    tolerance = report_data.tolerance_of(source.get("QAR_D_MATCHTOL"))
    shown = analysis._replace(not_found=tuple(_listed(analysis.not_found)))
    content = report_data.data_of(counts, shown, curves, axis, library, tolerance, options.overlays)
    return report_data.json_of(content)


def _facts(source: RecordSource) -> Html:
    facts = [(name, _stored(source, parameter)) for name, parameter in _FACTS]
    times = [("live time", "QAR_D_LIVETIME"), ("real time", "QAR_D_REALTIME")]
    for name, parameter in times:
        seconds = source.get(parameter)
        facts.append((name, f"{tables.number(seconds)} s" if seconds else ""))
    shown = [fill(_FACT, name=name, value=_readable(value)) for name, value in facts if value]
    return Html(f'<dl class="facts">{joined(shown)}</dl>')


def _stored(source: RecordSource, parameter: str) -> Any:
    try:
        return source.get(parameter)
    except NotFoundError:  # the dictionary of another suite may lack it
        return None


def _readable(value: Any) -> str:
    """Return a value with dates in the form 2026-11-25 21:02:12 UTC."""
    return re.sub(r"^(\d{4}-\d\d-\d\d)T([\d:]{8})(\.0+)?Z$", r"\1 \2 UTC", value_text(value))


def _warnings(analysis: Analysis) -> Html:
    poor = sum(1 for peak in analysis.peaks if tables.is_poor_fit(peak))
    warnings = list(analysis.notes)
    if poor:
        subject = "1 fit does" if poor == 1 else f"{poor} fits do"
        warnings.append(
            f"{subject} not describe the region (chi square above {tables.MAX_CHI_SQUARE:g});"
            " its uncertainties are enlarged"
        )
    if not warnings:
        return Html("")
    items = each("<li>$value</li>", warnings)
    return Html(f'<div class="warnings" role="note"><h2>Warnings</h2><ul>{items}</ul></div>')


# ---- Tables ------------------------------------------------------------------------------------


def _sections(source: RecordSource, analysis: Analysis) -> Html:
    found, missing = analysis.nuclides, _listed(analysis.not_found)
    parts = [
        _results("nuclides", tables.counted(len(found), "nuclide"), tables.NUCLIDES, found),
        _results(
            "peaks", tables.counted(len(analysis.peaks), "peak"), tables.PEAKS, analysis.peaks
        ),
    ]
    if missing:
        title = "Nuclides not found"
        parts.append(_results("missing", title, tables.NOT_FOUND, missing, len(found)))
    parts.append(_unlisted(analysis.not_found))
    parts += [_parameters(source, *section) for section in _PARAMETERS]
    return joined(parts, "\n")


def _listed(nuclides: Sequence[IdentifiedNuclide]) -> List[IdentifiedNuclide]:
    """Return the nuclides that were not found, but have a limit or some evidence."""
    return [
        nuclide
        for nuclide in nuclides
        if is_known(nuclide.detection_limit) or nuclide.confidence >= _MIN_CONFIDENCE
    ]


def _unlisted(nuclides: Sequence[IdentifiedNuclide]) -> Html:
    """Return the other nuclides that were not found, by the reason."""
    names: Dict[str, List[str]] = {}
    listed = set(_listed(nuclides))
    for nuclide in nuclides:
        if nuclide not in listed:
            names.setdefault(nuclide.reason or "no evidence", []).append(nuclide.name)
    items = [
        fill(_ITEM, reason=reason, names=joined([fill(_NAME, name=name) for name in group], ", "))
        for reason, group in names.items()
    ]
    if not items:
        return Html("")
    return fill_file("unlisted.html", items=joined(items))


def _results(
    name: str, title: str, columns: Sequence[Column], records: Sequence[Any], first: int = 0
) -> Html:
    """Return a section of results; rows are numbered from `first`."""
    rows = [
        fill(_ROW, index=index, name=row[0], cells=each("<td>$value</td>", row[1:]))
        for index, row in enumerate(tables.cells(columns, records), start=first)
    ]
    heads = joined(fill(_HEAD, title=column.title, unit=column.unit) for column in columns)
    return fill_file("table.html", id=name, title=title, heads=heads, rows=joined(rows))


def _parameters(source: RecordSource, name: str, title: str, classes: Sequence[str]) -> Html:
    rows = [
        fill(_WORDS, name=row[0], cells=each("<td>$value</td>", row[1:]))
        for row in _rows(source, classes)
    ]
    if not rows:
        return Html("")
    heads = each('<th scope="col">$value</th>', ("parameter", "value", "unit", "meaning"))
    return fill_file("table.html", id=name, title=title, heads=heads, rows=joined(rows))


def _rows(source: RecordSource, classes: Sequence[str]) -> Iterator[Tuple[str, str, str, str]]:
    for class_name in classes:
        if source.record_count(class_name):
            for parameter, value in source.parameters(class_name):
                unit, meaning = parameter.unit, parameter.description
                yield parameter.name, value_text(value), unit, meaning


def _labels_of_cards() -> str:
    """Return the rules that name each cell on narrow screens, where a row becomes a card."""
    rules: List[str] = []
    for name, columns in (
        ("peaks", tables.PEAKS), ("nuclides", tables.NUCLIDES), ("missing", tables.NOT_FOUND),
    ):  # fmt: skip
        rules.append(f'#{name} tbody th::after{{content:" {columns[0].unit}"}}')
        for number, column in enumerate(columns[1:], start=2):
            label = column.title + (f" / {column.unit}" if column.unit else "")
            rules.append(f'#{name} td:nth-child({number})::before{{content:"{label}"}}')
    return f"@media screen and (max-width: {NARROW}) {{\n" + "\n".join(rules) + "\n}\n"
