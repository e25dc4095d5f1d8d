"""What the torture tests in Python share: a measurement that follows from one number, folders."""

import contextlib
import ctypes
import os
import random
import shutil
import sys
import tempfile

import pyORV3

READ, WRITE, CREATE = 0x1, 0x3, 0x400
MEASUREMENT, NUCLIDES, SPECTRUM, PEAKS, RESULTS, GEOMETRY = (
    0x2000, 0x2004, 0x2005, 0x2006, 0x2007, 0x4005)
LIVE_TIME, COMMENT, CHANNELS = 0x20000011, 0x2000001C, 0x20000007
NUCLIDE_NAME, LINE_ENERGY, LINE_YIELD, PEAK_ENERGY, RESULT_NAME = (
    0x20040001, 0x20040010, 0x20040011, 0x20060001, 0x20070001)
IN_USE, DAMAGED = 0xEBE88105, 0xECE99EA3


class Failed(Exception):
    """What must not be."""


def status_of(answer):
    return (answer[0] if isinstance(answer, tuple) else answer) & 0xFFFFFFFF


def ok(answer, what=""):
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


@contextlib.contextmanager
def folder():
    """A folder that goes in the end; in memory where the system has that."""
    path = tempfile.mkdtemp(prefix="torture-", dir="/dev/shm" if os.path.isdir("/dev/shm") else None)
    try:
        yield os.path.realpath(path)
    finally:
        shutil.rmtree(path)


def arguments(defaults, description):
    """The numbers of the command line in the place of the defaults, and a generator of random
    numbers from the last of them, the seed."""
    if sys.argv[1:2] == ["--help"]:
        sys.exit(description)
    numbers = [int(given) for given in sys.argv[1:]]
    numbers += defaults[len(numbers):]
    print("%s: seed %d" % (os.path.basename(sys.argv[0]), numbers[-1]), flush=True)
    return numbers[:-1] + [random.Random(numbers[-1])]


def shim():
    """The shim that this process runs under (shim.h)."""
    library = ctypes.CDLL(None)
    library.tortureKind.restype = ctypes.c_char_p
    for name in ("tortureDisarm", "tortureCalls", "tortureLiveBytes"):
        getattr(library, name).restype = ctypes.c_long
    library.tortureArm.argtypes = (ctypes.c_int, ctypes.c_long, ctypes.c_long)
    return library


# ---- Everything that a source holds ----------------------------------------------------------------

def records_of(handle, class_number, code, entry_code=None):
    """The values of a parameter, one for each record, with those of its entries."""
    records = []
    for record in range(1, ok(pyORV3.count(handle, class_number, 0), "count") + 1):
        entries = ok(pyORV3.count(handle, class_number, record), "count") if entry_code else 0
        codes = [(code, 0)] + [(entry_code, entry) for entry in range(1, entries + 1)]
        values = [pyORV3.getParameter(handle, number, record, entry) for number, entry in codes]
        records.append([value for status, value in values])
    return records


def content_of(handle):
    """All that the tests write, for comparison."""
    return {
        "measurement": [pyORV3.getParameter(handle, code, 1, 0)[1] for code in (LIVE_TIME, COMMENT)],
        "nuclides": records_of(handle, NUCLIDES, NUCLIDE_NAME, LINE_ENERGY),
        "peaks": records_of(handle, PEAKS, PEAK_ENERGY),
        "spectrum": pyORV3.getSpectrum(handle, 0, 0)[1],
    }
