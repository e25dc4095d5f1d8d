"""Progress of a batch on standard error."""

from typing import Any, Optional, TextIO

from .. import optional_imports
from ..display.printable import printable


class Progress:
    """A bar if the stream is a terminal and tqdm is installed, else one line for each file."""

    def __init__(self, total: int, done: int, stream: Optional[TextIO]) -> None:
        self._total, self._done, self._stream = total, done, stream
        self._bar: Any = None
        tqdm = optional_imports.optional("tqdm")
        if stream is not None and tqdm is not None and stream.isatty():
            self._bar = tqdm.tqdm(total=total, initial=done, unit="file", file=stream)

    def step(self, path: str) -> None:
        self._done += 1
        if self._bar is not None:
            self._bar.update()
        elif self._stream is not None:
            line = printable(f"{self._done}/{self._total} {path}")
            print(line, file=self._stream, flush=True)

    def close(self) -> None:
        if self._bar is not None:
            self._bar.close()
