"""The words that calls take: how to open, what to search for, which command to give.

The values are those of the embedded library; the first three access modes and the states hold
for the suite as well.
"""

from enum import IntEnum, IntFlag


class AccessMode(IntFlag):
    """How a data source is opened. Writing includes reading; no bit reads."""

    READ = 0x1
    WRITE = 0x2
    CREATE = 0x400
    """Makes a new file and opens it for writing; a file that exists is refused."""


class SourceState(IntFlag):
    """The state of an open data source; `DataSource.state` is a sum of these."""

    OPEN = 0x1
    CHANGED = 0x2
    """Changed since it was saved."""
    READ_ONLY = 0x4


class NameSearch(IntEnum):
    """How the name of a nuclide is searched for; case does not matter."""

    EXACT_THEN_BEGINNING = 0
    EXACT = 1
    BEGINNING = 2


class EnergySearch(IntEnum):
    """Which record with a gamma line within the tolerance is found."""

    NEAREST = 0
    FIRST = 1


class ControlCommand(IntEnum):
    """Commands of `pyORV3.control`, as its first value; the second is 0."""

    FLUSH = 1
    COMPACT = 2
    CHECK = 3


class ResultLevel(IntEnum):
    """Which results of an analysis are deleted."""

    PEAKS = 1
    """The peaks and what was identified by them."""
    NUCLIDES = 2
    """What was identified."""
