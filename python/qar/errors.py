"""Failures as exceptions: one base class and one class for each family of statuses.

`except qar.NotFoundError` catches a failure from which a script can often continue;
`except qar.QarError` catches every failure.
"""

import logging
from typing import Any, Dict, Optional, Type

from . import status as statuses

logger = logging.getLogger("qar")


class QarError(Exception):
    """A failed call.

    status: the code, unsigned (0xEBE88106). text: its meaning. family: one of those of
    qar.status. attempt: the operation that failed. argument: its main argument, or None.
    """

    def __init__(
        self, attempt: str, status: int, argument: Any = None, text: Optional[str] = None
    ) -> None:
        known = statuses.describe(status)
        self.status = known.code
        self.family = known.family
        self.text = known.text if text is None else text
        self.attempt = attempt
        self.argument = argument
        where = attempt if argument is None else f"{attempt} {_quoted(argument)}"
        super().__init__(f"{where}: {self.text} (status 0x{self.status:08X})")

    def __reduce__(self) -> Any:
        return type(self), (self.attempt, self.status, self.argument, self.text)


def _quoted(argument: Any) -> str:
    """Return an argument for a message: a code in hexadecimal, anything else as its repr."""
    is_code = isinstance(argument, int) and argument > 0xFFFF
    return f"0x{argument:X}" if is_code else repr(argument)


class NotFoundError(QarError, LookupError):
    """A file, input, parameter, record, entry or value does not exist."""


class ExistsError(QarError):
    """A file of this name exists; files are never overwritten."""


class ReadOnlyError(QarError):
    """The data source was opened for reading only; open it with mode "r+"."""


class InUseError(QarError):
    """Another process writes the data source."""


class DamagedError(QarError):
    """The content of the file is not consistent."""


class BadArgumentError(QarError, ValueError):
    """An argument or value cannot be used; most are refused before the library is called."""


class EngineError(QarError):
    """An engine failed, or the engine or its entry point is missing."""


class SystemFailureError(QarError):
    """The operating system failed: memory, storage or access rights."""


class LibraryError(QarError):
    """The data-access library failed for another reason."""


FAMILIES: Dict[str, Type[QarError]] = {
    family: globals()[name] for family, name in statuses.EXCEPTIONS.items()
}


def error_for(attempt: str, status: int, argument: Any = None) -> QarError:
    """Return the exception of the family that a status belongs to."""
    return FAMILIES[statuses.describe(status).family](attempt, status, argument)


def check(answer: Any, attempt: str, argument: Any = None) -> Any:
    """Return the result of a function of pyORV3, or None if it returned a status only.

    Raises the exception for a status that is not 0.
    """
    status, result = answer if isinstance(answer, tuple) else (answer, None)
    if status != 0:
        error = error_for(attempt, status, argument)
        logger.debug("%s", error)
        raise error
    return result


def refuse(attempt: str, argument: Any, text: str) -> BadArgumentError:
    """Return the exception for an argument that is refused before the library is called."""
    return BadArgumentError(attempt, statuses.BAD_ARGUMENTS, argument, text)
