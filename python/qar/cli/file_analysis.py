"""The analysis of one file as a step of a batch: from any format to rows of a table."""

import os
import tempfile
import warnings
from typing import Any, FrozenSet, Iterable, List, NamedTuple, Optional, Tuple

from .. import formats
from ..analysis import calibration, efficiency
from ..analysis.blank import Blank
from ..analysis.results import Analysis, IdentifiedNuclide, Nuclide, Peak
from ..analysis.summing import TotalEfficiency
from ..atomic_files import refuse_taken, write_text
from ..display import report
from ..formats import FormatError, Measurement
from ..formats.qar_file import SUFFIX
from ..nuclides import builtin_library
from ..scratch import rehearsal, scratch_folder
from ..source import DataSource
from ..source import open as open_source
from ..values import is_known
from .output import failure_of
from .reading import Reading

Row = List[str]

COLUMNS = (
    *("file", "spectrum", "kind", "nuclide", "energy / keV", "FWHM / keV"),
    *("net area", "net area uncertainty", "continuum", "significance"),
    *("lines", "confidence", "unit", "activity", "activity uncertainty", "decision threshold"),
    *("detection limit", "best estimate", "best estimate uncertainty", "lower limit"),
    *("upper limit", "blank", "remark"),
)


class Options(NamedTuple):
    """How each file of a batch is analysed."""

    library: Tuple[Nuclide, ...] = ()  # empty: that of the file, otherwise the built-in one
    groups: Tuple[str, ...] = ()  # of the built-in library; empty: all
    settings: Tuple[Tuple[str, Any], ...] = ()  # parameters by name
    blank: Optional[Blank] = None  # subtracted from the activities
    template: str = ""  # a QAR file whose analysis sequence is copied
    total_efficiency: Optional[TotalEfficiency] = None  # None: that of the file, if any
    reading: Reading = Reading()  # how the file is read
    spectrum: str = ""  # name of the spectrum to analyse
    all_spectra: bool = False  # analyse every spectrum of a file
    into: str = ""  # folder of the analysed QAR files; empty: see `analyse`
    reports: str = ""  # folder of the reports; empty: no reports
    replace: bool = False  # whether files in these folders may be replaced
    replaceable: FrozenSet[str] = frozenset()  # files there that may be replaced in any case
    staging: Tuple[Tuple[str, str], ...] = ()  # each output folder and that of unfinished files


class Analysed(NamedTuple):
    """One analysed spectrum of a file."""

    name: str  # of the spectrum, if the file has several
    analysis: Analysis


class StagedFile(NamedTuple):
    """A complete output file that has yet to get its name."""

    staged: str
    target: str


class Outcome(NamedTuple):
    """The result of one file, or the reason why it has none."""

    analysed: Tuple[Analysed, ...] = ()
    files: Tuple[StagedFile, ...] = ()
    notes: Tuple[str, ...] = ()
    failure: str = ""


def outcome(path: str, options: Options) -> Outcome:
    """Analyse a file. Never raises an Exception: a failure becomes one line."""
    try:
        with warnings.catch_warnings(record=True) as caught:
            warnings.simplefilter("always")
            result = analyse(path, options)
        return result._replace(notes=(*result.notes, *(str(w.message) for w in caught)))
    except Exception as error:  # one file must not end the batch
        return Outcome(failure=failure_of(path, error))


def analyse(path: str, options: Options) -> Outcome:
    """Analyse the spectra of a file, by default one.

    The results of a QAR file are stored in the file itself, unless `into` names another folder.
    Files of other formats are converted, into that folder if there is one. Output files stay in
    the staging folders. Raises QarError, FormatError or OSError if the file fails.
    """
    stem = os.path.splitext(os.path.basename(path))[0]
    measurements = options.reading.read(path)
    if measurements[0].qar_file and not options.into:
        with open_source(path, "r+") as source, rehearsal(source) as copy:
            return _analysed(copy, "", stem, options)
    return _analysed_copies(measurements, path, stem, options)


def _analysed_copies(
    measurements: List[Measurement], path: str, stem: str, options: Options
) -> Outcome:
    """Analyse the selected spectra of a file in QAR files of their own."""
    selected, notes = _selected(measurements, path, options)
    results: List[Outcome] = []
    with scratch_folder() as folder:
        for measurement, name in formats.file_names(selected, stem + SUFFIX):
            kept = [_stage(options.into, name, options)] if options.into else []
            qar_file = kept[0].staged if kept else os.path.join(folder, f"{len(results)}")
            lost = [*measurement.notes, *formats.write(qar_file, measurement, "qar")]
            notes += lost if options.into else []
            with open_source(qar_file, "r+") as copy:
                copy.path, copy.is_scratch = path, True
                spectrum = measurement.name if len(measurements) > 1 else ""
                result = _analysed(copy, spectrum, os.path.splitext(name)[0], options)
            results.append(result._replace(files=(*kept, *result.files)))
    return Outcome(
        tuple(analysed for result in results for analysed in result.analysed),
        tuple(file for result in results for file in result.files),
        tuple(notes),
    )


def _selected(
    measurements: List[Measurement], path: str, options: Options
) -> Tuple[List[Measurement], List[str]]:
    """Return the spectra to analyse, and a note if one was chosen among several."""
    if options.spectrum:
        return formats.with_name(measurements, options.spectrum, path), []
    if options.all_spectra or len(measurements) == 1:
        return measurements, []
    choice = formats.foreground(measurements)
    note = (
        f"analysed the spectrum '{choice.name}' of {len(measurements)}; select another one with"
        " --spectrum NAME, or --all"
    )
    return [choice], [note]


def _analysed(source: DataSource, spectrum: str, stem: str, options: Options) -> Outcome:
    """Analyse an open source that may be changed, and write its report."""
    reports = [_stage(options.reports, stem + ".html", options)] if options.reports else []
    _set_up(source, options)
    if not source.column("QAR_D_ENERGYCAL") and "QAR_D_ENERGYCAL" not in dict(options.settings):
        raise FormatError(
            "no energy calibration; calibrate the file with a nuclide that is in the spectrum, such"
            f" as: qar calibrate {source.path} --nuclide Cs-137"
        )
    analysis = source.analyse(
        groups=options.groups,
        total_efficiency=options.total_efficiency,
        blank=options.blank,
        **dict(options.settings),
    )
    for file in reports:
        library = builtin_library.library_of(source)
        blank = options.blank
        overlays = [report.overlay_of_blank(source, blank)] if blank is not None else []
        shown = report.Options(library=library, overlays=overlays, shared_script=True)
        write_text(file.staged, report.page(source, analysis, shown))
    plain = Analysis(*analysis)  # without the spectrum, as it may be sent to another process
    return Outcome((Analysed(spectrum, plain),), tuple(reports))


def _stage(folder: str, name: str, options: Options) -> StagedFile:
    """Return an output file to write. Raises FileExistsError if its name is taken."""
    target = os.path.join(folder, name)
    refuse_taken(target, options.replace or target in options.replaceable)
    own_folder = tempfile.mkdtemp(dir=dict(options.staging)[folder])
    # The staged name is plain, for the functions of pyORV3 take only names in UTF-8.
    return StagedFile(os.path.join(own_folder, "output"), target)


def _set_up(source: DataSource, options: Options) -> None:
    if options.template:
        with open_source(options.template) as template:
            template.copy_analysis_sequence_to(source)
            if source.get(calibration.PARAMETERS["efficiency"]) is None:
                efficiency.copy_to(template, source)
            for name in calibration.PARAMETERS.values():
                if source.get(name) is None:
                    source.set_column(name, template.column(name))
    if options.library:
        source.set_nuclide_library(options.library)


def rows_of(path: str, analysed: Iterable[Analysed]) -> List[Row]:
    """Return the results as rows of COLUMNS, with every digit.

    Nuclides that were not found have rows if their activities are known.
    """
    result: List[Row] = []
    for name, analysis in analysed:
        result += [[path, name, "peak", *_peak(peak)] for peak in analysis.peaks]
        result += [[path, name, "nuclide", *_nuclide(nuclide)] for nuclide in analysis.nuclides]
        missing = analysis.not_found if analysis.has_activities else ()
        result += [[path, name, "not found", *_nuclide(nuclide)] for nuclide in missing]
    return result


def _peak(peak: Peak) -> Row:
    numbers = (peak.energy, peak.fwhm, peak.area, peak.area_uncertainty)
    cells = [peak.nuclide, *map(_cell, (*numbers, peak.continuum, peak.significance))]
    return cells + [""] * (len(COLUMNS) - 3 - len(cells))


def _nuclide(nuclide: IdentifiedNuclide) -> Row:
    activity = (nuclide.activity, nuclide.activity_uncertainty, nuclide.decision_threshold)
    best = (nuclide.best_estimate, nuclide.best_estimate_uncertainty)
    limits = (nuclide.lower_limit, nuclide.upper_limit)
    values = map(_cell, (*activity, nuclide.detection_limit, *best, *limits, nuclide.blank))
    found = [str(nuclide.lines), _cell(nuclide.confidence), nuclide.unit]
    return [
        *(nuclide.name, _cell(nuclide.energy), *[""] * 5),
        *(*found, *values, nuclide.activity_reason),
    ]


def _cell(value: Optional[float]) -> str:
    return repr(value) if is_known(value) else ""
