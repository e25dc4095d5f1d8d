"""The recording double of the suite, for tests.

Values are ints, bytes for strings and buffers, and None for a null pointer. The outputs of a reply have
the names of the functions in tests/double/*.cpp.
"""

import contextlib
import struct
import unittest

import orv_double
import pyORV3

FOR_EVER = -1

BAD_ARGUMENTS = -320234115  # 0xECE99D7D
OUT_OF_MEMORY = -320234190  # 0xECE99D32
STANDARD_EXCEPTION = -320233492  # 0xECE99FEC
UNKNOWN_EXCEPTION = -320233619  # 0xECE99F6D


def signed(status):
    """Return a 32-bit status as the methods do."""
    return (status & 0xFFFFFFFF ^ 0x80000000) - 0x80000000


# The status for a failure code of the library.
FAILURE, FAILED = 0x270010, signed(0xEBE80010)


class NoNumber:
    """An object whose conversion to an integer fails."""

    def __index__(self):
        raise RuntimeError("no number")

    __float__ = __index__


def answer(function, result=0, throw="", times=1, when=None, **outputs):
    """Set the reply to the next calls of a function; throw: a C++ type to throw."""
    orv_double.answer(function, result, throw, times, when or {}, outputs)


def arguments(function):
    """Return the arguments, by name, of each call of a function."""
    return [values for name, values in orv_double.calls() if name == function]


def calls():
    """Return every call as (function, argument, ...)."""
    return [(function, *values.values()) for function, values in orv_double.calls()]


def calls_of_library():
    """Return every call except those of the dictionary."""
    return [call for call in calls() if not call[0].startswith("pqar_")]


def set_channels(channels):
    """Set the spectrum of SOrvGetSpectrum, in parts of 2048 channels."""
    for start in range(0, len(channels), 2048):
        piece = channels[start : start + 2048]
        content = struct.pack("<%di" % len(piece), *piece)
        when = {"firstChannel": start + 1}
        answer("SOrvGetSpectrum", when=when, times=FOR_EVER, channels=content)


class TestCase(unittest.TestCase):
    """A test with a new double, which fails if an expected call is missing."""

    def setUp(self):
        orv_double.reset()
        self.addCleanup(lambda: self.assertEqual(orv_double.unused_answers(), []))

    @contextlib.contextmanager
    def case(self, *row):
        """Run one row of a table of cases: a subtest with a new double."""
        with self.subTest(row=row):
            orv_double.reset()
            yield
            self.assertEqual(orv_double.unused_answers(), [])

    def check(self, method, passed, result, expected_calls):
        """Call a method; compare its result and every call that it makes."""
        self.assertEqual(getattr(pyORV3, method)(*passed), result)
        self.assertEqual(calls(), expected_calls)
