"""Statuses: the 32-bit outcome of every call of pyORV3, 0 for success, and what each says.

Python sees a status as a signed number: -320234115 is 0xECE99D7D. Everything here takes either.
One table stands behind the texts of the exceptions, the page docs/status-codes.md and `describe`.
"""

from typing import NamedTuple

# Families: what a script can do about a failure. Each has an exception of its own in errors.py.
NOT_FOUND = "not found"
EXISTS = "exists"
READ_ONLY = "read only"
IN_USE = "in use"
DAMAGED = "damaged"
BAD_ARGUMENT = "bad argument"
ENGINE = "engine"
SYSTEM = "system"
LIBRARY = "library"
EXCEPTIONS = {
    NOT_FOUND: "NotFoundError",
    EXISTS: "ExistsError",
    READ_ONLY: "ReadOnlyError",
    IN_USE: "InUseError",
    DAMAGED: "DamagedError",
    BAD_ARGUMENT: "BadArgumentError",
    ENGINE: "EngineError",
    SYSTEM: "SystemFailureError",
    LIBRARY: "LibraryError",
}


class Status(NamedTuple):
    """What is known of a status."""

    code: int  # unsigned
    name: str
    family: str
    text: str

    @property
    def signed(self) -> int:
        """The number as the functions of pyORV3 return it."""
        return self.code - (1 << 32) if self.code & 0x80000000 else self.code

    def __str__(self) -> str:
        return f"0x{self.code:08X} ({self.signed}), {self.name}, {self.family}: {self.text}"


RANGE_PARTLY_SEARCHED = 0xE061000E

SUCCESS = Status(0, "success", "", "success")

TABLE = (
    # The module's own
    Status(
        0xECE99D7D,
        "badArguments",
        BAD_ARGUMENT,
        "bad arguments: wrong number or type, an int outside 32 bits where one is wanted, a value"
        " that does not fit the parameter's type",
    ),
    Status(0xECE99D32, "outOfMemory", SYSTEM, "out of memory"),
    Status(
        0xECE99FEC,
        "standardException",
        LIBRARY,
        "a standard C++ exception was thrown, by an engine for instance",
    ),
    Status(
        0xECE99F6D,
        "unknownException",
        NOT_FOUND,
        "the dictionary does not know the parameter code or is missing; or something was thrown",
    ),
    Status(0xECE99E48, "contextNotCreated", LIBRARY, "the library gave no context"),
    Status(0xECE99E49, "nodeRefused", LIBRARY, "the node cannot be used"),
    Status(0xECE99EA2, "openRefused", BAD_ARGUMENT, "opening refused: the name is no data source"),
    Status(
        0xECE99EA3,
        "openRefusedByState",
        DAMAGED,
        "opening refused: the data source cannot be used, it is damaged for instance",
    ),
    # The object layer's
    Status(0xEBE81389, "noDataSource", BAD_ARGUMENT, "the object has no data source"),
    Status(0xEBE8138D, "dataSourceAlreadyOpen", BAD_ARGUMENT, "the object has a data source"),
    Status(0xEBE8801A, "parameterUnknown", NOT_FOUND, "the dictionary has no such parameter"),
    # The embedded library's
    Status(0xEBE88100, "unknownContext", BAD_ARGUMENT, "no open data source has this handle"),
    Status(0xEBE88101, "noSourceOpen", BAD_ARGUMENT, "the context has no source open"),
    Status(0xEBE88102, "noBlock", NOT_FOUND, "the source has no block of this class"),
    Status(0xEBE88103, "alreadyOpen", BAD_ARGUMENT, "the context has a source open already"),
    Status(0xEBE88104, "readOnly", READ_ONLY, "the source was not opened for writing"),
    Status(0xEBE88105, "inUse", IN_USE, "another process writes the source"),
    Status(0xEBE88106, "fileNotFound", NOT_FOUND, "no file or input has this name"),
    Status(0xEBE88107, "fileExists", EXISTS, "a file of this name exists; it is never overwritten"),
    Status(
        0xEBE88108,
        "nameRefused",
        BAD_ARGUMENT,
        "a name that is empty, too long or not allowed here",
    ),
    Status(0xEBE88109, "accessDenied", SYSTEM, "the system does not allow the access"),
    Status(0xEBE8810A, "unknownParameter", NOT_FOUND, "the parameter is not in the dictionary"),
    Status(
        0xEBE8810B,
        "unknownClass",
        BAD_ARGUMENT,
        "no such class, or not a class of the kind that is needed here",
    ),
    Status(
        0xEBE8810C,
        "noSuchRecord",
        NOT_FOUND,
        "the class has no record of this number (writing: nor is it the next)",
    ),
    Status(
        0xEBE8810D,
        "noSuchEntry",
        NOT_FOUND,
        "the record has no entry of this number (writing: nor is it the next)",
    ),
    Status(
        0xEBE8810E,
        "sizeRefused",
        BAD_ARGUMENT,
        "a size, count, offset or channel range that does not fit, such as a text that is too long",
    ),
    Status(0xEBE8810F, "nullPointer", LIBRARY, "a null pointer where none may be"),
    Status(0xEBE88110, "notSet", NOT_FOUND, "the parameter has no value there"),
    Status(0xEBE88111, "endOfList", NOT_FOUND, "no further input"),
    Status(
        0xEBE88112,
        "unknownItem",
        BAD_ARGUMENT,
        "unknown item, command, level, option, search kind or source type",
    ),
    Status(
        0xEBE88113,
        "storageFailed",
        SYSTEM,
        "reading or writing the file failed (full disk, for example)",
    ),
    Status(0xEBE88114, "libraryOutOfMemory", SYSTEM, "out of memory"),
    Status(0xEBE88115, "notFound", NOT_FOUND, "no record matches the search"),
    Status(
        0xEBE88116,
        "keyRefused",
        BAD_ARGUMENT,
        "a search key that is negative, infinite or not a number",
    ),
    Status(
        0xEBE88117,
        "blockFull",
        BAD_ARGUMENT,
        "the block or record has 65,535 records or entries already",
    ),
    Status(0xEBE88118, "damaged", DAMAGED, "the file's content does not hold together"),
    Status(
        0xEBE88119, "fileMoved", SYSTEM, "the file was moved, replaced or deleted while it was open"
    ),
    Status(0xEBE8811A, "noHandleLeft", SYSTEM, "no further context can be made"),
    Status(0xEBE8811B, "nodeRefusesContexts", LIBRARY, "the node record refuses contexts"),
    Status(0xEBE8811C, "internalFailure", LIBRARY, "a failure that has no other code"),
    Status(
        0xEBE8811D,
        "tooManyOpen",
        SYSTEM,
        "the process has no file descriptor left: close files, or raise the limit of open files",
    ),
    Status(
        0xEBE8811E,
        "windowsPath",
        BAD_ARGUMENT,
        "a path with a drive letter, which this system has not",
    ),
    # The engine's
    Status(0xE0610001, "badOption", BAD_ARGUMENT, "peak_search: the option word has unknown bits"),
    Status(0xE0610002, "dataSourceRefused", ENGINE, "peak_search: no source has the handle"),
    Status(
        0xE0610003,
        "spectrumUnreadable",
        ENGINE,
        "peak_search: the source has no spectrum, or it cannot be read",
    ),
    Status(0xE0610004, "spectrumEmpty", ENGINE, "peak_search: no channel has a count"),
    Status(
        0xE0610005,
        "noEnergyCalibration",
        ENGINE,
        "peak_search: no energy calibration; write QAR_D_ENERGYCAL or calibrate",
    ),
    Status(
        0xE0610006,
        "noShapeCalibration",
        ENGINE,
        "peak_search: no shape calibration; write QAR_D_SHAPECAL or calibrate",
    ),
    Status(
        0xE0610007,
        "calibrationUnusable",
        ENGINE,
        "peak_search: the calibration gives energies that do not rise, or no widths",
    ),
    Status(
        0xE0610008, "badSetting", ENGINE, "peak_search: a processing setting is out of its range"
    ),
    Status(
        0xE0610009,
        "noNuclides",
        ENGINE,
        "peak_search: identification alone was asked for, but there are no nuclide records",
    ),
    Status(
        0xE061000A, "recordUnreadable", ENGINE, "peak_search: a peak or nuclide record is unusable"
    ),
    Status(
        0xE061000B,
        "resultsNotWritable",
        ENGINE,
        "peak_search: the results cannot be written, into a source opened to read for instance",
    ),
    Status(0xE061000C, "engineOutOfMemory", ENGINE, "peak_search: out of memory"),
    Status(0xE061000D, "engineInternalFailure", ENGINE, "peak_search: no other code fits"),
    Status(
        RANGE_PARTLY_SEARCHED,
        "rangePartlySearched",
        ENGINE,
        "peak_search: done, but the shape calibration has no usable width in a part of the channels,"
        " where no peak was looked for",
    ),
    # The system's
    Status(0xE000007E, "engineMissing", ENGINE, "no such engine library, or one that it needs"),
    Status(0xE000007F, "entryPointMissing", ENGINE, "the engine library has no such entry point"),
    Status(0xE0400199, "libraryFailure", LIBRARY, "the library failed; it has no further code"),
    Status(0xE007000E, "memoryExhausted", SYSTEM, "out of memory"),
    Status(0xE0070057, "invalidArgument", BAD_ARGUMENT, "an argument is invalid"),
    Status(0xE0004005, "unspecifiedFailure", LIBRARY, "an unspecified failure"),
)
_BY_CODE = {status.code: status for status in TABLE}

BAD_ARGUMENTS = 0xECE99D7D
NO_VALUE = frozenset(  # reading: there is nothing at the place
    (0xEBE88102, 0xEBE8810C, 0xEBE8810D, 0xEBE88110)
)

# Whole families, for codes that the table has not: the high bits say where a code comes from.
_RANGES = (
    (0xFFFF0000, 0xE0610000, "engineFailure", ENGINE, "a code of an analysis engine"),
    (0xFFFF0000, 0xEBE80000, "libraryFailure", LIBRARY, "a code of the data-access library"),
    (0xFFFF0000, 0xE0000000, "systemFailure", SYSTEM, "error {number} of the operating system"),
    (0x0FFF0000, 0x0CE90000, "moduleFailure", LIBRARY, "a code of the module"),
)


def unsigned(status: int) -> int:
    """The status as a number from 0 to 0xFFFFFFFF, as it is written in hexadecimal."""
    return status & 0xFFFFFFFF


def describe(status: int) -> Status:
    """What a status says, signed or unsigned: name, family, text. str() makes one line of it.

    Never fails: a code that nobody knows is said to be one.
    """
    code = unsigned(status)
    if code == 0:
        return SUCCESS
    if code in _BY_CODE:
        return _BY_CODE[code]
    for mask, value, name, family, text in _RANGES:
        if code & mask == value:
            return Status(code, name, family, text.format(number=code & 0xFFFF))
    return Status(code, "unknown", LIBRARY, "a code that is not listed")
