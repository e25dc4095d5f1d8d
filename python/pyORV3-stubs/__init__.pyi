"""Work on QAR files, the spectrum data files of the measurement suite.

No function raises an exception for a failure. Every function returns a status, alone or as the
first item of a 2-tuple whose second item is the result; 0 is success. A status is a signed 32-bit
number: -320234115 is 0xECE99D7D. The module's own codes:

    0xECE99D7D  arguments, a value or an item of a spectrum that cannot be used
    0xECE99D32  out of memory
    0xECE99FEC  a failure inside the module
    0xECE99F6D  an unknown failure; also: the dictionary has no such parameter or is missing
    0xECE99E48  no context could be made
    0xECE99E49  the node refused the context
    0xECE99EA2  opening refused: no data source
    0xECE99EA3  opening refused: the data source cannot be used
    0xE0610000  to 0xE061FFFF: from an analysis engine
    0xEBE80000  to 0xEBE8FFFF, 0xE0400199 and others: from the data-access library
    0xE000007E  no such engine library, 0xE000007F: no such entry point in it

All arguments are positional. Integers are signed 32-bit numbers. A data source handle is what
`open` returned. Records and entries count from 1; entry 0 is the whole record.

A class argument is a class number or any 32-bit code whose high half is one, such as the code of
a parameter of the class.
"""

from typing import Literal, Union

_Value = Union[bool, int, float, str]
_MetaData = tuple[str, str, int, int, str]

# ---- Data sources ----------------------------------------------------------------------------

def open(
    sourceName: str, accessMode: int, typeSelector: int, auxiliaryText: str, /
) -> tuple[int, int]:
    """Opens a data source or creates a file; returns (status, handle).

    accessMode: 0x1 reads, 0x2 writes, 0x3 does both, 0x400 creates a new file.
    typeSelector: nonzero for a file, 0 for an input of the node (see enumerateDefinitions).
    auxiliaryText: handed to the data-access library; empty for none.
    The handle is worth something only with status 0, except that a failed creation leaves one
    that should be given to `close`.
    """

def close(handle: int, unused: int, /) -> int:
    """Saves and closes the source. After a failure the handle stays valid."""

def getIsDirty(handle: int, /) -> int:
    """Always 0."""

def setIsDirty(handle: int, /) -> int:
    """Does nothing; status 0."""

def getIsOpen(handle: int, /) -> Literal[0, 1]:
    """1 for every handle but 0; the library is not asked."""

def flush(handle: int, /) -> int:
    """Makes durable what was written."""

# ---- Classes, records and entries ------------------------------------------------------------

def createBlock(handle: int, classArgument: int, size: int, /) -> int:
    """Makes the storage of a class.

    size: in the unit of the class. For the spectrum class, 0x2005, the number of channels,
    rounded up to 256, 512, 1024, 2048, 4096, 8192, 16384 or 32768.
    """

def deleteBlock(handle: int, classArgument: int, /) -> int:
    """Deletes all records of a class, the last first; stops at the first that cannot be."""

def delete(handle: int, classArgument: int, record: int, entry: int, /) -> int:
    """Deletes a record (entry 0) or an entry; those behind it move up."""

def deleteLevel(handle: int, level: int, /) -> int:
    """Deletes the results of an analysis stage and of the later ones.

    level: the library's. In the embedded library 1 deletes the peaks and what was identified by
    them, 2 what was identified.
    """

def insert(handle: int, classArgument: int, record: int, entry: int, /) -> int:
    """Inserts an empty record (entry below 1) or entry; those at and behind it move down."""

def count(handle: int, classArgument: int, record: int, /) -> tuple[int, int]:
    """The number of records of a class, or of entries where record is above 0.

    Returns (status, count).
    """

def copyTo(sourceHandle: int, destinationHandle: int, classArgument: int, /) -> int:
    """Copies a class into another data source; 0 or less copies the whole source."""

def moveRecordsTo(
    sourceHandle: int,
    destinationHandle: int,
    classArgument: int,
    sourceRecord: int,
    destinationRecord: int,
    /,
) -> int:
    """Copies one record into another data source. In spite of the name the source keeps it."""

# ---- Parameters and nuclides -----------------------------------------------------------------

def getParameterMetaData(
    handle: int, code: int, name: str, /
) -> tuple[int, Union[_MetaData, Literal[0]]]:
    """What the dictionary says of a parameter, by its name or, where that is empty, by its code.

    Returns (status, (name, description, code, class number, type name)); the type names are
    "byte", "short", "long", "longlong", "float", "double", "str" and "Date". A name that the
    dictionary has not but the suite's environment has gives (name, value, 0, 0, "str"). On
    failure (status, 0). The handle is not used.
    """

def findNuclideByEnergy(
    handle: int, energy: float, tolerance: float, option: int, /
) -> tuple[int, int]:
    """Searches the nuclide records for a line; returns (status, record), record 0 on failure.

    The meaning of the two numbers and of the option is the library's. In the embedded library
    both numbers are in keV; option 0 gives the nearest line, 1 the first record with a line
    within the tolerance; the high half of the option is the record after which to begin.
    """

def findNuclideByName(handle: int, name: str, option: int, /) -> tuple[int, int]:
    """Searches the nuclide records for a name; returns (status, record), record 0 on failure.

    The meaning of the option is the library's. In the embedded library case does not matter, 0
    takes the exact name and else the first that begins so, 1 only the first, 2 only the second;
    the high half of the option is the record after which to begin.
    """

def getParameter(handle: int, code: int, record: int, entry: int, /) -> tuple[int, _Value]:
    """Reads one value; returns (status, value), value 0 on failure.

    By type name: "byte" a bool; "short" an int from 0 to 65535; "long" and "longlong" an int;
    "float" and "double" a float; "str" a str; "Date" a str such as 2024-01-24T21:02:12.000Z.
    """

def setParameter(
    handle: int, code: int, value: Union[int, float, str], record: int, entry: int, /
) -> int:
    """Writes one value, of the type that getParameter returns.

    Of an int for "byte" and "short" the low bits count. A date text is in UTC ("Z") or gives its
    offset; instants from 1970-01-01 to 2038-01-19 can be written.
    """

# ---- Spectra ---------------------------------------------------------------------------------

def getSpectrum(handle: int, unused1: int, unused2: int, /) -> tuple[int, tuple[int, ...]]:
    """The contents of all channels; returns (status, channels), channels (0,) on failure.

    The parameter QAR_L_CHANNELS says how many channels there are; at most 65,535.
    """

def setSpectrum(handle: int, channels: tuple[int, ...], unused1: int, unused2: int, /) -> int:
    """Writes the channels from the first on; at most 32,768.

    Of each int the low 32 bits count. The tuple is filled up with zeros to 256, 512, 1024, 2048,
    4096, 8192, 16384 or 32768 channels; what goes beyond QAR_L_CHANNELS is left out.
    """

# ---- Engines, the node, analysis sequences ---------------------------------------------------

def executeNativeEngine(
    engineName: str, entryPointName: str, firstValue: int, secondValue: int, /
) -> int:
    """Runs an engine: loads the library engineName + ".dll" (".so" elsewhere than on Windows) and
    calls its entry point with (firstValue, secondValue, 0, 0). Other Python threads go on.
    """

def enumerateDefinitions(*unused: object) -> tuple[int, str]:
    """The names of the node's inputs, joined by commas; returns (status, names)."""

def control(handle: int, firstValue: int, secondValue: int, /) -> int:
    """Gives the library a command on the source. In the embedded library the first value is 1
    to flush, 2 to compact, 3 to check the file, the second is 0.
    """

def getStatus(handle: int, /) -> tuple[int, int]:
    """The state of the source; returns (status, state). In the embedded library the state is a
    sum: 1 open, 2 changed since it was saved, 4 read only.
    """

def copyAnalysisSequenceTo(sourceHandle: int, destinationHandle: int, /) -> int:
    """Copies the analysis sequence of a data source into another one: the analysis control and
    the processing settings, the geometry and, where the source says so, the calibration of a file
    that it refers to. Report title, report printing, report limit and the number of copies stay
    the destination's own.
    """

def reverify(handle: int, /) -> int:
    """Checks the source again."""
