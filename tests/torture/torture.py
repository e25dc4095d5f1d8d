"""Shared by the torture tests in Python: codes, folders, arguments, the content of a source."""

import contextlib
import ctypes
import os
import random
import shutil
import signal
import sys
import tempfile

import pyORV3

READ, WRITE, CREATE = 0x1, 0x3, 0x400
MEASUREMENT, NUCLIDES, SPECTRUM, PEAKS, RESULTS = 0x2000, 0x2004, 0x2005, 0x2006, 0x2007
LIVE_TIME, COMMENT = 0x20000011, 0x2000001C
NUCLIDE_NAME, LINE_ENERGY, LINE_YIELD = 0x20040001, 0x20040010, 0x20040011
PEAK_ENERGY, RESULT_NAME = 0x20060001, 0x20070001
IN_USE, NOT_SET, NO_RECORD, NO_ENTRY, NO_BLOCK, NOT_FOUND = (
    0xEBE88105,
    0xEBE88110,
    0xEBE8810C,
    0xEBE8810D,
    0xEBE88102,
    0xEBE88115,
)

# The parameters that the tests write, by class: one value per record, and one value per entry.
PARAMETERS = {
    MEASUREMENT: ([LIVE_TIME, COMMENT], []),
    NUCLIDES: ([NUCLIDE_NAME], [LINE_ENERGY]),
    PEAKS: ([PEAK_ENERGY], []),
    RESULTS: ([RESULT_NAME], []),
}


class Failed(Exception):
    """A requirement of a test is not met."""


def status_of(answer):
    return (answer[0] if isinstance(answer, tuple) else answer) & 0xFFFFFFFF


def ok(answer, call="a call"):
    """Return the result of a call; raise Failed if the call failed."""
    if status_of(answer) != 0:
        raise Failed("%s returns 0x%08X" % (call, status_of(answer)))
    return answer[1] if isinstance(answer, tuple) else None


@contextlib.contextmanager
def opened(path, mode=READ):
    handle = ok(pyORV3.open(path, mode, 1, ""), "opening")
    try:
        yield handle
    finally:
        ok(pyORV3.close(handle, 0), "closing")


def content_of(handle):
    """Return all parameters that the tests write as a string; a value that is not set is None."""

    def value(code, record, entry):
        status, found = pyORV3.getParameter(handle, code, record, entry)
        return ok((status, found), "getParameter") if status_of(status) != NOT_SET else None

    content = {}
    for number, (codes, entry_codes) in PARAMETERS.items():
        content[number] = [
            [value(code, record, 0) for code in codes]
            + [
                [value(code, record, entry) for code in entry_codes]
                for entry in range(1, ok(pyORV3.count(handle, number, record)) + 1)
            ]
            for record in range(1, ok(pyORV3.count(handle, number, 0)) + 1)
        ]
    status, channels = pyORV3.getSpectrum(handle, 0, 0)
    content[SPECTRUM] = list(channels) if status == 0 else None
    return repr(content)


@contextlib.contextmanager
def folder():
    """Create a folder, in memory if the system supports that, and delete it at the end."""
    path = tempfile.mkdtemp(
        prefix="torture-", dir="/dev/shm" if os.path.isdir("/dev/shm") else None
    )
    try:
        yield os.path.realpath(path)
    finally:
        shutil.rmtree(path)


def failure_of(work):
    """Run the work in a process of its own; return its failure, or None if it succeeds.

    A failure is an exception, the signal that ended the process (SIGALRM if it hung), or the report
    of a sanitizer."""
    reports, write_end = os.pipe()
    child = os.fork()
    if child == 0:
        signal.alarm(300)
        try:
            work()
        except BaseException as failure:
            os.write(write_end, repr(failure).encode())
        finally:
            os._exit(0)
    os.close(write_end)
    status = os.waitpid(child, 0)[1]
    with open(reports) as report:
        text = report.read()
    if os.WIFSIGNALED(status):
        return signal.Signals(os.WTERMSIG(status)).name
    return text or (None if status == 0 else "a sanitizer's report")


def arguments(defaults):
    """Return the numbers of the command line, completed by the defaults. The last one is the seed
    and returned as a generator of random numbers."""
    numbers = [int(given) for given in sys.argv[1:]]
    numbers += defaults[len(numbers) :]
    print("seed %d" % numbers[-1], flush=True)
    return numbers[:-1] + [random.Random(numbers[-1])]


def shim():
    """Return the shim that is preloaded into this process (shim.h)."""
    library = ctypes.CDLL(None)
    library.tortureKind.restype = ctypes.c_char_p
    for name in ("tortureDisarm", "tortureCalls", "tortureLiveBytes"):
        getattr(library, name).restype = ctypes.c_long
    library.tortureArm.argtypes = (ctypes.c_int, ctypes.c_long, ctypes.c_long)
    return library
