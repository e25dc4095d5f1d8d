"""The command `analyse`: peaks and nuclides, of one file or of many."""

import argparse
import os
import sys
from typing import Any, Dict, List, Tuple

from ... import dictionary, formats
from ...analysis.blank import Blank, checked
from ...analysis.settings import check_settings
from ...display import tables
from ...formats import FormatError, efficiency_csv, nuclide_csv
from ...source import open as open_source
from .. import batch
from ..command import (
    DONE,
    FAILED,
    PARTLY,
    Arguments,
    Command,
    CommandError,
    Parser,
    add_force,
    add_groups,
    add_json,
    add_recursive,
    add_total_efficiency,
    number,
    number_up_to,
    positive_number,
)
from ..file_analysis import COLUMNS, Options
from ..inputs import files_of, local_file, one
from ..output import STANDARD_INPUT, inform, print_json, print_lines, print_path, shown_path, warn
from ..reading import add_reading, reading_of

_FLOATING = ("float", "double")
_WHOLE_NUMBERS = ("short", "long", "longlong", "byte")


def analyse(arguments: Arguments) -> int:
    options = _options(arguments)
    if arguments.files == [STANDARD_INPUT]:
        with local_file(STANDARD_INPUT) as path:
            return _analyse([path], True, {path: STANDARD_INPUT}, options, arguments)
    if STANDARD_INPUT in arguments.files:
        raise CommandError("'-' (standard input) cannot be combined with other files")
    files = files_of(arguments.files, arguments.recursive)
    if not files:
        raise CommandError(f"no file to analyse in {', '.join(map(repr, arguments.files))}")
    is_one = len(arguments.files) == 1 and not os.path.isdir(arguments.files[0])
    return _analyse(
        files, is_one, {os.path.abspath(path): path for path in files}, options, arguments
    )


def _analyse(
    files: List[str], is_one: bool, shown: Dict[str, str], options: Options, arguments: Arguments
) -> int:
    """Analyse files and print the results. shown: their paths as the user gave them."""
    executors = batch.Executors(arguments.jobs, arguments.dask, arguments.timeout or 0.0)
    table = arguments.output
    stream = None if is_one else sys.stderr
    result = batch.run(files, options, table, executors, stream)
    for path, text in [*result.notes, *result.failures]:
        given = shown_path(shown.get(path, path))
        warn(given, [text.replace(path, given)])
    if is_one and result.failures and not table:
        return FAILED
    _print_results(result, is_one, shown, arguments)
    if not is_one:
        _print_summary(len(files), result)
    return PARTLY if result.failures else DONE


def _print_results(
    result: batch.Result, is_one: bool, shown: Dict[str, str], arguments: Arguments
) -> None:
    written = [_as_given(path, arguments) for path in result.files]
    written += [arguments.output] if arguments.output else []
    if arguments.json:
        failures = [{"file": path, "failure": text} for path, text in result.failures]
        if is_one and not arguments.output:
            print_json(result.analysed)
        else:
            print_json({"columns": COLUMNS, "rows": result.rows, "failures": failures})
    elif arguments.output:
        for path in written:
            print_path(path)
        return
    elif is_one:
        for spectrum in result.analysed:
            print_lines([f"spectrum {spectrum.name}"] if spectrum.name else [])
            print_lines(tables.results(spectrum.analysis))
    else:
        print_lines(batch.text_of(result.rows).splitlines())
    for path in written:
        inform(f"wrote {path}")


def _as_given(path: str, arguments: Arguments) -> str:
    """Return the path of an output file below the directory as the user gave it."""
    for given in [name for name in (arguments.into, arguments.report) if name]:
        if os.path.dirname(path) == os.path.abspath(given):
            return os.path.join(given, os.path.basename(path))
    return path


def _print_summary(files: int, result: batch.Result) -> None:
    kinds = [row[COLUMNS.index("kind")] for row in result.rows]
    found = " and ".join(tables.counted(kinds.count(kind), kind) for kind in ("peak", "nuclide"))
    failed = len(result.failures)
    inform(f"{tables.counted(files, 'file')}: {files - failed} analysed, {failed} failed; {found}")


# ---- Options -----------------------------------------------------------------------------------


def _options(arguments: Arguments) -> Options:
    """Return the options. Raises if a setting, the library or the template cannot be used."""
    settings = _settings(arguments)
    check_settings(dict(settings), lambda name: None)
    if arguments.template:
        with open_source(arguments.template):
            pass
    if arguments.dask and arguments.timeout:
        raise CommandError("--timeout cannot be combined with --dask; a cluster has its own limits")
    return Options(
        library=tuple(nuclide_csv.read(arguments.library)) if arguments.library else (),
        groups=arguments.groups,
        settings=settings,
        blank=_blank(arguments) if arguments.blank else None,
        template=_absolute(arguments.template),
        total_efficiency=(
            efficiency_csv.read_total(arguments.total_efficiency)
            if arguments.total_efficiency
            else None
        ),
        reading=reading_of(arguments),
        spectrum=arguments.spectrum,
        all_spectra=arguments.all,
        into=_absolute(arguments.into),
        reports=_absolute(arguments.report),
        replace=arguments.force,
    )


def _blank(arguments: Arguments) -> Blank:
    """Return the blank to subtract. Raises if it cannot be read or used."""
    path = arguments.blank
    measurements = formats.with_name(formats.read(path), arguments.blank_spectrum, path)
    measured = one(measurements, path, "--blank-spectrum")
    name = os.path.basename(path) + (f" {measured.name}" if len(measurements) > 1 else "")
    return checked(name, measured.counts, measured.live_time, measured.energy, measured.shape)


def _absolute(path: str) -> str:
    return os.path.abspath(path) if path else ""


def _settings(arguments: Arguments) -> Tuple[Tuple[str, Any], ...]:
    """Return the settings by the names of their parameters, in the types of these."""
    named = dict(arguments.set)
    for option, name in (("limit", "QAR_D_PEAKLIMIT"), ("tolerance", "QAR_D_MATCHTOL")):
        if getattr(arguments, option) is not None:
            named[name] = repr(getattr(arguments, option))
    return tuple((name, _typed(name, text)) for name, text in sorted(named.items()))


def _typed(name: str, text: str) -> Any:
    """Return the value in the type of its parameter; a list if it has one in each entry."""
    parameter = dictionary.describe(name)
    is_number = parameter.type_name in (*_FLOATING, *_WHOLE_NUMBERS)
    if is_number and (parameter.per_entry or (parameter.per_entry is None and "," in text)):
        return [_number(name, parameter.type_name, item) for item in text.split(",")]
    return _number(name, parameter.type_name, text) if is_number else text


def _number(name: str, type_name: str, text: str) -> Any:
    try:
        return float(text) if type_name in _FLOATING else int(text, 0)
    except ValueError:
        raise FormatError(f"{name}: {text!r} is not a valid {type_name}") from None


# ---- Arguments ---------------------------------------------------------------------------------


def _add_arguments(command: Parser) -> None:
    command.add_argument(
        "files", metavar="FILE", nargs="+",
        help="A file of any format, a directory, or - for standard input.",
    )  # fmt: skip
    add_recursive(command)
    add_reading(command)
    command.add_argument(
        "--spectrum", metavar="NAME", default="",
        help="Analyse the spectrum NAME if a file has several (default: the foreground with most"
        " counts).",
    )  # fmt: skip
    command.add_argument("--all", action="store_true", help="Analyse all spectra of each file.")
    command.add_argument(
        "--library", "-l", metavar="CSV", default="",
        help="Use this nuclide library instead of that in the file and of the built-in one;"
        " docs/command-line.md describes its columns.",
    )  # fmt: skip
    add_groups(command)
    command.add_argument(
        "--output", "-o", metavar="CSV", default="",
        help="Write one table with a row for each peak and each nuclide of all files.",
    )  # fmt: skip
    command.add_argument(
        "--report", metavar="DIRECTORY", default="",
        help="Write an HTML report of each spectrum into this directory.",
    )  # fmt: skip
    command.add_argument(
        "--into", metavar="DIRECTORY", default="",
        help="Write the analysed QAR files into this directory (default: store the results in the"
        " QAR files themselves and keep nothing of other formats).",
    )  # fmt: skip
    add_force(command)
    command.add_argument(
        "--blank", metavar="FILE", default="",
        help="Subtract the peak areas of this blank, a file of any format, scaled by live time;"
        " needs an efficiency calibration.",
    )  # fmt: skip
    command.add_argument(
        "--blank-spectrum", metavar="NAME", default="",
        help="Use the spectrum NAME if the file of the blank has several.",
    )  # fmt: skip
    command.add_argument(
        "--template", metavar="FILE", default="",
        help="Copy the analysis sequence of this QAR file, and its calibrations to files without.",
    )  # fmt: skip
    add_total_efficiency(command)
    command.add_argument(
        "--limit",
        metavar="SIGMA",
        type=number,
        help="Report peaks from this significance on, 1 to 100.",
    )
    command.add_argument(
        "--tolerance",
        metavar="KEV",
        type=number,
        help="Assign a line to a peak up to this distance in keV.",
    )
    command.add_argument(
        "--set", metavar="NAME=VALUE", type=_setting, action="append", default=[],
        help="Write another setting by the name of its parameter; separate the values of a list"
        " with commas.",
    )  # fmt: skip
    command.add_argument(
        "--jobs", "-j", metavar="N", type=number_up_to(256), default=1,
        help="Analyse N files at the same time (default: %(default)s).",
    )  # fmt: skip
    command.add_argument(
        "--timeout", metavar="SECONDS", type=positive_number,
        help="Give up a file after this time (default: no limit).",
    )  # fmt: skip
    command.add_argument(
        "--dask", metavar="ADDRESS", default="",
        help="Analyse on the cluster of this Dask scheduler, such as tcp://host:8786.",
    )  # fmt: skip
    add_json(command)


def _setting(text: str) -> Tuple[str, str]:
    name, equals, value = text.partition("=")
    if not (name and equals):
        raise argparse.ArgumentTypeError(f"{text!r} is not of the form NAME=VALUE")
    return name.upper(), value


COMMAND = Command(
    "analyse",
    analyse,
    "Find peaks and nuclides in one file or in many.",
    _add_arguments,
    """\
examples:
  qar analyse sample.n42                          print the results of one spectrum
  qar analyse sample.qar --limit 4 --tolerance 1  store settings and results in the file
  qar analyse spectra --recursive -o results.csv --jobs 2
                                                  analyse a directory into one table
  qar analyse spectra --into analysed --report reports
                                                  keep the inputs, write QAR files and reports
  qar analyse sample.qar --set QAR_D_EFFICCAL=-2.45,0.55,-0.145
                                                  use this efficiency calibration
  qar analyse sample.n42 --template source.qar    use the calibrations of a certified source
  qar analyse sample.qar --total-efficiency total.csv
                                                  correct true coincidence summing
""",
)
