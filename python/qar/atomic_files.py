"""New files that appear complete under their name or not at all."""

import contextlib
import errno
import os
from typing import Iterator, Union

from .errors import QarError
from .unicode_links import is_unicode

Path = Union[str, "os.PathLike[str]"]

_MAX_STEM = 100  # characters of a name that its temporary name contains


@contextlib.contextmanager
def new_file(path: Path, replace: bool = False) -> Iterator[str]:
    """Yield a temporary name in the folder of a new file.

    On success the file is renamed to `path`; on an exception it is deleted. Raises
    FileExistsError if `path` exists and `replace` is false.
    """
    given = os.fspath(path)
    folder, name = os.path.split(os.path.abspath(given))
    refuse_missing_folder(given)
    refuse_taken(given, replace)
    stem = name[:_MAX_STEM] if is_unicode(name) else "new"
    temporary = os.path.join(folder, f".{stem}.{os.getpid()}.part")
    try:
        with _errors_about(given, temporary):
            yield temporary
            refuse_taken(given, replace)
            os.replace(temporary, given)
    finally:
        with contextlib.suppress(FileNotFoundError):
            os.remove(temporary)


@contextlib.contextmanager
def _errors_about(path: str, temporary: str) -> Iterator[None]:
    """Make errors about a temporary file name the file that it will become."""
    try:
        yield
    except OSError as error:
        if error.filename in (None, temporary):
            error.filename = path
        raise
    except QarError as error:
        if error.argument != temporary:
            raise
        raise type(error)(error.attempt, error.status, path, error.text) from None


def refuse_missing_folder(path: str) -> None:
    """Raise OSError if the folder of a new file does not exist or is not writable."""
    folder = os.path.dirname(path) or "."
    if not os.path.isdir(folder):
        raise FileNotFoundError(errno.ENOENT, "there is no such folder", folder)
    if not os.access(folder, os.W_OK):
        raise PermissionError(errno.EACCES, "the folder is not writable", folder)


def refuse_taken(path: str, replace: bool) -> None:
    """Raise FileExistsError if a path exists and must not be replaced."""
    if os.path.lexists(path) and not replace:
        raise FileExistsError(errno.EEXIST, os.strerror(errno.EEXIST), path)


def write_text(path: Path, text: str, replace: bool = False) -> None:
    """Create a file that contains a string in UTF-8, with its line ends unchanged."""
    with new_file(path, replace) as temporary, open(temporary, "xb") as file:
        file.write(text.encode("utf-8", "surrogateescape"))
