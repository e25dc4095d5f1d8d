"""Scratch copies of data sources, on which work is tried before it reaches the source itself."""

import contextlib
import os
from typing import TYPE_CHECKING, Iterator, TypeVar

from .records import RecordSource

if TYPE_CHECKING:
    import tempfile

Source = TypeVar("Source", bound=RecordSource)

_MEMORY = "/dev/shm"  # a file system in memory, where a save costs microseconds
_SPARE_BYTES = 16 << 20


def scratch_folder(size: int = 0) -> "tempfile.TemporaryDirectory[str]":
    """Return a temporary directory, in memory if `size` bytes fit there several times.

    The environment variable TMPDIR overrides the choice, as for every temporary file.
    """
    import shutil
    import tempfile

    folder = None
    is_usable = os.name == "posix" and os.access(_MEMORY, os.W_OK | os.X_OK)
    if is_usable and "TMPDIR" not in os.environ:
        if shutil.disk_usage(_MEMORY).free > 4 * size + _SPARE_BYTES:
            folder = _MEMORY
    return tempfile.TemporaryDirectory(prefix="qar-", dir=folder)


@contextlib.contextmanager
def rehearsal(source: Source) -> Iterator[Source]:
    """Yield a copy of a source, whose content replaces that of the source on success.

    On an exception the source is unchanged. The copy of a copy is the copy itself. Raises
    ReadOnlyError at the end if the source is open for reading only.
    """
    if source.is_scratch:
        yield source
        return
    with copy_of(source) as copy:
        yield copy
        copy.copy_to(source)


@contextlib.contextmanager
def copy_of(source: Source) -> Iterator[Source]:
    """Yield a copy of a source, which is deleted at the end."""
    size = os.path.getsize(source.path) if os.path.isfile(source.path) else 0
    with scratch_folder(size) as folder:
        with type(source)(os.path.join(folder, "scratch.qar"), "x") as copy:
            copy.is_scratch, copy.path = True, source.path
            source.copy_to(copy)
            yield copy
