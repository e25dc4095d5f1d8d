"""An open data source as a resource: opening, saving, closing, its state."""

import os
from typing import List, TypeVar, Union

import pyORV3

from .enums import AccessMode, ControlCommand, SourceState
from .errors import QarError, check, logger, refuse

MODES = {
    "r": AccessMode.READ,
    "r+": AccessMode.READ | AccessMode.WRITE,
    "x": AccessMode.CREATE | AccessMode.READ | AccessMode.WRITE,
}
FILE, INPUT = 1, 0  # what the name of a source names
Self = TypeVar("Self", bound="OpenSource")


def inputs() -> List[str]:
    """The names of the inputs of the suite's environment."""
    names: str = check(pyORV3.enumerateDefinitions(), "listing the inputs")
    return names.split(",") if names else []


class OpenSource:
    """Owns the handle of a data source until it is closed."""

    def __init__(
        self,
        path: Union[str, "os.PathLike[str]"],
        mode: Union[str, int] = "r",
        type_selector: int = FILE,
    ) -> None:
        self.path = os.fspath(path)
        self._handle = 0
        if isinstance(mode, str) and mode not in MODES:
            raise refuse("opening", self.path, f'mode {mode!r}; known are "r", "r+" and "x"')
        self.mode = AccessMode(MODES[mode] if isinstance(mode, str) else mode)
        if not isinstance(self.path, str) or "\0" in self.path:
            raise refuse("opening", self.path, "a name is a text without NUL")
        answer = pyORV3.open(self.path, int(self.mode), type_selector, "")
        try:
            self._handle = check(answer, "opening", self.path)
        except QarError:
            if self.mode & AccessMode.CREATE and answer[1]:
                pyORV3.close(answer[1], 0)  # a failed creation leaves its handle
            raise
        logger.info("opened %s", self.path)

    def __enter__(self: Self) -> Self:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    @property
    def handle(self) -> int:
        """What the functions of pyORV3 take. BadArgumentError: the source is closed."""
        if self._handle == 0:
            raise refuse("using", self.path, "the data source is closed")
        return self._handle

    @property
    def closed(self) -> bool:
        return self._handle == 0

    def close(self) -> None:
        """Saves and closes; a second time does nothing. After a failure the source stays open."""
        if self._handle:
            check(pyORV3.close(self._handle, 0), "closing", self.path)
            self._handle = 0
            logger.info("closed %s", self.path)

    def flush(self) -> None:
        """Saves: what was written is on the disk afterwards, whatever happens to the process."""
        check(pyORV3.flush(self.handle), "saving", self.path)

    def compact(self) -> None:
        """Saves and makes the file as small as possible."""
        check(pyORV3.control(self.handle, ControlCommand.COMPACT, 0), "compacting", self.path)

    def verify(self) -> None:
        """Checks the file; DamagedError where it does not hold together."""
        check(pyORV3.control(self.handle, ControlCommand.CHECK, 0), "checking", self.path)

    @property
    def state(self) -> SourceState:
        return SourceState(
            check(pyORV3.getStatus(self.handle), "asking for the state of", self.path)
        )
