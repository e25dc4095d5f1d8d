"""Read and write QAR files, the spectrum data files of the measurement suite.

No function raises an exception for a failure. Each function returns a status, alone or as the first
item of a 2-tuple whose second item is the result; 0 is success. A status is a signed 32-bit number:
-320234115 is 0xECE99D7D. `qar.status.describe` returns its meaning.

All arguments are positional. Integers are signed 32-bit numbers. A handle is a result of `open`.
Records and entries count from 1; entry 0 is the whole record. A class argument is a class number or
any 32-bit code whose high half is a class number, such as a parameter code.

scripts/generate copies the descriptions of the functions from docs/functions.md.
"""

from typing import Literal, Union

_Value = Union[bool, int, float, str]
_MetaData = tuple[str, str, int, int, str]

# ---- Data sources ----------------------------------------------------------------------------

def open(
    sourceName: str, accessMode: int, typeSelector: int, auxiliaryText: str, /
) -> tuple[int, int]:
    """Open a data source or create a file.

    accessMode: 0x1 reads, 0x2 writes, 0x3 does both, 0x400 creates a file and opens it for writing.
    typeSelector: nonzero for the name of a file; 0 for an input of the node, see
    `enumerateDefinitions`. auxiliaryText: for the library of the suite; empty for none. Returns
    (status, handle). After a failed creation, pass the handle to `close`.

    Statuses: `fileNotFound`; `fileExists`: files are never overwritten; `openRefused`: not a data
    source; `openRefusedByState`: damaged; `inUse`: another process writes it; `accessDenied`,
    `tooManyOpen` and `storageFailed`: the system; `nameRefused` and `windowsPath`: not a file name
    on this system.
    """

def close(handle: int, unused: int, /) -> int:
    """Save and close a data source.

    After a failure the handle stays valid. The second argument is not used.

    Statuses: `storageFailed`, for example a full disk; `fileMoved`: the file lost its name while it
    was open.
    """

def getIsDirty(handle: int, /) -> int:
    """Return 0, whatever the state of the data source.

    `getStatus` shows unsaved changes.
    """

def setIsDirty(handle: int, /) -> int:
    """Return 0, whatever the state of the data source.

    `getStatus` shows unsaved changes.
    """

def getIsOpen(handle: int, /) -> Literal[0, 1]:
    """Return 1 for every handle except 0.

    The function does not call the library.
    """

def flush(handle: int, /) -> int:
    """Save the changes of a data source.

    After a success the changes are on the disk, even if the process or the machine fails. Statuses:
    as `close`.
    """

# ---- Classes, records and entries ------------------------------------------------------------

def createBlock(handle: int, classArgument: int, size: int, /) -> int:
    """Create the storage of a class.

    size: number of channels for the spectrum class, rounded up to 256, 512, 1024, 2048, 4096, 8192,
    16384 or 32768; expected size for other classes. The content of an existing class stays.

    Statuses: `unknownClass`, `readOnly`.
    """

def deleteBlock(handle: int, classArgument: int, /) -> int:
    """Delete all records of a class.

    The last record is deleted first; the first failure ends the deletion.

    Statuses: `libraryFailure`: an unknown class; `readOnly`.
    """

def delete(handle: int, classArgument: int, record: int, entry: int, /) -> int:
    """Delete a record or an entry.

    entry: 0 to delete the record. Those after it move down by one number. Statuses: as `insert`.
    """

def deleteLevel(handle: int, level: int, /) -> int:
    """Delete the results of an analysis stage and of the later stages.

    Levels of the embedded library: 1 deletes the peaks and the identified nuclides, 2 only the
    nuclides.

    Statuses: `unknownItem`: another level; `readOnly`.
    """

def insert(handle: int, classArgument: int, record: int, entry: int, /) -> int:
    """Insert an empty record or entry.

    entry: 0 to insert a record. The record or entry with this number and those after it move up by
    one number.

    Statuses: `noSuchRecord`, `noSuchEntry`, `unknownClass`, `readOnly`, `blockFull`.
    """

def count(handle: int, classArgument: int, record: int, /) -> tuple[int, int]:
    """Return the number of records of a class, or of entries of a record.

    record: 0 to count records. Statuses: `unknownClass`, `noSuchRecord`.
    """

def copyTo(sourceHandle: int, destinationHandle: int, classArgument: int, /) -> int:
    """Copy a class into another data source.

    A class of 0 or less copies the whole source.

    Statuses: `noBlock`: one of the sources does not have the class; `readOnly`.
    """

def moveRecordsTo(
    sourceHandle: int,
    destinationHandle: int,
    classArgument: int,
    sourceRecord: int,
    destinationRecord: int,
    /,
) -> int:
    """Copy one record into another data source.

    In spite of its name, the function leaves the record in the source. Statuses: `noSuchRecord`,
    `readOnly`.
    """

# ---- Parameters and nuclides -----------------------------------------------------------------

def getParameterMetaData(
    handle: int, code: int, name: str, /
) -> tuple[int, Union[_MetaData, Literal[0]]]:
    """Return the description of a parameter in the dictionary.

    The dictionary is searched for the name or, if the name is empty, for the code. The type is
    "byte", "short", "long", "longlong", "float", "double", "str" or "Date". A name that is only in
    the environment gives (name, value, 0, 0, "str"). After a failure the second item is 0. The
    handle is not used.

    Statuses: `badArguments`: neither in the dictionary nor in the environment.
    """

def findNuclideByEnergy(
    handle: int, energy: float, tolerance: float, option: int, /
) -> tuple[int, int]:
    """Find the nuclide record with a gamma line at an energy.

    energy, tolerance: in keV. Options of the embedded library: 0 finds the nearest line, 1 the
    first record with a line within the tolerance; the high half as for `findNuclideByName`. Returns
    (status, record); record is 0 after a failure.

    Statuses: `notFound`; `keyRefused`: a negative number, infinity or not a number; `unknownItem`.
    """

def findNuclideByName(handle: int, name: str, option: int, /) -> tuple[int, int]:
    """Find the nuclide record with a name, in any case.

    Options of the embedded library: 0 finds the exact name or else the first name with this
    beginning, 1 only the exact name, 2 only a beginning. The search starts after the record in the
    high half of the option. Returns (status, record); record is 0 after a failure.

    Statuses: `notFound`; `unknownItem`: another option.
    """

def getParameter(handle: int, code: int, record: int, entry: int, /) -> tuple[int, _Value]:
    """Return the value of a parameter.

    The value in (status, value) is a bool for a byte, an int from 0 to 65,535 for a short, an int,
    a float or a str; a date is a str such as `2026-03-02T08:15:00.000Z`. It is 0 after a failure.

    Statuses: `notSet`: no value; `noSuchRecord`, `noSuchEntry`; `unknownException`: the code is not
    in the dictionary.
    """

def setParameter(
    handle: int, code: int, value: Union[int, float, str], record: int, entry: int, /
) -> int:
    """Write the value of a parameter.

    The value has the type that `getParameter` returns. A number that is one above the last record
    or entry creates it. Only the low bits of an int count for a byte or a short. A string ends at
    the first NUL, and characters outside the code page become `?`. A date is a string in UTC (`Z`)
    or with an offset.

    A date is stored as a floating-point number of seconds, and `getParameter` cuts off the digits
    below the millisecond. Therefore about 30 % of random dates are read back one millisecond
    earlier, and writing back such a value can move it again. Dates with more than five digits of
    the second in the last 4 µs of a minute (`23:59:59.999999`) are refused. `qar` avoids both: it
    reads each date back and writes it 5 µs later if necessary.

    Statuses: `badArguments`: a value of another type, or a date outside 1970-01-01 to 2038-01-19;
    `unknownException`: the code is not in the dictionary; `readOnly`; `noSuchRecord` and
    `noSuchEntry`: above the next number; `sizeRefused`: the string is too long; `blockFull`.
    """

# ---- Spectra ---------------------------------------------------------------------------------

def getSpectrum(handle: int, unused1: int, unused2: int, /) -> tuple[int, tuple[int, ...]]:
    """Return the contents of all channels as a tuple.

    Item 0 of channels is channel 1. After a failure channels is (0,).

    Statuses: `notSet`: the source has no spectrum; `badArguments`: more than 65,535 channels.
    """

def setSpectrum(handle: int, channels: tuple[int, ...], unused1: int, unused2: int, /) -> int:
    """Write the channel contents of a spectrum, starting at channel 1.

    channels: a tuple of at most 32,768 ints; only their low 32 bits count. Zeros extend it to 256,
    512, 1024, 2048, 4096, 8192, 16384 or 32768 channels. Channels above `QAR_L_CHANNELS` are not
    written, so write that parameter first.

    Statuses: `badArguments`: not a tuple, too long, or an item that is not an int; nothing was
    written then; `readOnly`.
    """

# ---- Engines, the node, analysis sequences ---------------------------------------------------

def executeNativeEngine(
    engineName: str, entryPointName: str, firstValue: int, secondValue: int, /
) -> int:
    """Load an engine and call its entry point.

    The library is the engine name plus `.dll` (`.so` on other systems than Windows). The entry
    point gets the two values, 0 and 0; usually the first is a handle and the second an option word.
    Other Python threads run meanwhile. See engine.md for `peak_search` and writing-an-engine.md for
    your own engine.

    Statuses: `engineMissing`, `entryPointMissing`; those of the engine, such as
    `noEnergyCalibration`; `standardException` and `unknownException`: the engine threw an
    exception.
    """

def enumerateDefinitions(*unused: object) -> tuple[int, str]:
    """Return the names of the inputs of the node, joined by commas.

    The inputs of the embedded library are the files *name*`.qar` in the directory that the
    environment variable `ORV_INPUTS` contains. Arguments are ignored.
    """

def control(handle: int, firstValue: int, secondValue: int, /) -> int:
    """Run a command of the library on a data source.

    Commands of the embedded library: 1 saves, 2 saves and makes the file as small as possible, 3
    checks the file, 4 lets `moveRecordsTo` copy the verified records of damaged classes until the
    source is closed (details).

    Statuses: `unknownItem`: unknown command; `damaged`: the check failed; those of `close`.
    """

def getStatus(handle: int, /) -> tuple[int, int]:
    """Return the state of a data source.

    The state in (status, state) is a sum: 1 open, 2 unsaved changes, 4 read only.
    """

def copyAnalysisSequenceTo(sourceHandle: int, destinationHandle: int, /) -> int:
    """Copy the analysis sequence of a data source into another one.

    The sequence consists of the analysis control, the processing settings, the geometry and, if
    `QAR_B_USECALFILE` is set, the calibration of the file `QAR_C_CALFILE`. The destination keeps
    its report title, report printing, report limit and number of copies.

    Statuses: `readOnly`. A calibration file that cannot be opened is skipped.
    """

def reverify(handle: int, /) -> int:
    """Check a data source and read the changes of other processes.

    If the source has unsaved changes, it keeps them instead. Statuses: `damaged`, `fileMoved`.
    """
