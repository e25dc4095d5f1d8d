"""An open data source as a resource: opening, saving, closing and its state."""

import os
from typing import List, Optional, TypeVar, Union

import pyORV3

from .enums import AccessMode, ControlCommand, SourceState
from .errors import QarError, check, logger, refuse
from .unicode_links import UnicodeLink, is_unicode

MODES = {
    "r": AccessMode.READ,
    "r+": AccessMode.READ | AccessMode.WRITE,
    "x": AccessMode.CREATE | AccessMode.READ | AccessMode.WRITE,
}
FILE, INPUT = 1, 0  # kinds of sources that a name refers to
Self = TypeVar("Self", bound="OpenSource")


def inputs() -> List[str]:
    """Return the names of the inputs of the suite's environment."""
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
            raise refuse("opening", self.path, f'mode {mode!r}; expected "r", "r+" or "x"')
        self.mode = AccessMode(MODES[mode] if isinstance(mode, str) else mode)
        if not isinstance(self.path, str) or "\0" in self.path:
            raise refuse("opening", self.path, "a name is a string without NUL")
        self._link: Optional[UnicodeLink] = None
        self._open(type_selector)
        logger.info("opened %s", self.path)

    def _open(self, type_selector: int) -> None:
        name, creates = self.path, bool(self.mode & AccessMode.CREATE)
        if type_selector == FILE and not is_unicode(name):
            if creates and not is_unicode(os.path.basename(name)):
                raise refuse("creating", name, "the name is not UTF-8; rename a new file instead")
            self._link = UnicodeLink(name)
            name = self._link.name
        answer = pyORV3.open(name, int(self.mode), type_selector, "")
        try:
            self._handle = check(answer, "opening", self.path)
        except QarError:
            if creates and answer[1]:
                pyORV3.close(answer[1], 0)  # a failed creation leaves its handle
            self._remove_link()
            raise

    def _remove_link(self) -> None:
        if self._link is not None:
            self._link.remove()
            self._link = None

    def __enter__(self: Self) -> Self:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    @property
    def handle(self) -> int:
        """The handle for the functions of pyORV3.

        Raises BadArgumentError if the source is closed.
        """
        if self._handle == 0:
            raise refuse("using", self.path, "the data source is closed")
        return self._handle

    @property
    def closed(self) -> bool:
        return self._handle == 0

    def close(self) -> None:
        """Save and close the source; do nothing if it is closed already.

        After a failure the source stays open.
        """
        if self._handle:
            check(pyORV3.close(self._handle, 0), "closing", self.path)
            self._handle = 0
            self._remove_link()
            logger.info("closed %s", self.path)

    def flush(self) -> None:
        """Save all changes to the disk, where they survive a crash or a power cut."""
        check(pyORV3.flush(self.handle), "saving", self.path)

    def compact(self) -> None:
        """Save all changes and make the file as small as possible."""
        check(pyORV3.control(self.handle, ControlCommand.COMPACT, 0), "compacting", self.path)

    def verify(self) -> None:
        """Check the whole file. Raises DamagedError if it is not sound."""
        check(pyORV3.control(self.handle, ControlCommand.CHECK, 0), "checking", self.path)

    @property
    def state(self) -> SourceState:
        return SourceState(check(pyORV3.getStatus(self.handle), "reading the state of", self.path))
