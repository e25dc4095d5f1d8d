"""The built-in nuclide library: evaluated decay data that the package contains.

    from qar.nuclides import builtin_library

    library = builtin_library.load(groups=["natural", "medical"])

docs/nuclide-library.md documents sources, rules and checks.
"""

import contextlib
import csv
import functools
import os
import re
from typing import Collection, Dict, Iterator, List, NamedTuple, Tuple

from ..analysis.results import GammaLine, Nuclide, nuclide_library, write_nuclide_library
from ..formats import nuclide_csv
from ..records import RecordSource

MIN_HALF_LIFE = 1800.0
"""Seconds. Nuclides without a parent that live shorter are left out by default."""

GROUPS = (
    "natural",
    "fission",
    "activation",
    "medical",
    "calibration",
    "industrial",
    "nuclear-material",
)
"""The groups that a nuclide may belong to."""

DATA = os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "data")
"""The directory of the data files."""

_NUCLIDES, _NAME = "QAR_C_NUCLNAME", "QAR_C_ANLIBRARY"
_VERSION = re.compile(r"version (\d+\.\d+)")


class Entry(NamedTuple):
    """A nuclide of the built-in library with its classification."""

    nuclide: Nuclide
    groups: Tuple[str, ...]
    remark: str  # such as the daughters whose lines are listed under it; may be empty


@functools.lru_cache(maxsize=None)
def version() -> str:
    """Return the version of the data, such as "2026.11"."""
    with open(os.path.join(DATA, "nuclides.csv"), encoding="utf-8") as file:
        match = _VERSION.search(file.readline())
    if match is None:
        raise ValueError("nuclides.csv: the first line does not contain a version")
    return match.group(1)


@functools.lru_cache(maxsize=None)
def entries() -> Tuple[Entry, ...]:
    """Return all nuclides of the library in the order of the data file."""
    classified = _groups()
    return tuple(
        Entry(nuclide, *classified[nuclide.name])
        for nuclide in nuclide_csv.read(os.path.join(DATA, "nuclides.csv"))
    )


def load(
    groups: Collection[str] = (), short_lived: bool = False, x_rays: bool = False
) -> List[Nuclide]:
    """Return the nuclides that an identification uses.

    Args:
        groups: names from GROUPS; a nuclide is taken if it belongs to one of them. Empty: all.
        short_lived: include nuclides without a parent that live shorter than MIN_HALF_LIFE.
        x_rays: include X-rays below 70 keV, which need an efficiency calibration down to 20 keV.

    Raises:
        ValueError: a group is unknown.
    """
    check_groups(groups)
    chosen = [
        entry.nuclide
        for entry in entries()
        if (not groups or set(groups) & set(entry.groups))
        and (short_lived or entry.nuclide.parent or _lives_long(entry.nuclide))
    ]
    return [_with_x_rays(nuclide) for nuclide in chosen] if x_rays else chosen


def check_groups(groups: Collection[str]) -> None:
    """Raise ValueError if one of the names is not in GROUPS."""
    for group in groups:
        if group not in GROUPS:
            raise ValueError(f"unknown group '{group}'; expected some of {', '.join(GROUPS)}")


def named(name: str) -> List[Entry]:
    """Return the nuclides with this name, or if there are none, those whose name begins with it.

    Case and the hyphen do not matter: "cs137" is Cs-137.
    """
    plain = _plain(name)
    exact = [entry for entry in entries() if _plain(entry.nuclide.name) == plain]
    return exact or [entry for entry in entries() if _plain(entry.nuclide.name).startswith(plain)]


def near(energy: float, tolerance: float) -> List[Tuple[Entry, GammaLine]]:
    """Return the lines within the tolerance of an energy, both in keV, the nearest first."""
    lines = [
        (entry, line)
        for entry in entries()
        for line in entry.nuclide.lines
        if abs(line.energy - energy) <= tolerance
    ]
    return sorted(lines, key=lambda match: abs(match[1].energy - energy))


@contextlib.contextmanager
def lent_to(source: RecordSource, groups: Collection[str], is_used: bool) -> Iterator[None]:
    """Lend the library to a source for the time of an analysis, if it has no nuclides of its own.

    The source records the name and version of the library, not its nuclides, so that its next
    analysis uses the version installed then. Raises ValueError if a group is unknown.
    """
    check_groups(groups)
    name = ""
    if is_used and source.record_count(_NUCLIDES) == 0:
        name = " ".join(["qar", version(), *sorted(groups)])
        write_nuclide_library(source, load(groups))
    try:
        yield
    finally:
        if name:
            source.clear(_NUCLIDES)
    if name or source.get(_NAME):
        source[_NAME] = name


def library_of(source: RecordSource) -> List[Nuclide]:
    """Return the nuclides of a source, or those of this library if it has none of its own."""
    return nuclide_library(source) or [entry.nuclide for entry in entries()]


def _lives_long(nuclide: Nuclide) -> bool:
    return nuclide.half_life >= MIN_HALF_LIFE


def _plain(name: str) -> str:
    return name.replace("-", "").casefold()


def _groups() -> Dict[str, Tuple[Tuple[str, ...], str]]:
    """The groups and the remark of each nuclide."""
    with open(os.path.join(DATA, "groups.csv"), encoding="utf-8", newline="") as file:
        rows = csv.DictReader(line for line in file if not line.startswith("#"))
        return {row["nuclide"]: (tuple(row["groups"].split()), row["remark"]) for row in rows}


@functools.lru_cache(maxsize=None)
def _x_rays() -> Dict[str, Tuple[GammaLine, ...]]:
    nuclides = nuclide_csv.read(os.path.join(DATA, "xrays.csv"))
    return {nuclide.name: nuclide.lines for nuclide in nuclides}


def _with_x_rays(nuclide: Nuclide) -> Nuclide:
    lines = nuclide.lines + _x_rays().get(nuclide.name, ())
    return nuclide._replace(lines=tuple(sorted(lines, key=lambda line: line.energy)))
