"""Many files at once: in this process, in worker processes or on a Dask cluster.

Finished files are recorded in a journal beside the output table. An interrupted batch continues
from it when it is started again with the same settings.
"""

import concurrent.futures
import csv
import io
import os
from typing import (
    Callable,
    Dict,
    Iterable,
    Iterator,
    List,
    NamedTuple,
    Optional,
    Sequence,
    TextIO,
    Tuple,
)

from ..atomic_files import refuse_taken, write_text
from ..display.printable import csv_cell
from ..errors import QarError
from ..formats import FormatError
from .file_analysis import COLUMNS, Analysed, Options, Outcome, Row, outcome, rows_of
from .journal import Journal
from .output import failure_text
from .progress import Progress
from .staging import Staging

_TEXT_COLUMNS = [COLUMNS.index(name) for name in ("file", "spectrum", "nuclide", "unit")]


class Executors(NamedTuple):
    """The processes that analyse the files, and their limits."""

    jobs: int = 1  # processes of this machine
    dask: str = ""  # the address of a Dask scheduler instead, such as tcp://10.0.0.1:8786
    timeout: float = 0.0  # seconds for one file; 0: no limit


class Result(NamedTuple):
    """The results of a batch, in the order of the files."""

    rows: List[Row]
    failures: List[Tuple[str, str]]  # file and reason
    notes: List[Tuple[str, str]]  # file and note
    files: List[str]  # that were created
    analysed: Tuple[Analysed, ...]  # of a batch of one file


def run(
    paths: Sequence[str],
    options: Options,
    table: str = "",
    executors: Executors = Executors(),
    stream: Optional[TextIO] = None,
) -> Result:
    """Analyse files and write a table of their results.

    table: the path of the CSV file; empty: no table. stream: receives the progress messages.

    Raises FileExistsError if the table exists, FormatError if two files would get the same name
    or the journal belongs to other settings, BlockingIOError if another batch writes the table,
    ImportError if Dask is missing, OSError if its scheduler cannot be reached.
    """
    paths = [os.path.abspath(path) for path in paths]
    _refuse_same_names(paths, options)
    refuse_taken(table, options.replace or not table)
    journal = Journal(table, options)
    outcomes: Dict[str, Outcome] = {}
    try:
        refuse_taken(table, options.replace or not table)  # by a batch that has just ended
        todo = [path for path in paths if path not in journal.done]
        progress = Progress(len(paths), len(paths) - len(todo), stream)
        with Staging(options, journal) as staging:
            try:
                for path, result in _outcomes(todo, staging.options(), executors):
                    result = _published(path, result, staging, journal)
                    is_one = len(paths) == 1  # the results of many would fill the memory
                    outcomes[path] = result if is_one else result._replace(analysed=())
                    progress.step(path)
            finally:
                progress.close()
        rows = [row for path in paths for row in journal.done.get(path, [])]
        if table:
            write_text(table, text_of(rows), options.replace)
            journal.remove()
    finally:
        journal.close()
    return _result(paths, rows, outcomes)


def _published(path: str, result: Outcome, staging: Staging, journal: Journal) -> Outcome:
    """Give the files of an outcome their names and record it."""
    if result.failure:
        return result
    try:
        for file in result.files:
            staging.publish(path, file)
    except (OSError, QarError) as error:
        return Outcome(failure=failure_text(error, named=True))
    journal.add(path, rows_of(path, result.analysed))
    return result


def _result(paths: Sequence[str], rows: List[Row], outcomes: Dict[str, Outcome]) -> Result:
    ordered = [(path, outcomes[path]) for path in paths if path in outcomes]
    return Result(
        rows,
        [(path, item.failure) for path, item in ordered if item.failure],
        [(path, note) for path, item in ordered for note in item.notes],
        [file.target for _, item in ordered for file in item.files],
        tuple(analysed for _, item in ordered for analysed in item.analysed),
    )


def _refuse_same_names(paths: Sequence[str], options: Options) -> None:
    """Raise FormatError if the output files of two inputs would have the same name."""
    if not (options.into or options.reports):
        return
    stems: Dict[str, str] = {}
    for path in paths:
        stem = os.path.splitext(os.path.basename(path))[0]
        if stems.setdefault(stem, path) != path:
            raise FormatError(f"{stems[stem]} and {path} would give files of the same name")


def _outcomes(
    paths: Sequence[str], options: Options, executors: Executors
) -> Iterator[Tuple[str, Outcome]]:
    """Yield the outcome of each file as it becomes known."""
    if not paths:
        return
    if executors.dask:
        from . import cluster

        with cluster.Cluster(executors.dask, options) as connected:
            for path, result in _completed(paths, connected.submit):
                if result.failure:
                    connected.refuse_lost()
                yield path, result
    elif executors.jobs == 1 and not executors.timeout:
        for path in paths:
            yield path, outcome(path, options)
    else:
        from . import workers

        jobs = min(executors.jobs, len(paths))
        with workers.Pool(jobs, options, executors.timeout or None) as pool:
            yield from _completed(paths, pool.submit)


def _completed(
    paths: Sequence[str], submit: "Callable[[str], concurrent.futures.Future[Outcome]]"
) -> Iterator[Tuple[str, Outcome]]:
    """Submit all files and yield the outcomes in the order of completion."""
    futures = {submit(path): path for path in paths}
    for future in concurrent.futures.as_completed(futures):
        error = future.exception()
        path = futures.pop(future)
        yield path, future.result() if error is None else Outcome(failure=failure_text(error))


def text_of(rows: Iterable[Row]) -> str:
    """Return the rows as CSV with their headings. No cell starts a formula of a spreadsheet."""
    text = io.StringIO()
    writer = csv.writer(text, lineterminator="\n")
    writer.writerow(COLUMNS)
    for row in rows:
        cells = list(row)
        for index in _TEXT_COLUMNS:
            cells[index] = csv_cell(cells[index])
        writer.writerow(cells)
    return text.getvalue()
