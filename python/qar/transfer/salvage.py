"""Check files for damage, and copy the sound content of a damaged file."""

import contextlib
import errno
import os
from typing import Dict, Iterator, List, NamedTuple, Tuple, Type

import pyORV3

from .. import dictionary
from ..atomic_files import Path, new_file
from ..constants import QAR_CLS_SPECTRUM
from ..enums import ControlCommand
from ..errors import DamagedError, NotFoundError, QarError, check
from ..records import RecordSource
from ..scratch import scratch_folder
from ..status import DAMAGED, OPEN_DAMAGED, OPEN_REFUSED
from ..status import describe as describe_status
from ..values import MAX_INDEX
from .new_header import copies_with_new_header
from .present_classes import is_embedded, is_single_block, possible_classes


def verify(path: Path) -> None:
    """Read everything in a file. Raises DamagedError if it is not sound, or another QarError."""
    with RecordSource(path) as source:
        source.verify()


_NOTHING_READ = "nothing can be read; the file may not have had it"


class Salvage(NamedTuple):
    """The content that was copied and the content that was lost."""

    copied: Dict[str, int]  # number of records, or of channels, by the name of the class
    lost: List[str]  # one line for each class, and one for all classes that cannot be read


def salvage(path: Path, destination: Path, replace: bool = False) -> Salvage:
    """Copy all sound classes to a new file, and the sound records of the other classes.

    Saved records of a damaged class move up to the numbers of lost ones. The new file appears
    complete or not at all. Raises OSError if the destination is refused, QarError if the damaged
    file cannot be opened or nothing can be saved.
    """
    copied: Dict[str, int] = {}
    lost: List[str] = []
    if os.path.exists(destination) and os.path.samefile(path, destination):
        raise OSError(errno.EINVAL, "the damaged file is not replaced", destination)
    with _opened(path) as source, new_file(destination, replace) as temporary:
        with RecordSource(temporary, "x") as copy:
            for number in possible_classes(source):
                copy_class(source, copy, number, copied, lost)
        if lost and not copied:
            raise DamagedError("salvaging", OPEN_DAMAGED, os.fspath(path), "nothing can be saved")
    return Salvage(copied, _with_unknown_losses_together(lost))


def _with_unknown_losses_together(lost: List[str]) -> List[str]:
    """Replace the lines about classes of which nothing can be read by a single line."""
    end = f": {_NOTHING_READ}"
    known = [line for line in lost if not line.endswith(end)]
    names = [line[: -len(end)] for line in lost if line.endswith(end)]
    if len(names) <= 1:
        return lost
    named = [name for name in names if name in dictionary.classes()]
    if len(named) < len(names):
        named.append(f"{len(names) - len(named):,} classes without a name")
    return known + [f"{', '.join(named)}: {_NOTHING_READ}"]


@contextlib.contextmanager
def _opened(path: Path) -> Iterator[RecordSource]:
    """Open a file, or a copy with a new header if the file is refused as damaged or foreign."""
    with contextlib.ExitStack() as stack:
        try:
            source = RecordSource(path)
        except QarError as refusal:
            if refusal.status not in (OPEN_REFUSED, OPEN_DAMAGED) or not os.path.isfile(path):
                raise
            folder = stack.enter_context(scratch_folder(os.path.getsize(path)))
            source = _first_accepted(copies_with_new_header(path, folder), refusal)
        yield stack.enter_context(source)


def _first_accepted(paths: Iterator[str], refusal: QarError) -> RecordSource:
    for path in paths:
        with contextlib.suppress(QarError):
            return RecordSource(path)
    raise refusal


def copy_class(
    source: RecordSource, copy: RecordSource, number: int, copied: Dict[str, int], lost: List[str]
) -> None:
    """Copy the sound content of one class; update `copied` and `lost`."""
    name = dictionary.class_name(number)
    status, records = pyORV3.count(source.handle, number, 0)
    if status != 0:
        if describe_status(status).family == DAMAGED:  # otherwise there is no such class
            saved, reason = _copy_verified(source, copy, number)
            lost.append(f"{name}: {reason}")
            if saved:
                copied[name] = _size(copy, number, saved)
        return
    if records == 0:
        return
    try:
        _copy_whole(source, copy, number)
        copied[name] = _size(copy, number, records)
    except QarError as error:
        saved, _ = _copy_records(source, copy, number, records, QarError)
        lost.append(f"{name}: {records - saved} of {records} records: {error.text}")
        if saved:
            copied[name] = saved


def _size(source: RecordSource, number: int, records: int) -> int:
    return len(source.spectrum()) if number == QAR_CLS_SPECTRUM else records


def _copy_whole(source: RecordSource, copy: RecordSource, number: int) -> None:
    try:
        source.copy_to(copy, number)
    except QarError:  # some libraries require the class in the destination
        check(pyORV3.createBlock(copy.handle, number, 0), "creating a class", number)
        source.copy_to(copy, number)


def _copy_records(
    source: RecordSource, copy: RecordSource, number: int, last: int, loss: Type[QarError]
) -> Tuple[int, List[int]]:
    """Copy the records of a class up to `last`, or up to the last one that exists.

    Return the number of copied records, and the numbers of those whose copy raised `loss`.
    """
    saved = 0
    lost: List[int] = []
    for record in range(1, last + 1):
        try:
            source.copy_record_to(copy, number, record, saved + 1)
            saved += 1
        except NotFoundError:
            break
        except loss:
            lost.append(record)
    return saved, lost


def _copy_verified(source: RecordSource, copy: RecordSource, number: int) -> Tuple[int, str]:
    """Copy the verified records of a damaged class.

    Return their number and a description of the loss.
    """
    if not is_embedded(source):
        return 0, "the class is damaged"
    check(pyORV3.control(source.handle, ControlCommand.SALVAGE, 0), "salvaging", source.path)
    saved, lost = _copy_records(source, copy, number, MAX_INDEX, DamagedError)
    if saved == 0:
        return 0, "the content is damaged" if lost else _NOTHING_READ
    if is_single_block(number):
        return saved, "saved, but the directory of the file does not confirm the content"
    if not lost:
        return saved, f"values of unknown records; all {saved} are saved but may lack values"
    records = "record" if len(lost) == 1 else "records"
    return saved, f"{records} {_ranges(lost)}; the other {saved} are saved but may lack values"


def _ranges(numbers: List[int]) -> str:
    """Return ascending numbers as a string, such as '3, 7 to 9'."""
    ranges: List[List[int]] = []
    for number in numbers:
        if ranges and ranges[-1][1] == number - 1:
            ranges[-1][1] = number
        else:
            ranges.append([number, number])
    return ", ".join(str(a) if a == b else f"{a} to {b}" for a, b in ranges)
