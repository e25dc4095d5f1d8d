"""Looking whether a file is sound, and copying what is sound out of one that is not."""

from typing import Dict, List, NamedTuple

import pyORV3

from .. import dictionary
from ..atomic_files import Path, new_file
from ..errors import QarError, check, error_for
from ..source import DataSource
from ..source import open as open_source
from ..status import DAMAGED
from ..status import describe as describe_status
from .dump import HIGHEST_CLASS, SPECTRUM_CLASS


def verify(path: Path) -> None:
    """Reads everything in a file; raises DamagedError where something does not hold together,
    another QarError where the file cannot be read.
    """
    with open_source(path) as source:
        source.verify()


class Salvage(NamedTuple):
    """What was copied and what was not."""

    copied: Dict[str, int]  # by the name of the class: records, of a spectrum channels
    lost: List[str]  # a line for each


def salvage(path: Path, destination: Path, replace: bool = False) -> Salvage:
    """Copies each class that can be read into a new file, and of others the records that can.

    The new file appears complete or not at all. QarError: nothing can be read, since opening is
    refused.
    """
    copied: Dict[str, int] = {}
    lost: List[str] = []
    with open_source(path) as source, new_file(destination, replace) as temporary:
        with open_source(temporary, "x") as copy:
            for number in range(1, HIGHEST_CLASS + 1):
                copy_class(source, copy, number, copied, lost)
    return Salvage(copied, lost)


def copy_class(
    source: DataSource, copy: DataSource, number: int, copied: Dict[str, int], lost: List[str]
) -> None:
    """Copies what can be read of one class; adds to what was copied and lost."""
    name = dictionary.class_name(number)
    status, records = pyORV3.count(source.handle, number, 0)
    if status != 0:
        if describe_status(status).family == DAMAGED:  # others say that there is no such class
            lost.append(f"{name}: {error_for('counting', status, name).text}")
        return
    if records == 0:
        return
    try:
        _copy_whole(source, copy, number)
        copied[name] = len(source.spectrum()) if number == SPECTRUM_CLASS else records
    except QarError as error:
        saved = _records(source, copy, number, records)
        lost.append(f"{name}: {records - saved} of {records} records: {error.text}")
        if saved:
            copied[name] = saved


def _copy_whole(source: DataSource, copy: DataSource, number: int) -> None:
    try:
        source.copy_to(copy, number)
    except QarError:  # a library that wants the class to be there
        check(pyORV3.createBlock(copy.handle, number, 0), "making a class", number)
        source.copy_to(copy, number)


def _records(source: DataSource, copy: DataSource, number: int, records: int) -> int:
    """Copies the records that can be; returns how many these were."""
    saved = 0
    for record in range(1, records + 1):
        try:
            source.copy_record_to(copy, number, record, saved + 1)
            saved += 1
        except QarError:
            continue
    return saved
