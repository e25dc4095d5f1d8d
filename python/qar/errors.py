"""Failures as exceptions: one base, one class for each family of statuses.

`except qar.NotFoundError` catches what a script can go on from; `except qar.QarError` everything.
"""

import logging
from typing import Any, Dict, Optional, Type

from . import status as statuses

logger = logging.getLogger("qar")


class QarError(Exception):
    """A call that failed.

    status: the code, unsigned (0xEBE88106). text: what it says. family: one of those of
    qar.status. attempt: what was tried. argument: with what; None for nothing in particular.
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
        tried = attempt if argument is None else f"{attempt} {_shown(argument)}"
        super().__init__(f"{tried}: {self.text} (status 0x{self.status:08X})")

    def __reduce__(self) -> Any:
        return type(self), (self.attempt, self.status, self.argument, self.text)


def _shown(argument: Any) -> str:
    """Codes as they are written everywhere, in hexadecimal."""
    is_code = isinstance(argument, int) and argument > 0xFFF
    return f"0x{argument:X}" if is_code else repr(argument)


class NotFoundError(QarError, LookupError):
    """There is no such file, input, parameter, record, entry or value, or nothing was found."""


class ExistsError(QarError):
    """A file of this name exists already; it is never overwritten."""


class ReadOnlyError(QarError):
    """The data source was opened for reading only: open it with mode "r+"."""


class InUseError(QarError):
    """Another process writes the data source."""


class DamagedError(QarError):
    """What the file holds does not hold together."""


class BadArgumentError(QarError, ValueError):
    """An argument or a value that cannot be used; most are found before the library is called."""


class EngineError(QarError):
    """An engine failed, or it or its entry point is missing."""


class SystemFailureError(QarError):
    """The system failed: memory, storage, access rights."""


class LibraryError(QarError):
    """The data-access library failed in another way."""


FAMILIES: Dict[str, Type[QarError]] = {
    family: globals()[name] for family, name in statuses.EXCEPTIONS.items()
}


def error_for(attempt: str, status: int, argument: Any = None) -> QarError:
    """The exception of the family that a failed status belongs to."""
    return FAMILIES[statuses.describe(status).family](attempt, status, argument)


def check(answer: Any, attempt: str, argument: Any = None) -> Any:
    """The result in what a function of pyORV3 returned, None where that is a status alone.

    Raises the exception of a status that is not 0.
    """
    status, result = answer if isinstance(answer, tuple) else (answer, None)
    if status != 0:
        error = error_for(attempt, status, argument)
        logger.debug("%s", error)
        raise error
    return result


def refuse(attempt: str, argument: Any, text: str) -> BadArgumentError:
    """The exception for what is refused before the library is called; to be raised."""
    return BadArgumentError(attempt, statuses.BAD_ARGUMENTS, argument, text)
