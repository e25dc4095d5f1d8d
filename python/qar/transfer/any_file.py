"""Open a file of any format as a data source."""

import contextlib
import os
from typing import Iterator, List, Optional, Tuple

from .. import formats
from ..atomic_files import Path
from ..formats import FormatError, Measurement
from ..formats.qar_file import SUFFIX
from ..scratch import copy_of, scratch_folder
from ..source import DataSource
from ..source import open as open_source


@contextlib.contextmanager
def open_any(
    path: Path, format: Optional[str] = None, spectrum: str = "", mode: str = "r"
) -> Iterator[Tuple[DataSource, List[str]]]:
    """Open one spectrum of a file; yield the source and notes of everything that was left out.

    format: a key of formats.FORMATS (default: detect from the content). spectrum: its name, which
    is required if the file has several. Raises FormatError, QarError and OSError.
    """
    path = os.fspath(path)
    measurements = formats.with_name(formats.read(path, format), spectrum, path)
    if len(measurements) > 1:
        names = ", ".join(measurement.name for measurement in measurements[:20])
        raise FormatError(
            f"{path}: {len(measurements)} spectra; choose one with --spectrum: {names}"
        )
    stem = os.path.splitext(os.path.basename(path))[0]
    with open_measurement(measurements[0], mode, stem) as opened:
        yield opened


@contextlib.contextmanager
def open_measurement(
    measurement: Measurement, mode: str = "r", stem: str = "spectrum"
) -> Iterator[Tuple[DataSource, List[str]]]:
    """Open the QAR file that a measurement was read from, or a temporary one with the measurement.

    stem: the name of a temporary file, without its suffix. Yields the source and notes of
    everything that was changed or left out.
    """
    with contextlib.ExitStack() as stack:
        path, notes = measurement.qar_file, list(measurement.notes)
        if not path:
            folder = stack.enter_context(scratch_folder())
            path = os.path.join(folder, stem + SUFFIX)
            notes += formats.write(path, measurement, "qar")
        yield stack.enter_context(open_source(path, mode)), notes


@contextlib.contextmanager
def open_copy(measurement: Measurement) -> Iterator[Tuple[DataSource, List[str]]]:
    """Open a temporary copy of a measurement, whose analysis does not change the file.

    Yields the source and notes of everything that was changed or left out.
    """
    with open_measurement(measurement, "r" if measurement.qar_file else "r+") as (source, notes):
        if measurement.qar_file:
            with copy_of(source) as copy:
                yield copy, notes
        else:
            source.is_scratch = True
            yield source, notes
