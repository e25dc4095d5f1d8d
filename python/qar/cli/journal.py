"""The journal of a batch: its finished files and the files it created, beside the output table.

An interrupted batch continues from its journal when it is started again with the same settings.
While a batch runs it holds a lock on its journal, so that no second one writes the same table.
"""

import contextlib
import errno
import hashlib
import json
import os
import sys
from typing import Any, BinaryIO, Dict, List, NamedTuple, Optional

from ..atomic_files import refuse_missing_folder
from ..formats import FormatError
from ..regular_files import open_regular
from .file_analysis import COLUMNS, Options, Row, StagedFile

SUFFIX = ".partial"
_KEY = "qar_batch"
_LOCKED_BYTE = 1 << 30  # on Windows a lock also stops readers of the locked byte

State = List[int]


class Created(NamedTuple):
    """A file that the batch created."""

    input: str
    state: State


class Journal:
    """The journal of one batch. Without a table nothing is stored."""

    def __init__(self, table: str, options: Options) -> None:
        """Open or create the journal of a table.

        Raises FormatError if it belongs to a batch with other settings, BlockingIOError if
        another batch is using it.
        """
        self.done: Dict[str, List[Row]] = {}
        self.created: Dict[str, Created] = {}
        self.staging: List[str] = []  # folders with unfinished files of the interrupted batch
        self._path = table + SUFFIX if table else ""
        self._file: Optional[BinaryIO] = None
        if self._path:
            refuse_missing_folder(table)
            header = json.dumps({_KEY: _digest(options)})
            self._file = _open_locked(self._path, table)
            try:
                self._read(self._file, header)
            except BaseException:
                self._file.close()
                raise

    def _read(self, file: BinaryIO, header: str) -> None:
        content = file.read()
        end = content.rfind(b"\n") + 1
        first, *lines = content[:end].decode("utf-8", "replace").split("\n")
        # A kill may have left a part of the header, or of the last line.
        if first != header and not (not end and header.encode().startswith(content)):
            raise FormatError(
                f"{self._path}: belongs to a batch with other settings; repeat that command or"
                " delete the file"
            )
        file.seek(end)
        file.truncate()
        if not end:
            self._write({_KEY: json.loads(header)[_KEY]})
        for entry in map(_json_object, lines):
            self._take(entry)

    def _take(self, entry: Dict[str, Any]) -> None:
        """Take over one line; an unusable one is ignored, so that its file is analysed again."""
        path, state = entry.get("file"), entry.get("state")
        if isinstance(entry.get("staging"), str):
            self.staging.append(entry["staging"])
        elif not isinstance(path, str) or not isinstance(state, list):
            return
        elif isinstance(entry.get("created"), str):
            self.created[entry["created"]] = Created(path, state)
        elif _are_rows(entry.get("rows")) and state == _state(path)[:2]:
            self.done[path] = entry["rows"]

    def _write(self, entry: Dict[str, Any]) -> None:
        if self._file is not None:
            self._file.write(json.dumps(entry).encode("ascii") + b"\n")
            self._file.flush()

    def add(self, path: str, rows: List[Row]) -> None:
        """Record a finished input file with its rows."""
        self.done[path] = rows
        self._write({"file": path, "state": _state(path)[:2], "rows": rows})

    def add_created(self, path: str, file: StagedFile) -> None:
        """Record a file that is complete and about to get its name."""
        self.created[file.target] = Created(path, _state(file.staged))
        self._write({"created": file.target, "file": path, "state": _state(file.staged)})

    def add_staging(self, folder: str) -> None:
        """Record a folder for unfinished files."""
        self._write({"staging": folder})

    def is_own(self, target: str, path: str = "") -> bool:
        """Return True if the batch created a file, for this input if given, unchanged since."""
        created = self.created.get(target)
        return (
            created is not None and path in ("", created.input) and created.state == _state(target)
        )

    def close(self) -> None:
        """Release the lock. A journal without an entry of use is deleted."""
        if self._file is not None:
            if not self.done and not self.created:
                self.remove()
            else:
                self._file.close()

    def remove(self) -> None:
        """Delete the journal: the batch is finished."""
        if self._file is not None:
            if sys.platform == "win32":  # an open file cannot be deleted there
                self._file.close()
            os.remove(self._path)
            self._file.close()
            self._file = None


def _open_locked(path: str, table: str) -> BinaryIO:
    while True:
        with contextlib.suppress(FileNotFoundError):
            open_regular(path).close()  # refuses a pipe, from which reading would not end
        file = os.fdopen(os.open(path, os.O_RDWR | os.O_CREAT, 0o666), "r+b")
        try:
            _lock(file)
            # The batch that held the lock may have deleted the journal meanwhile.
            if os.path.exists(path) and os.path.samestat(os.fstat(file.fileno()), os.stat(path)):
                return file
        except OSError:
            file.close()
            reason = "another batch is writing this table; wait for its end or choose another name"
            raise BlockingIOError(errno.EAGAIN, reason, table) from None
        file.close()


def _lock(file: BinaryIO) -> None:
    """Lock a file until it is closed. Raises OSError if another process has locked it."""
    if sys.platform == "win32":
        import msvcrt

        file.seek(_LOCKED_BYTE)
        msvcrt.locking(file.fileno(), msvcrt.LK_NBLCK, 1)
        file.seek(0)
    else:
        import fcntl

        fcntl.flock(file.fileno(), fcntl.LOCK_EX | fcntl.LOCK_NB)


def _digest(options: Options) -> str:
    """Return a hash of the settings that decide the results."""
    settings = repr(options._replace(replace=False, replaceable=frozenset(), staging=()))
    return hashlib.sha256(settings.encode("utf-8", "replace")).hexdigest()


def _json_object(line: str) -> Dict[str, Any]:
    """Return the object on a line, empty if there is none."""
    try:
        entry = json.loads(line)
    except ValueError:
        return {}
    return entry if isinstance(entry, dict) else {}


def _are_rows(rows: Any) -> bool:
    return isinstance(rows, list) and all(
        isinstance(row, list) and len(row) == len(COLUMNS) for row in rows
    )


def _state(path: str) -> State:
    """Return the size, time and number of a file, from which a change shows."""
    try:
        status = os.stat(path)
    except OSError:
        return []
    return [status.st_size, status.st_mtime_ns, status.st_ino]
