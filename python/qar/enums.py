"""Enumerations of the numbers that calls take: access modes, search options, commands.

The values are those of the embedded library; the first three access modes and the states are the
same in the suite.
"""

from enum import IntEnum, IntFlag


class AccessMode(IntFlag):
    """How a data source is opened. Writing includes reading; 0 reads as well."""

    READ = 0x1
    WRITE = 0x2
    CREATE = 0x400
    """Creates a file and opens it for writing; an existing file is refused."""


class SourceState(IntFlag):
    """The state of an open data source; `DataSource.state` is a sum of these."""

    OPEN = 0x1
    CHANGED = 0x2
    """Has changes that are not saved."""
    READ_ONLY = 0x4


class NameSearch(IntEnum):
    """How a nuclide is found by its name; case does not matter."""

    EXACT_THEN_BEGINNING = 0
    EXACT = 1
    BEGINNING = 2


class EnergySearch(IntEnum):
    """Which of the records with a gamma line within the tolerance is found."""

    NEAREST = 0
    FIRST = 1


class ControlCommand(IntEnum):
    """Commands of `pyORV3.control`: its first value. The second value is 0."""

    FLUSH = 1
    COMPACT = 2
    CHECK = 3
    SALVAGE = 4
    """From now on, copies of records return the verified records of damaged classes."""


class ResultLevel(IntEnum):
    """Which results of an analysis are deleted."""

    PEAKS = 1
    """The peaks and the identified nuclides."""
    NUCLIDES = 2
    """The identified nuclides."""
