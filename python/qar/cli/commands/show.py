"""The command `show`: parameters, calibrations, results and a plot in the terminal."""

import os
from typing import Any, Dict, Iterator, List, Tuple

from ... import dictionary, formats
from ...constants import QAR_CLS_SPECTRUM
from ...display import layout, tables, terminal
from ...display.printable import value_text
from ...formats import Measurement
from ...source import DataSource
from ...transfer.any_file import open_measurement
from ..command import DONE, Arguments, Command, Parser, add_json
from ..inputs import add_input, local_file
from ..output import print_json, print_lines, shown_path, warn
from ..reading import reading_of


def show(arguments: Arguments) -> int:
    with local_file(arguments.file) as local:
        measurements = reading_of(arguments).read(local)
        measurements = formats.with_name(measurements, arguments.spectrum, arguments.file)
        if len(measurements) > 1:
            _show_list(measurements, arguments)
            return DONE
        with open_measurement(measurements[0]) as (source, notes):
            warn(arguments.file, notes)
            source.path = shown_path(arguments.file)
            if arguments.json:
                print_json(_everything(source))
            else:
                print_lines(_shown(source))
    return DONE


# ---- A file with several spectra ---------------------------------------------------------------


def _show_list(measurements: List[Measurement], arguments: Arguments) -> None:
    rows = [
        {
            "name": item.name,
            "channels": len(item.counts),
            "counts": sum(item.counts),
            "live_time": item.live_time,
            "is_background": item.is_background,
        }
        for item in measurements
    ]
    if arguments.json:
        print_json({"file": shown_path(arguments.file), "spectra": rows})
        return
    name = os.path.basename(shown_path(arguments.file))
    print_lines([f"{name}: {len(rows):,} spectra; show one with --spectrum NAME"])
    print_lines(tables.lines(_SPECTRA, measurements))


_SPECTRA = (
    tables.Column("spectrum", "", lambda item: str(item.name)),
    tables.Column("channels", "", lambda item: f"{len(item.counts):,}"),
    tables.Column("counts", "", lambda item: f"{sum(item.counts):,}"),
    tables.Column("live time", "s", lambda item: tables.number(item.live_time)),
    tables.Column("kind", "", lambda item: "background" if item.is_background else "-"),
)


# ---- One spectrum ------------------------------------------------------------------------------


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
    has_spectrum = source.record_count(QAR_CLS_SPECTRUM) > 0
    return source.spectrum() if has_spectrum else ()


def _shown(source: DataSource) -> Iterator[str]:
    counts, results = _counts(source), source.results()
    size = tables.counted(len(counts), "channel")
    yield f"{os.path.basename(source.path)}: {size}, {sum(counts):,} counts"
    for name, number in dictionary.classes().items():
        records = source.record_count(number)
        if records != 1 or number == QAR_CLS_SPECTRUM:
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


def _add_arguments(command: Parser) -> None:
    add_input(command)
    add_json(command)


COMMAND = Command(
    "show",
    show,
    "Show parameters, calibrations, peaks and a plot, or the spectra of a file with several.",
    _add_arguments,
)
