"""Processes of this machine that analyse files, each one file at a time.

A worker is a Python process of its own that reads from a pipe which file comes next and writes
what became of it to another. It ends when its pipe does, so none outlives the process that began
it. One that dies, of an engine that crashed for instance, costs the file it had and is replaced.
"""

import concurrent.futures
import os
import pickle
import subprocess
import sys
import threading
from typing import Any, List

import pyORV3

from .file_analysis import Options, Outcome, outcome


class Pool:
    """A number of workers. Leaving the `with` statement ends them."""

    def __init__(self, size: int, options: Options) -> None:
        self._threads = concurrent.futures.ThreadPoolExecutor(size)
        self._options = options
        self._own = threading.local()
        self._workers: List[_Worker] = []
        self._stopping = False

    def __enter__(self) -> "Pool":
        return self

    def __exit__(self, *_: object) -> None:
        self._stopping = True
        for worker in self._workers:
            worker.kill()
        self._threads.shutdown()

    def submit(self, path: str) -> "concurrent.futures.Future[Outcome]":
        return self._threads.submit(self._run, path)

    def _run(self, path: str) -> Outcome:
        if self._stopping:
            return Outcome([], "not done")
        worker = getattr(self._own, "worker", None)
        if worker is None:
            worker = self._own.worker = _Worker(self._options)
            self._workers.append(worker)
        try:
            return worker.run(path)
        except (EOFError, OSError):
            self._own.worker = None
            return Outcome([], f"the process that analysed it died ({worker.end()})")


class _Worker:
    """One process and the pipes to it."""

    def __init__(self, options: Options) -> None:
        package = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
        folders = [os.path.dirname(package), os.path.dirname(os.path.abspath(pyORV3.__file__))]
        path = os.pathsep.join(folders + [os.environ.get("PYTHONPATH", "")]).rstrip(os.pathsep)
        self._process = subprocess.Popen(
            [sys.executable, "-m", "qar.cli.workers"],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            env={**os.environ, "PYTHONPATH": path},
        )
        self._send(options)

    def _send(self, item: Any) -> None:
        assert self._process.stdin is not None
        pickle.dump(item, self._process.stdin)
        self._process.stdin.flush()

    def run(self, path: str) -> Outcome:
        self._send(path)
        assert self._process.stdout is not None
        found = pickle.load(self._process.stdout)
        assert isinstance(found, Outcome)
        return found

    def end(self) -> str:
        """Waits for a process that has died; says how it ended."""
        self._close()
        status = self._process.wait()
        return f"signal {-status}" if status < 0 else f"exit code {status}"

    def kill(self) -> None:
        self._process.kill()
        self._process.wait()
        self._close()

    def _close(self) -> None:
        for pipe in (self._process.stdin, self._process.stdout):
            try:
                if pipe is not None:
                    pipe.close()
            except OSError:
                pass  # what it still had in it goes to nobody


def work() -> None:
    """What a worker does. Whatever else writes to standard output cannot get between."""
    answers = os.fdopen(os.dup(1), "wb")
    os.dup2(2, 1)
    tasks = sys.stdin.buffer
    options = pickle.load(tasks)
    while True:
        try:
            path = pickle.load(tasks)
        except EOFError:
            return
        pickle.dump(outcome(path, options), answers)
        answers.flush()


if __name__ == "__main__":
    try:
        work()
    except (KeyboardInterrupt, BrokenPipeError):
        os._exit(1)
