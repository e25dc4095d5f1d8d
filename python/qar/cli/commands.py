"""What the commands of the command line do, each with its parsed arguments.

A command returns its exit code: DONE, or PARTLY where something was found or failed on the way.
What ends a command is raised; `qar.cli.main` makes a line and the exit code FAILED of it.
"""

import argparse
import contextlib
import json
import os
import sys
import tempfile
from typing import Any, Dict, Iterator, List, Sequence, Tuple

from .. import dictionary, status
from ..atomic_files import new_file, refuse_taken, write_text
from ..display import layout, plot, report, tables, terminal
from ..display.printable import value_text
from ..errors import QarError
from ..formats import FORMATS, FormatError, Measurement, nuclide_csv
from ..source import DataSource
from ..source import open as open_source
from ..transfer import conversion, dictionary_extension, dump, salvage
from . import batch
from .file_analysis import COLUMNS, Options, analyse, failure_text

DONE, PARTLY, FAILED = 0, 1, 2

Arguments = argparse.Namespace


def tell(path: str, notes: Sequence[str]) -> None:
    """One line on standard error for each thing that a person should know."""
    for note in notes:
        print(f"qar: {path}: {note}", file=sys.stderr)


def print_json(value: Any) -> None:
    print(json.dumps(_plain(value), indent=1, ensure_ascii=False, allow_nan=False))


def _plain(value: Any) -> Any:
    """The value in what JSON has; a number that is none becomes null."""
    if isinstance(value, float) and (value != value or value in (float("inf"), float("-inf"))):
        return None
    if hasattr(value, "_asdict"):
        value = value._asdict()
    if isinstance(value, dict):
        return {key: _plain(item) for key, item in value.items()}
    return [_plain(item) for item in value] if isinstance(value, (list, tuple)) else value


@contextlib.contextmanager
def opened(path: str, format: str, spectrum: str) -> Iterator[DataSource]:
    """The data source in a file of any format; one of another format is made into a QAR file that
    goes again, with what was lost told.
    """
    if format == "qar" or (not format and conversion.is_qar_file(path)):
        with open_source(path) as source:
            yield source
        return
    measurement = _one(conversion.read_any(path, format), spectrum, path)
    name = os.path.splitext(os.path.basename(path))[0] + conversion.QAR_SUFFIX
    with tempfile.TemporaryDirectory() as folder:
        target = os.path.join(folder, name)
        tell(path, [*measurement.notes, *conversion.store(measurement, target)])
        with open_source(target) as source:
            yield source


def _one(measurements: List[Measurement], spectrum: str, path: str) -> Measurement:
    found = conversion.chosen(measurements, spectrum, path)
    if len(found) > 1:
        names = ", ".join(measurement.name for measurement in found[:20])
        raise FormatError(f"{path} has {len(found)} spectra, say which with --spectrum: {names}")
    return found[0]


def _beside(path: str, suffix: str) -> str:
    return os.path.splitext(path)[0] + suffix


# ---- Looking at a file -------------------------------------------------------------------------


def show(arguments: Arguments) -> int:
    with opened(arguments.file, arguments.from_format, arguments.spectrum) as source:
        if arguments.json:
            print_json(_everything(source))
        else:
            print("\n".join(_shown(source)))
    return DONE


def _everything(source: DataSource) -> Dict[str, Any]:
    results = source.results()
    return {
        "file": source.path,
        "parameters": {
            parameter.name: value
            for number in dictionary.classes().values()
            if source.record_count(number) == 1
            for parameter, value in source.parameters(number)
        },
        "peaks": results.peaks,
        "nuclides": results.nuclides,
        "counts": _counts(source),
    }


def _counts(source: DataSource) -> Tuple[int, ...]:
    has_spectrum = source.record_count(dump.SPECTRUM_CLASS) > 0
    return source.spectrum() if has_spectrum else ()


def _shown(source: DataSource) -> Iterator[str]:
    counts, results = _counts(source), source.results()
    size = tables.counted(len(counts), "channel")
    yield f"{os.path.basename(source.path)}: {size}, {sum(counts):,} counts"
    for name, number in dictionary.classes().items():
        records = source.record_count(number)
        if records != 1 or number == dump.SPECTRUM_CLASS:
            continue
        for parameter, value in source.parameters(number):
            text = f"{value_text(value)} {parameter.unit}".rstrip()
            yield f"  {parameter.name:<18} {text:<34} {parameter.description}"
    library = source.record_count("QAR_CLS_NUCLIDE")
    if library:
        yield f"{tables.counted(library, 'nuclide')} in the library"
    if results.peaks or results.nuclides:
        yield from tables.results(results)
    if counts:
        yield from terminal.plot(counts, layout.axis_of(source.calibration()))


def draw(arguments: Arguments) -> int:
    target = arguments.output or _beside(arguments.file, ".png")
    plot.figure_class()  # without it nothing need be read
    with opened(arguments.file, arguments.from_format, arguments.spectrum) as source:
        counts, peaks = source.spectrum(), source.results().peaks
        axis = layout.axis_of(source.calibration())
        title = source.get("QAR_C_MEASNAME") or os.path.basename(arguments.file)
        with new_file(target, arguments.force) as temporary:
            plot.save(temporary, counts, peaks, axis, title)
    print(target)
    return DONE


def make_report(arguments: Arguments) -> int:
    target = arguments.output or _beside(arguments.file, ".html")
    with opened(arguments.file, arguments.from_format, arguments.spectrum) as source:
        axis = layout.axis_of(source.calibration())
        text = report.html_of(source, source.results(), axis)
        write_text(target, text, arguments.force)
    print(target)
    return DONE


def explain_status(arguments: Arguments) -> int:
    found = [status.describe(code) for code in arguments.code]
    if arguments.json:
        print_json(found)
    else:
        print("\n".join(map(str, found)))
    return DONE


# ---- From file to file -------------------------------------------------------------------------


def convert(arguments: Arguments) -> int:
    sources, targets = arguments.files, None
    if not arguments.to and not arguments.into:
        if len(sources) != 2:
            raise FormatError("convert takes FILE OUTPUT, or FILES with --to FORMAT")
        sources, targets = sources[:1], sources[1]
    code = DONE
    for path in sources:
        try:
            _convert_one(path, targets or _converted_name(path, arguments), arguments)
        except (QarError, FormatError, OSError) as error:
            if len(sources) == 1:
                raise
            tell(path, [failure_text(error)])
            code = PARTLY
    return code


def _converted_name(path: str, arguments: Arguments) -> str:
    to = arguments.to or "qar"
    suffix = conversion.QAR_SUFFIX if to == "qar" else FORMATS[to].suffixes[0]
    name = _beside(path, suffix)
    return os.path.join(arguments.into, os.path.basename(name)) if arguments.into else name


def _convert_one(path: str, target: str, arguments: Arguments) -> None:
    measurements = conversion.read_any(path, arguments.from_format)
    measurements = conversion.chosen(measurements, arguments.spectrum, path)
    for measurement, name in conversion.output_names(measurements, target):
        notes = conversion.write_any(measurement, name, arguments.to or "", arguments.force)
        tell(name, [*measurement.notes, *notes])
        print(name)


def dump_file(arguments: Arguments) -> int:
    if not arguments.file and not arguments.dictionary:
        raise FormatError("say which file, or with --dictionary where its parameters go")
    document = {}
    if arguments.file:
        with open_source(arguments.file) as source:
            document = dump.dump(source, arguments.numbers)
    if arguments.dictionary:
        found = dictionary_extension.extension(document, arguments.numbers)
        write_text(arguments.dictionary, found.text, arguments.force)
        tell(arguments.dictionary, [f"left out: {name}" for name in found.left_out])
    if arguments.output:
        write_text(arguments.output, dump.text_of(document), arguments.force)
    elif document and not arguments.dictionary:
        print(dump.text_of(document), end="")
    tell(arguments.file, [f"not reached: {text}" for text in document.get("not_reached", [])])
    return DONE


def load_file(arguments: Arguments) -> int:
    failures = dump.load(dump.read(arguments.file), arguments.output, arguments.force)
    tell(arguments.output, [f"not stored: {text}" for text in failures])
    return PARTLY if failures else DONE


# ---- Damage ------------------------------------------------------------------------------------


def check_files(arguments: Arguments) -> int:
    found = {}
    for path in arguments.files:
        try:
            salvage.verify(path)
            found[path] = ""
        except QarError as error:
            found[path] = failure_text(error)
    if arguments.json:
        print_json([{"file": path, "failure": text or None} for path, text in found.items()])
    else:
        for path, text in found.items():
            if text:
                tell(path, [text])
            else:
                print(f"{path}: sound")
    return PARTLY if any(found.values()) else DONE


def salvage_file(arguments: Arguments) -> int:
    found = salvage.salvage(arguments.file, arguments.output, arguments.force)
    if arguments.json:
        print_json(found)
    else:
        for name, number in found.copied.items():
            print(f"{name}: {number:,}")
        tell(arguments.file, [f"lost: {text}" for text in found.lost])
    return PARTLY if found.lost else DONE


# ---- Calibration and analysis ------------------------------------------------------------------


def calibrate(arguments: Arguments) -> int:
    lines = dict(arguments.line)
    if len(lines) != len(arguments.line):
        raise FormatError("an energy stands twice among the lines")
    with open_source(arguments.file, "r+") as source:
        found = source.calibrate(lines, arguments.degree)
    if arguments.json:
        print_json(found)
        return DONE
    for name, coefficients in (
        ("energy", found.calibration.energy),
        ("shape", found.calibration.shape),
    ):
        print(f"{name}: {' '.join(f'{c:.9g}' for c in coefficients)}")
    print("  energy / keV   channel (from 1)   FWHM / keV   residual / keV")
    for point in found.points:
        channel = tables.with_uncertainty(point.centroid, point.centroid_uncertainty)
        print(f"{point.energy:14.3f} {channel:>18} {point.fwhm:12.3f} {point.residual:16.3f}")
    return DONE


def analyse_files(arguments: Arguments) -> int:
    options = Options(
        library=tuple(nuclide_csv.read(arguments.library)) if arguments.library else (),
        settings=_settings(arguments),
        template=os.path.abspath(arguments.template) if arguments.template else "",
        into=os.path.abspath(arguments.into) if arguments.into else "",
        reports=os.path.abspath(arguments.report) if arguments.report else "",
        replace=arguments.force,
    )
    for folder in (options.into, options.reports):
        if folder:
            os.makedirs(folder, exist_ok=True)
    if len(arguments.files) == 1 and os.path.isfile(arguments.files[0]) and not arguments.output:
        return _analyse_one(arguments, options)
    refuse_taken(arguments.output, arguments.force)
    files = batch.files_of(arguments.files)
    if not files:
        raise FormatError("no file to analyse")
    found = batch.run(files, options, arguments.output, arguments.jobs, arguments.dask)
    if arguments.json:
        failures = [{"file": path, "failure": text} for path, text in found.failures]
        print_json({"columns": COLUMNS, "rows": found.rows, "failures": failures})
    elif not arguments.output:
        print(batch.text_of(found.rows), end="")
    for path, text in found.failures:
        tell(path, [text])
    return PARTLY if found.failures else DONE


def _analyse_one(arguments: Arguments, options: Options) -> int:
    """One file for a person: tables."""
    analysed = analyse(arguments.files[0], options)
    if arguments.json:
        print_json(analysed)
        return DONE
    for spectrum in analysed:
        if spectrum.name:
            print(f"spectrum {spectrum.name}")
        print("\n".join(tables.results(spectrum.analysis)))
    return DONE


def _settings(arguments: Arguments) -> Tuple[Tuple[str, Any], ...]:
    """The settings by the names of their parameters, in the types of these."""
    named = dict(arguments.set)
    for option, name in (("limit", "QAR_D_PEAKLIMIT"), ("tolerance", "QAR_D_MATCHTOL")):
        if getattr(arguments, option) is not None:
            named[name] = str(getattr(arguments, option))
    return tuple((name, _typed(name, text)) for name, text in sorted(named.items()))


def _typed(name: str, text: str) -> Any:
    kind = dictionary.describe(name).type_name
    try:
        if kind in ("float", "double"):
            return float(text)
        if kind in ("short", "long", "longlong", "byte"):
            return int(text, 0)
    except ValueError:
        raise FormatError(f"{name}: {text} is no value of a {kind}") from None
    return text
