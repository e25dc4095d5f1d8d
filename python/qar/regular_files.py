"""Files from outside, opened only if they are regular files.

A named pipe, a device or a socket in place of a file could block the reader without end.
"""

import errno
import os
import stat
from typing import BinaryIO, Union

Path = Union[str, "os.PathLike[str]"]

_KINDS = (
    (stat.S_ISFIFO, "a named pipe"),
    (stat.S_ISSOCK, "a socket"),
    (stat.S_ISCHR, "a device"),
    (stat.S_ISBLK, "a device"),
)


def open_regular(path: Path) -> BinaryIO:
    """Open a file for reading bytes.

    Raises OSError if it is not a regular file; a directory raises IsADirectoryError.
    """
    # Opening a named pipe for reading would wait for a writer without O_NONBLOCK.
    flags = os.O_RDONLY | getattr(os, "O_NONBLOCK", 0) | getattr(os, "O_BINARY", 0)
    try:
        descriptor = os.open(path, flags)
    except OSError as error:
        if error.errno == errno.ENXIO:  # a socket
            raise OSError(errno.EINVAL, "not a regular file", path) from None
        raise
    try:
        _refuse_special(os.fstat(descriptor).st_mode, path)
        return os.fdopen(descriptor, "rb")
    except BaseException:
        os.close(descriptor)
        raise


def _refuse_special(mode: int, path: Path) -> None:
    if stat.S_ISDIR(mode):
        raise IsADirectoryError(errno.EISDIR, os.strerror(errno.EISDIR), path)
    for is_kind, name in _KINDS:
        if is_kind(mode):
            reason = f"{name}, not a regular file; use - to read from standard input"
            raise OSError(errno.EINVAL, reason, path)
