"""The command `efficiency`: the efficiency calibration with a certified source."""

import contextlib
import os
import warnings
from typing import Any, Dict, Iterator, List, Optional, Sequence, Tuple

from ... import formats
from ...analysis import efficiency as curves
from ...analysis import peak_to_total, results
from ...analysis.certified_source import CertifiedActivity
from ...analysis.efficiency import EfficiencyCalibration
from ...analysis.peak_to_total import Background
from ...analysis.results import Nuclide
from ...atomic_files import new_file
from ...display import efficiency_plot, efficiency_table, plot
from ...formats import Measurement, efficiency_csv, nuclide_csv
from ...nuclides import builtin_library, efficiency_calibration
from ...nuclides.efficiency_calibration import MIN_ENERGY, Method
from ...scratch import copy_of, rehearsal
from ...source import DataSource
from ...source import open as open_source
from ...transfer.any_file import open_measurement
from ..command import (
    DONE,
    Arguments,
    Command,
    CommandError,
    Parser,
    add_groups,
    add_json,
    add_output,
    add_total_efficiency,
    number_up_to,
    positive_number,
)
from ..inputs import add_input, local_file, one, output_of
from ..output import STANDARD_OUTPUT, inform, print_json, print_lines, shown_path, warn
from ..pictures import check_picture
from ..reading import reading_of


def efficiency(arguments: Arguments) -> int:
    certificate = efficiency_csv.read_certificate(arguments.certificate)
    nuclides = _nuclides(arguments)
    method = _method(arguments)
    if arguments.plot:
        check_picture(arguments.plot, arguments.force)
    with local_file(arguments.file) as local:
        measurements = reading_of(arguments).read(local)
        measurement = one(
            formats.with_name(measurements, arguments.spectrum, arguments.file), arguments.file
        )
        with _output(measurement, arguments) as (source, written):
            calibration = _calibrated(source, certificate, nuclides, method, arguments)
            with _picture(calibration, arguments):
                with rehearsal(source) as copy:
                    efficiency_calibration.write(copy, calibration)
    if arguments.json:
        print_json(_document(calibration))
    else:
        print_lines(efficiency_table.lines_of(calibration))
    for path in filter(None, (written, arguments.plot)):
        inform(f"wrote {path}")
    return DONE


@contextlib.contextmanager
def _output(measurement: Measurement, arguments: Arguments) -> Iterator[Tuple[DataSource, str]]:
    """Yield the source that gets the calibration, and the name of a new file or an empty string.

    It is the QAR file itself, or a new one for an output file and for other formats. A new file
    appears only on success.
    """
    if measurement.qar_file and not arguments.output:
        with open_source(measurement.qar_file, "r+") as source:
            source.path = shown_path(arguments.file)
            yield source, ""
        return
    target = output_of(arguments, ".qar")
    if target == STANDARD_OUTPUT:
        raise CommandError("--output: a QAR file cannot be written to standard output")
    with new_file(target, arguments.force) as temporary:
        notes = [*measurement.notes, *formats.write(temporary, measurement, "qar")]
        with open_source(temporary, "r+") as source:
            source.path = shown_path(arguments.file)
            yield source, target
        warn(arguments.file, notes)


@contextlib.contextmanager
def _picture(calibration: EfficiencyCalibration, arguments: Arguments) -> Iterator[None]:
    """Draw the picture if there shall be one; it appears only if the body succeeds."""
    if not arguments.plot:
        yield
        return
    figure = efficiency_plot.figure_of(calibration, os.path.basename(arguments.file))
    with new_file(arguments.plot, arguments.force) as temporary:
        plot.save(figure, temporary, plot.format_of(arguments.plot))
        yield


def _calibrated(
    source: DataSource,
    certificate: Sequence[CertifiedActivity],
    nuclides: Sequence[Nuclide],
    method: Method,
    arguments: Arguments,
) -> EfficiencyCalibration:
    """Return the calibration; its warnings are printed."""
    if method.total is None and not method.ratios:
        method = method._replace(total=curves.read_total(source))
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        try:
            result = efficiency_calibration.calibrate(source, certificate, nuclides, method)
        except ValueError as error:
            raise CommandError(f"{shown_path(arguments.file)}: {error}") from None
    warn(arguments.file, [str(warning.message) for warning in caught])
    return result


def _document(calibration: EfficiencyCalibration) -> Dict[str, Any]:
    """Return the calibration for JSON."""
    fit = calibration.fit
    points = [
        {
            **point._asdict(),
            "factor": point.factor.factor,
            "factor_uncertainty": point.factor.uncertainty,
            "has_summing": point.has_summing,
        }
        for point in calibration.points
    ]
    return {
        **fit.curve._asdict(),
        "degree": fit.degree,
        "weights": fit.weights,
        "chi_square": fit.chi_square,
        "degrees_of_freedom": fit.degrees_of_freedom,
        "scatter": fit.scatter,
        "total_efficiency": calibration.total,
        "points": points,
    }


# ---- Arguments ---------------------------------------------------------------------------------


def _nuclides(arguments: Arguments) -> List[Nuclide]:
    if arguments.library:
        return nuclide_csv.read(arguments.library)
    return builtin_library.load(arguments.groups, short_lived=True)


def _method(arguments: Arguments) -> Method:
    """Return the method. Raises CommandError if options contradict each other."""
    if arguments.total_efficiency and arguments.peak_to_total:
        raise CommandError("--total-efficiency cannot be combined with --peak-to-total")
    if arguments.background and not arguments.peak_to_total:
        raise CommandError("--background is for the spectra of --peak-to-total")
    total = None
    if arguments.total_efficiency:
        total = efficiency_csv.read_total(arguments.total_efficiency)
    background = _only_spectrum(arguments.background) if arguments.background else None
    ratios = tuple(_ratio(path, background) for path in arguments.peak_to_total)
    return Method(arguments.degree, tuple(arguments.leave_out), arguments.min_energy, total, ratios)


def _only_spectrum(path: str) -> Measurement:
    return one(formats.read(path), path)


def _ratio(path: str, background: Optional[Measurement]) -> Tuple[float, float]:
    """Return the energy and the ratio of total to peak counts of a source with one line."""
    measurement = _only_spectrum(path)
    subtracted = None
    if background is not None:
        if not measurement.live_time or not background.live_time:
            raise CommandError(f"{path}: no live time in the spectrum or its background")
        scale = measurement.live_time / background.live_time
        subtracted = Background(background.counts, scale)
    with open_measurement(measurement) as (source, _), copy_of(source) as copy:
        copy.path = path
        results.run_engine(copy)
        peaks = results.results(copy).peaks
        try:
            return peak_to_total.total_to_peak(
                measurement.counts, copy.calibration(), peaks, subtracted
            )
        except ValueError as error:
            raise CommandError(f"{path}: {error}") from None


def _add_arguments(command: Parser) -> None:
    add_input(command)
    command.add_argument(
        "--certificate", metavar="CSV", required=True,
        help="The certificate of the source: a table with the columns nuclide, activity (Bq),"
        " activity_uncertainty (Bq, one sigma) and reference_date.",
    )  # fmt: skip
    command.add_argument(
        "--library", "-l", metavar="CSV", default="",
        help="Use the yields and half-lives of this nuclide library instead of the built-in one.",
    )  # fmt: skip
    add_groups(command)
    command.add_argument(
        "--degree", metavar="N", type=number_up_to(curves.MAX_DEGREE),
        help="Fit a polynomial of degree N (default: chosen by the residuals).",
    )  # fmt: skip
    command.add_argument(
        "--leave-out", metavar="NUCLIDE", action="append", default=[],
        help="Do not use the lines of this nuclide; may be repeated.",
    )  # fmt: skip
    command.add_argument(
        "--min-energy", metavar="KEV", type=positive_number, default=MIN_ENERGY,
        help="Use lines from this energy on (default: %(default)g keV).",
    )  # fmt: skip
    add_total_efficiency(command)
    command.add_argument(
        "--peak-to-total", metavar="FILE", action="append", default=[],
        help="Derive the total efficiency from the spectrum of a source with one line, measured in"
        " the same geometry; may be repeated for several energies.",
    )  # fmt: skip
    command.add_argument(
        "--background", metavar="FILE", default="",
        help="Subtract this background, scaled by live time, from the spectra of --peak-to-total.",
    )  # fmt: skip
    command.add_argument(
        "--plot", metavar="PICTURE", default="",
        help="Draw points, curve and residuals into this .png, .svg or .pdf file (needs"
        " matplotlib).",
    )  # fmt: skip
    add_output(
        command,
        "Write the calibration into this new QAR file (default: into FILE if it is a QAR file,"
        " otherwise FILE with the suffix .qar).",
        "QAR",
    )
    add_json(command)


COMMAND = Command(
    "efficiency",
    efficiency,
    "Calibrate the efficiency with a certified source.",
    _add_arguments,
    """\
examples:
  qar efficiency source.n42 --certificate source.csv --plot efficiency.png
                                                  write source.qar and a picture
  qar efficiency source.qar --certificate source.csv --leave-out Co-60 --degree 4
                                                  without the lines of Co-60
  qar efficiency source.qar --certificate source.csv --total-efficiency total.csv
                                                  correct true coincidence summing
  qar analyse sample.n42 --template source.qar    use the calibration
""",
)
