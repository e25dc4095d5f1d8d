"""SIGTERM and SIGHUP as exceptions, so that unfinished files are deleted before the end."""

import contextlib
import os
import signal
import threading
from typing import Any, Iterator

_NAMES = ("SIGTERM", "SIGHUP")  # Windows has only the first


class Terminated(BaseException):
    """The process was asked to end by a signal."""

    def __init__(self, number: int) -> None:
        super().__init__(number)
        self.number = number

    def end_process(self) -> None:
        """End the process as the signal would have done."""
        signal.signal(self.number, signal.SIG_DFL)
        os.kill(os.getpid(), self.number)


@contextlib.contextmanager
def raised_signals() -> Iterator[None]:
    """Raise Terminated on SIGTERM and SIGHUP; an ignored signal (nohup) stays ignored."""
    if threading.current_thread() is not threading.main_thread():
        yield
        return
    numbers = [getattr(signal, name) for name in _NAMES if hasattr(signal, name)]
    old = {number: signal.getsignal(number) for number in numbers}
    handled = [number for number in numbers if old[number] == signal.SIG_DFL]

    def terminate(number: int, _: Any) -> None:
        for each in handled:  # a second signal must not interrupt the deletion of files
            signal.signal(each, signal.SIG_IGN)
        raise Terminated(number)

    for number in handled:
        signal.signal(number, terminate)
    try:
        yield
    finally:
        for number in handled:
            signal.signal(number, signal.SIG_DFL)
