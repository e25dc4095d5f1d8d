"""The files and nuclide libraries that `qar view` was started with; pages show no others."""

import os
from typing import Dict, Iterable, List, NamedTuple, Sequence, Tuple, TypeVar

from ...analysis.results import Nuclide
from ...formats import nuclide_csv
from ...nuclides import builtin_library
from ..reading import Reading

Item = TypeVar("Item")


class Library(NamedTuple):
    """A nuclide library that an analysis can use instead of that of the file."""

    title: str
    nuclides: Tuple[Nuclide, ...] = ()  # empty: the built-in library
    groups: Tuple[str, ...] = ()  # of the built-in library; empty: all


class Catalogue(NamedTuple):
    """Everything that a page may show, by the numbers that stand for it in addresses."""

    files: Dict[str, str]  # paths
    libraries: Dict[str, Library]
    folder: str  # that contains all files
    reading: Reading

    def name(self, path: str) -> str:
        """Return the name of a file for people."""
        return os.path.relpath(os.path.abspath(path), self.folder)


def catalogue(paths: Sequence[str], libraries: Iterable[str], reading: Reading) -> Catalogue:
    """Return the catalogue of some files, at least one, and of nuclide libraries in CSV files.

    The files are not opened. Raises FormatError if a library is unusable, OSError.
    """
    folders = [os.path.dirname(os.path.abspath(path)) for path in paths]
    return Catalogue(
        _numbered(paths), _numbered(_libraries(libraries)), os.path.commonpath(folders), reading
    )


def _libraries(paths: Iterable[str]) -> List[Library]:
    """Return the built-in library, each of its groups, and those in CSV files."""
    groups = [Library(f"built-in, {name}", (), (name,)) for name in builtin_library.GROUPS]
    given = [Library(os.path.basename(path), tuple(nuclide_csv.read(path))) for path in paths]
    return [Library("built-in"), *groups, *given]


def _numbered(items: Iterable[Item]) -> Dict[str, Item]:
    return {str(number): item for number, item in enumerate(items, start=1)}
