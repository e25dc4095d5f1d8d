"""Worker processes of this machine, each of which analyses one file at a time.

A worker reads the next file from a pipe and writes the outcome to another. It ends when its pipe
is closed, so none outlives the process that started it. A worker that dies or hangs costs only
its file and is replaced.
"""

import concurrent.futures
import os
import pickle
import subprocess
import sys
import threading
import time
from typing import Any, List, Optional

import pyORV3

from ..scratch import scratch_folder
from .file_analysis import Options, Outcome, outcome
from .termination import Terminated, raised_signals

GRACE_SECONDS = 2.0  # for a worker to finish a save and delete its temporary files

# Isolated (-I), so that neither the current directory nor PYTHONPATH is searched for modules.
_BOOT = "import sys; sys.path[:] = sys.argv[1:]; from qar.cli.workers import main; main()"


class Pool:
    """A number of workers. Leaving the `with` statement ends them."""

    def __init__(self, size: int, options: Options, timeout: Optional[float] = None) -> None:
        """timeout: seconds that a worker may take for one file."""
        self._threads = concurrent.futures.ThreadPoolExecutor(size)
        self._options, self._timeout = options, timeout
        self._own = threading.local()
        self._workers: List[_Worker] = []
        self._stopping = False
        self._scratch = scratch_folder()  # temporary files of a worker that is killed lie there

    def __enter__(self) -> "Pool":
        return self

    def __exit__(self, kind: Any, *_: object) -> None:
        self._stopping = True
        for worker in self._workers:
            worker.terminate()
        deadline = time.monotonic() + (GRACE_SECONDS if kind is not None else 0.0)
        for worker in self._workers:
            worker.kill(max(0.0, deadline - time.monotonic()))
        self._threads.shutdown()
        self._scratch.cleanup()

    def submit(self, path: str) -> "concurrent.futures.Future[Outcome]":
        return self._threads.submit(self._run, path)

    def _run(self, path: str) -> Outcome:
        if self._stopping:
            return Outcome(failure="not analysed")
        worker = getattr(self._own, "worker", None)
        if worker is None:
            worker = self._own.worker = _Worker(self._options, self._scratch.name)
            self._workers.append(worker)
        if self._stopping:  # it was created while the pool was being left
            worker.kill(0.0)
        try:
            return worker.run(path, self._timeout)
        except (EOFError, OSError, pickle.UnpicklingError):
            self._own.worker = None
            return Outcome(failure=worker.end())


class _Worker:
    """One process and the pipes to it."""

    def __init__(self, options: Options, scratch: str) -> None:
        self._process = subprocess.Popen(
            [sys.executable, "-I", "-c", _BOOT, *_module_path()],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            env={**os.environ, "TMPDIR": scratch},
        )
        self._timed_out: Optional[float] = None
        self._send(options)

    def _send(self, item: Any) -> None:
        assert self._process.stdin is not None
        pickle.dump(item, self._process.stdin)
        self._process.stdin.flush()

    def run(self, path: str, timeout: Optional[float]) -> Outcome:
        timer = threading.Timer(timeout or 0.0, self._time_out, (timeout,))
        if timeout is not None:
            timer.start()
        try:
            self._send(path)
            assert self._process.stdout is not None
            result = pickle.load(self._process.stdout)
        finally:
            timer.cancel()
        assert isinstance(result, Outcome)
        return result

    def _time_out(self, timeout: float) -> None:
        self._timed_out = timeout
        self._process.kill()

    def end(self) -> str:
        """Wait for a process that has died; return the reason."""
        self._close()
        status = self._process.wait()
        if self._timed_out is not None:
            return f"stopped after {self._timed_out:g} s; --timeout sets this limit"
        reason = f"signal {-status}" if status < 0 else f"exit code {status}"
        return f"the process that analysed it died ({reason})"

    def terminate(self) -> None:
        self._process.terminate()

    def kill(self, grace: float) -> None:
        """End the process, at once or if it has not ended after some seconds."""
        try:
            self._process.wait(grace)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()
        self._close()

    def _close(self) -> None:
        for pipe in (self._process.stdin, self._process.stdout):
            try:
                if pipe is not None:
                    pipe.close()
            except OSError:
                pass  # unsent data of a process that no longer exists


def _module_path() -> List[str]:
    """Return the folders of modules of this process without the current directory."""
    package = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    needed = [package, os.path.dirname(os.path.abspath(pyORV3.__file__))]
    here = os.path.realpath(os.getcwd())
    others = [path for path in sys.path if path and os.path.realpath(path) != here]
    return needed + [path for path in others if path not in needed]


def main() -> None:
    """Run the loop of a worker process."""
    try:
        with raised_signals():
            _work()
    except (KeyboardInterrupt, BrokenPipeError, Terminated):
        os._exit(1)


def _work() -> None:
    # Standard output becomes standard error, so that prints cannot corrupt the pipe.
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
