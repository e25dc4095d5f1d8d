"""New files that appear complete under their name or not at all."""

import contextlib
import errno
import os
from typing import Iterator, Union

from .unicode_links import is_unicode

Path = Union[str, "os.PathLike[str]"]

_MAX_STEM = 100  # characters of a name that its temporary name contains


@contextlib.contextmanager
def new_file(path: Path, replace: bool = False) -> Iterator[str]:
    """Yield a temporary name in the folder of a new file.

    On success the file is renamed to `path`; on an exception it is deleted. Raises
    FileExistsError if `path` exists and `replace` is false.
    """
    path = os.path.abspath(os.fspath(path))
    folder, name = os.path.split(path)
    if not os.path.isdir(folder):
        raise FileNotFoundError(errno.ENOENT, "there is no such folder", folder)
    if not os.access(folder, os.W_OK):
        raise PermissionError(errno.EACCES, "the folder is not writable", folder)
    refuse_taken(path, replace)
    stem = name[:_MAX_STEM] if is_unicode(name) else "new"
    temporary = os.path.join(folder, f".{stem}.{os.getpid()}.part")
    try:
        yield temporary
        refuse_taken(path, replace)
        os.replace(temporary, path)
    finally:
        with contextlib.suppress(FileNotFoundError):
            os.remove(temporary)


def refuse_taken(path: str, replace: bool) -> None:
    """Raise FileExistsError if a path exists and must not be replaced."""
    if os.path.lexists(path) and not replace:
        raise FileExistsError(errno.EEXIST, os.strerror(errno.EEXIST), path)


def write_text(path: Path, text: str, replace: bool = False) -> None:
    """Create a file that contains a string in UTF-8, with its line ends unchanged."""
    with new_file(path, replace) as temporary, open(temporary, "xb") as file:
        file.write(text.encode("utf-8", "surrogateescape"))
