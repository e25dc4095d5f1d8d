"""Many files at once: in processes of this machine or on a Dask cluster, resumable.

Results are kept in a journal beside the table to be made, a line for each file that is done. A run
that is interrupted goes on from there when it is started again with the same settings.
"""

import concurrent.futures
import csv
import hashlib
import io
import json
import os
import sys
from typing import (
    Any,
    Callable,
    Dict,
    Iterable,
    Iterator,
    List,
    NamedTuple,
    Sequence,
    TextIO,
    Tuple,
)

from .. import optional_imports
from ..atomic_files import Path, write_text
from ..formats import FormatError
from .file_analysis import COLUMNS, Options, Outcome, Row, failure_text, outcome

FOLDER_SUFFIXES = (".qar", ".spe", ".n42")
"""Which files of a folder are analysed; others only where they are named."""

_JOURNAL_SUFFIX = ".partial"
_JOURNAL_KEY = "qar_batch"


class Result(NamedTuple):
    """What became of a batch."""

    rows: List[Row]  # of COLUMNS, in the order of the files
    failures: List[Tuple[str, str]]  # file and reason


def files_of(paths: Iterable[Path]) -> List[str]:
    """The files that are meant: a folder means those in it, by their names; each file once."""
    found: Dict[str, None] = {}
    for path in [os.fspath(path) for path in paths]:
        if os.path.isdir(path):
            names = sorted(os.listdir(path))
            inside = (n for n in names if n.lower().endswith(FOLDER_SUFFIXES) and n[0] != ".")
            found.update((os.path.join(path, name), None) for name in inside)
        else:
            found[path] = None
    return list(found)


# ---- The journal -------------------------------------------------------------------------------


class Journal:
    """What is done already, in a file beside the table; without a name it keeps nothing."""

    def __init__(self, table: str, options: Options) -> None:
        """FormatError: the journal there is of a run with other settings."""
        self.path = table + _JOURNAL_SUFFIX if table else ""
        self.done: Dict[str, List[Row]] = {}
        self.goes_on = False  # whether there was one
        self._file: Any = None
        if not self.path:
            return
        settings = repr(options._replace(replace=False))
        digest = hashlib.sha256(settings.encode("utf-8", "replace")).hexdigest()
        if os.path.exists(self.path):
            self._read(digest)
            self.goes_on = True
        # What a kill left of a last line is overwritten, so that the next one begins anew.
        lines = [json.dumps({_JOURNAL_KEY: digest})]
        lines += [self._line(path, rows) for path, rows in self.done.items()]
        write_text(self.path, "\n".join(lines) + "\n", replace=True)
        self._file = open(self.path, "a", encoding="utf-8")

    def _read(self, digest: str) -> None:
        with open(self.path, encoding="utf-8", errors="replace") as file:
            entries = list(filter(None, map(_json_object, file)))
        if not entries or entries[0].get(_JOURNAL_KEY) != digest:
            raise FormatError(
                f"{self.path} is of a run with other settings: finish that one or remove it"
            )
        for entry in entries[1:]:
            path, rows = entry.get("file"), entry.get("rows")
            if not isinstance(path, str) or not isinstance(rows, list) or not _are_rows(rows):
                continue
            if entry.get("state") == _state(path):
                self.done[path] = rows

    @staticmethod
    def _line(path: str, rows: List[Row]) -> str:
        return json.dumps({"file": path, "state": _state(path), "rows": rows})

    def add(self, path: str, rows: List[Row]) -> None:
        self.done[path] = rows
        if self._file is not None:
            self._file.write(self._line(path, rows) + "\n")
            self._file.flush()

    def close(self) -> None:
        if self._file is not None:
            self._file.close()

    def remove(self) -> None:
        self.close()
        if self.path:
            os.remove(self.path)


def _json_object(line: str) -> Dict[str, Any]:
    """The object on a line, empty where a kill left a part of it."""
    try:
        found = json.loads(line)
    except ValueError:
        return {}
    return found if isinstance(found, dict) else {}


def _are_rows(rows: List[Any]) -> bool:
    return all(isinstance(row, list) and len(row) == len(COLUMNS) for row in rows)


def _state(path: str) -> List[int]:
    """Tells a file that has changed since: its size and time."""
    try:
        found = os.stat(path)
    except OSError:
        return []
    return [found.st_size, found.st_mtime_ns]


# ---- Progress ----------------------------------------------------------------------------------


class Progress:
    """On a terminal a bar of tqdm where that is installed, else a line for each file."""

    def __init__(self, total: int, done: int, stream: TextIO) -> None:
        self._total, self._done, self._stream = total, done, stream
        self._bar: Any = None
        tqdm = optional_imports.optional("tqdm")
        if tqdm is not None and stream.isatty():
            self._bar = tqdm.tqdm(total=total, initial=done, unit="file", file=stream)

    def step(self, path: str) -> None:
        self._done += 1
        if self._bar is not None:
            self._bar.update()
        else:
            print(f"{self._done}/{self._total} {path}", file=self._stream, flush=True)

    def close(self) -> None:
        if self._bar is not None:
            self._bar.close()


# ---- Running -----------------------------------------------------------------------------------


def run(
    paths: Sequence[str],
    options: Options,
    table: str = "",
    jobs: int = 1,
    dask: str = "",
    stream: TextIO = sys.stderr,
) -> Result:
    """Analyses the files; returns the rows and the failures, in the order of the files.

    table: the CSV file to be made, beside which the journal lies until it is; empty: none. jobs:
    processes of this machine. dask: the address of a scheduler instead, such as
    tcp://10.0.0.1:8786, whose workers must see the files under the same names; ImportError:
    distributed is missing; OSError: no scheduler answers, or the cluster went away meanwhile.
    """
    paths = [os.path.abspath(path) for path in paths]
    _refuse_same_names(paths, options)
    journal = Journal(table, options)
    # What stands in the folders by now was made by the run that was interrupted.
    options = options._replace(replace=options.replace or journal.goes_on)
    todo = [path for path in paths if path not in journal.done]
    progress = Progress(len(paths), len(paths) - len(todo), stream)
    failures: Dict[str, str] = {}
    try:
        for path, found in _outcomes(todo, options, jobs, dask):
            if found.failure:
                failures[path] = found.failure
            else:
                journal.add(path, found.rows)
            progress.step(path)
    except BaseException:
        if not journal.done:
            journal.remove()
        raise
    finally:
        progress.close()
        journal.close()
    rows = [row for path in paths for row in journal.done.get(path, [])]
    if table:
        write_text(table, text_of(rows), replace=True)
        journal.remove()
    return Result(rows, [(path, failures[path]) for path in paths if path in failures])


def _refuse_same_names(paths: Sequence[str], options: Options) -> None:
    """Two files may not become one of the same name."""
    if not (options.into or options.reports):
        return
    stems: Dict[str, str] = {}
    for path in paths:
        stem = os.path.splitext(os.path.basename(path))[0]
        if stems.setdefault(stem, path) != path:
            raise FormatError(f"{stems[stem]} and {path} would give files of the same name")


def _outcomes(
    paths: Sequence[str], options: Options, jobs: int, dask: str
) -> Iterator[Tuple[str, Outcome]]:
    """What becomes of each file, as it becomes known."""
    if not paths:
        return
    if dask:
        from .cluster import outcomes

        yield from outcomes(paths, options, dask)
    elif jobs == 1:
        for path in paths:
            yield path, outcome(path, options)
    else:
        from . import workers

        with workers.Pool(min(jobs, len(paths)), options) as pool:
            yield from completed(paths, pool.submit)


def completed(
    paths: Sequence[str], submit: "Callable[[str], concurrent.futures.Future[Outcome]]"
) -> Iterator[Tuple[str, Outcome]]:
    """Hands all files out and gives the outcomes as they come."""
    futures = {submit(path): path for path in paths}
    for future in concurrent.futures.as_completed(futures):
        error = future.exception()
        path = futures.pop(future)
        yield path, Outcome([], failure_text(error)) if error is not None else future.result()


def text_of(rows: Iterable[Row]) -> str:
    """The rows as CSV with their headings."""
    text = io.StringIO()
    writer = csv.writer(text, lineterminator="\n")
    writer.writerow(COLUMNS)
    writer.writerows(rows)
    return text.getvalue()
