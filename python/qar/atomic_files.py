"""New files: each appears complete under its name, or not at all."""

import contextlib
import errno
import os
from typing import Iterator, Union

Path = Union[str, "os.PathLike[str]"]

_LONGEST_STEM = 100


@contextlib.contextmanager
def new_file(path: Path, replace: bool = False) -> Iterator[str]:
    """A name in the same folder for a file to be made: it gets the name `path` when all went
    well and goes otherwise.

    FileExistsError: the name `path` is taken and is not to be replaced.
    """
    path = os.path.abspath(os.fspath(path))
    folder, name = os.path.split(path)
    if not os.path.isdir(folder):
        raise FileNotFoundError(errno.ENOENT, "there is no such folder", folder)
    if not os.access(folder, os.W_OK):
        raise PermissionError(errno.EACCES, "the folder cannot be written to", folder)
    refuse_taken(path, replace)
    temporary = os.path.join(folder, f".{name[:_LONGEST_STEM]}.{os.getpid()}.part")
    try:
        yield temporary
        refuse_taken(path, replace)
        os.replace(temporary, path)
    finally:
        with contextlib.suppress(FileNotFoundError):
            os.remove(temporary)


def refuse_taken(path: str, replace: bool) -> None:
    """FileExistsError where the name is taken and is not to be replaced."""
    if os.path.lexists(path) and not replace:
        raise FileExistsError(errno.EEXIST, os.strerror(errno.EEXIST), path)


def write_text(path: Path, text: str, replace: bool = False) -> None:
    """Makes a file of a text in UTF-8, with the line ends that the text has."""
    with new_file(path, replace) as temporary, open(temporary, "xb") as file:
        file.write(text.encode("utf-8", "surrogateescape"))
