"""Checks of the pictures that commands write."""

from ..atomic_files import refuse_taken
from ..display import plot
from .command import CommandError


def check_picture(path: str, replace: bool) -> str:
    """Return the format of a picture to write; fail early if it cannot be drawn.

    Raises CommandError for another suffix than those of plot.FORMATS, ImportError if matplotlib
    is not installed, FileExistsError if the file exists and `replace` is false.
    """
    try:
        format = plot.format_of(path)
    except ValueError as error:
        raise CommandError(str(error)) from None
    plot.figure_class()
    refuse_taken(path, replace)
    return format
