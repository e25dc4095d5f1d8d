"""What the torture tests in Python share: codes, folders, the command line, a source's content."""

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

# The parameters that the tests write, by class: those of a record, those of its entries.
PARAMETERS = {
    MEASUREMENT: ([LIVE_TIME, COMMENT], []),
    NUCLIDES: ([NUCLIDE_NAME], [LINE_ENERGY]),
    PEAKS: ([PEAK_ENERGY], []),
    RESULTS: ([RESULT_NAME], []),
}


class Failed(Exception):
    """What must not be."""


def status_of(answer):
    return (answer[0] if isinstance(answer, tuple) else answer) & 0xFFFFFFFF


def ok(answer, what="a call"):
    """The result of a call that must succeed."""
    if status_of(answer) != 0:
        raise Failed("%s gives 0x%08X" % (what, status_of(answer)))
    return answer[1] if isinstance(answer, tuple) else None


@contextlib.contextmanager
def opened(path, mode=READ):
    handle = ok(pyORV3.open(path, mode, 1, ""), "opening")
    try:
        yield handle
    finally:
        ok(pyORV3.close(handle, 0), "closing")


def content_of(handle):
    """All that the tests write, as text; None stands for a value that is not set."""

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
    """A folder that goes in the end; in memory where the system has that."""
    path = tempfile.mkdtemp(
        prefix="torture-", dir="/dev/shm" if os.path.isdir("/dev/shm") else None
    )
    try:
        yield os.path.realpath(path)
    finally:
        shutil.rmtree(path)


def failure_of(work):
    """Run the work in a process of its own and return its failure: the exception, the signal that
    ended it (SIGALRM: it hung), or the report of a sanitizer. None after a success."""
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
    """The numbers of the command line in the place of the defaults, the last of them, the seed, as
    a generator of random numbers."""
    numbers = [int(given) for given in sys.argv[1:]]
    numbers += defaults[len(numbers) :]
    print("seed %d" % numbers[-1], flush=True)
    return numbers[:-1] + [random.Random(numbers[-1])]


def shim():
    """The shim that this process runs under (shim.h)."""
    library = ctypes.CDLL(None)
    library.tortureKind.restype = ctypes.c_char_p
    for name in ("tortureDisarm", "tortureCalls", "tortureLiveBytes"):
        getattr(library, name).restype = ctypes.c_long
    library.tortureArm.argtypes = (ctypes.c_int, ctypes.c_long, ctypes.c_long)
    return library
