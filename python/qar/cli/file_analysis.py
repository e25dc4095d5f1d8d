"""The analysis of one file as a step of a batch: from any format to rows of a table."""

import contextlib
import os
import shutil
import tempfile
from typing import Any, Generator, List, NamedTuple, Optional, Tuple

from ..analysis import calibration
from ..analysis.results import Analysis, IdentifiedNuclide, Nuclide, Peak
from ..atomic_files import new_file, write_text
from ..display import layout, report
from ..source import DataSource
from ..source import open as open_source
from ..transfer import conversion
from ..values import is_known

Row = List[str]

COLUMNS = (
    *("file", "spectrum", "kind", "nuclide", "energy / keV", "FWHM / keV"),
    *("net area", "net area uncertainty", "continuum", "significance"),
    *("lines", "confidence", "activity / Bq", "activity uncertainty / Bq", "detection limit / Bq"),
)


class Options(NamedTuple):
    """How each file of a batch is analysed."""

    library: Tuple[Nuclide, ...] = ()  # empty: what the file has
    settings: Tuple[Tuple[str, Any], ...] = ()  # parameters by name
    template: str = ""  # a QAR file whose analysis sequence is taken over, empty: none
    into: str = ""  # the folder for the analysed files, empty: see `analyse`
    reports: str = ""  # the folder for reports, empty: none
    replace: bool = False  # whether files in these folders may be replaced


class Analysed(NamedTuple):
    """One analysed spectrum of a file."""

    name: str  # of the spectrum among several
    analysis: Analysis


def analyse(path: str, options: Options) -> List[Analysed]:
    """Analyses the spectra of a file, most often one.

    The results stand in the QAR file itself; with the folder `into` in copies there, which files
    of other formats also need to be kept. QarError, FormatError, OSError: the file failed.
    """
    found: List[Analysed] = []
    with contextlib.closing(_prepared(path, options)) as prepared:
        for spectrum, qar_file, name in prepared:
            with open_source(qar_file, "r+") as source:
                _set_up(source, options)
                analysis = source.analyse(**dict(options.settings))
                if options.reports:
                    _report(source, analysis, name, options)
            found.append(Analysed(spectrum, analysis))
    return found


class _Prepared(NamedTuple):
    """A spectrum that is ready to be analysed."""

    spectrum: str  # its name among several
    qar_file: str
    name: str  # of the QAR file when it is done


def _prepared(path: str, options: Options) -> Generator[_Prepared, None, None]:
    """Each spectrum of the file; what was made for it gets its name when it has been analysed."""
    is_qar = conversion.is_qar_file(path)
    if is_qar and not options.into:
        yield _Prepared("", path, os.path.basename(path))
        return
    with contextlib.ExitStack() as stack:
        folder = options.into or stack.enter_context(tempfile.TemporaryDirectory())
        name = os.path.splitext(os.path.basename(path))[0] + conversion.QAR_SUFFIX
        target = os.path.join(folder, name)
        if is_qar:
            with new_file(target, options.replace) as temporary:
                shutil.copyfile(path, temporary)
                yield _Prepared("", temporary, name)
            return
        measurements = conversion.read_any(path)
        for measurement, target in conversion.output_names(measurements, target):
            with new_file(target, options.replace) as temporary:
                conversion.store(measurement, temporary)
                spectrum = measurement.name if len(measurements) > 1 else ""
                yield _Prepared(spectrum, temporary, os.path.basename(target))


def _report(source: DataSource, analysis: Analysis, name: str, options: Options) -> None:
    text = report.html_of(source, analysis, layout.axis_of(source.calibration()), name)
    path = os.path.join(options.reports, os.path.splitext(name)[0] + ".html")
    write_text(path, text, options.replace)


def _set_up(source: DataSource, options: Options) -> None:
    if options.template:
        with open_source(options.template) as template:
            template.copy_analysis_sequence_to(source)
            for name in calibration.PARAMETERS.values():
                if source.get(name) is None:
                    source.set_column(name, template.column(name))
    if options.library:
        source.set_nuclide_library(options.library)


def rows(path: str, analysed: List[Analysed]) -> List[Row]:
    """The results as rows of COLUMNS, with every digit."""
    found: List[Row] = []
    for name, analysis in analysed:
        found += [[path, name, "peak", *_peak(peak)] for peak in analysis.peaks]
        found += [[path, name, "nuclide", *_nuclide(nuclide)] for nuclide in analysis.nuclides]
    return found


def _peak(peak: Peak) -> Row:
    numbers = (peak.energy, peak.fwhm, peak.area, peak.area_uncertainty)
    return [peak.nuclide, *map(_cell, (*numbers, peak.continuum, peak.significance)), *[""] * 5]


def _nuclide(nuclide: IdentifiedNuclide) -> Row:
    activity = (nuclide.activity, nuclide.activity_uncertainty, nuclide.detection_limit)
    numbers = [str(nuclide.lines), *map(_cell, (nuclide.confidence, *activity))]
    return [nuclide.name, _cell(nuclide.energy), *[""] * 5, *numbers]


def _cell(value: Optional[float]) -> str:
    return repr(value) if is_known(value) else ""


class Outcome(NamedTuple):
    """What became of a file: rows, or why there are none."""

    rows: List[Row]
    failure: str = ""


def outcome(path: str, options: Options) -> Outcome:
    """Analyses a file; whatever fails becomes the line that says so."""
    try:
        return Outcome(rows(path, analyse(path, options)))
    except Exception as error:  # a file that fails stops nobody
        return Outcome([], failure_text(error))


def failure_text(error: BaseException, named: bool = False) -> str:
    """The reason of a failure on one line. named: after the name of the file that it was."""
    reason = error.strerror if isinstance(error, OSError) and error.strerror else str(error)
    text = " ".join(reason.split()) or type(error).__name__
    filename = getattr(error, "filename", None)
    if named and isinstance(filename, str) and filename:
        text = f"{filename}: {text}"
    return "".join(c if c.isprintable() else "?" for c in text)
