"""Output directories: created if they are missing, deleted if nothing was written to them."""

import contextlib
import errno
import os
from typing import Iterator, List


@contextlib.contextmanager
def output_folder(path: str) -> Iterator[None]:
    """Create a directory with its parents; delete at the end those that were new and are empty.

    An empty path is none. Raises OSError if the directory cannot be created.
    """
    new: List[str] = []
    try:
        for folder in _missing(path):
            os.mkdir(folder)
            new.append(folder)
        if path and not os.path.isdir(path):
            raise NotADirectoryError(errno.ENOTDIR, os.strerror(errno.ENOTDIR), path)
        yield
    finally:
        for folder in reversed(new):
            with contextlib.suppress(OSError):  # it has files by now
                os.rmdir(folder)


def _missing(path: str) -> List[str]:
    """Return the directories of a path that do not exist, the outermost first."""
    missing: List[str] = []
    folder = os.path.abspath(path) if path else ""
    while folder and not os.path.lexists(folder):
        missing.insert(0, folder)
        folder = os.path.dirname(folder)
    return missing
