"""What every method has in common: the method table, argument parsing, references."""

import sys
import unittest

import double
import pyORV3

# In slot order: name, one letter for each argument (as the argument parser names its units), and
# what a refused call returns besides its status (NOTHING: the status alone).
NOTHING = object()
METHODS = [
    ("open", "slls", 0),
    ("close", "ll", NOTHING),
    ("getIsDirty", "l", NOTHING),
    ("setIsDirty", "l", NOTHING),
    ("getIsOpen", "l", NOTHING),
    ("flush", "l", NOTHING),
    ("createBlock", "lll", NOTHING),
    ("deleteBlock", "ll", NOTHING),
    ("delete", "llll", NOTHING),
    ("deleteLevel", "ll", NOTHING),
    ("insert", "llll", NOTHING),
    ("count", "lll", 0),
    ("copyTo", "lll", NOTHING),
    ("moveRecordsTo", "lllll", NOTHING),
    ("getParameterMetaData", "lis", 0),
    ("findNuclideByEnergy", "lffl", 0),
    ("findNuclideByName", "lsl", 0),
    ("getParameter", "llll", 0),
    ("setParameter", "llOll", NOTHING),
    ("getSpectrum", "lll", (0,)),
    ("setSpectrum", "lOll", NOTHING),
    ("executeNativeEngine", "ssll", NOTHING),
    ("enumerateDefinitions", None, ""),
    ("control", "lll", NOTHING),
    ("getStatus", "l", 0),
    ("copyAnalysisSequenceTo", "ll", NOTHING),
    ("reverify", "l", NOTHING),
]
PARSING_METHODS = [method for method in METHODS if method[1] is not None]


class NoNumber:
    """A number until it is asked for its value."""

    def __index__(self):
        raise RuntimeError("no number")

    __float__ = __index__


GOOD = {"l": 70000, "i": 70000, "f": 1.5, "s": "text", "O": ()}
NO_INTEGERS = ["5", b"5", 1.5, None, 2**31, -(2**31) - 1, 2**80, NoNumber()]
BAD = {
    "l": NO_INTEGERS,
    "i": NO_INTEGERS,
    "f": ["1.5", None, NoNumber()],
    "s": [5, b"text", None, "te\0xt", "\ud800"],
    "O": [],
}


def good_arguments(units):
    return tuple(GOOD[unit] for unit in units)


def bad_argument_lists(units):
    good = good_arguments(units)
    yield ()
    yield good[:-1]
    yield good + (0,)
    for position, unit in enumerate(units):
        for bad in BAD[unit]:
            yield good[:position] + (bad,) + good[position + 1 :]


class MethodTable(unittest.TestCase):
    def test_27_functions_in_slot_order(self):
        names = [name for name in vars(pyORV3) if not name.startswith("__")]
        self.assertEqual(names, [name for name, _, _ in METHODS])

    def test_no_documentation(self):
        self.assertIsNone(pyORV3.__doc__)
        for name, _, _ in METHODS:
            self.assertIsNone(getattr(pyORV3, name).__doc__, name)


class ArgumentMismatch(double.TestCase):
    def test_is_a_status_without_any_library_call(self):
        for name, units, value in PARSING_METHODS:
            refused = double.BAD_ARGUMENTS
            expected = refused if value is NOTHING else (refused, value)
            for arguments in bad_argument_lists(units):
                with self.case(name, arguments):
                    self.assertEqual(getattr(pyORV3, name)(*arguments), expected)
                    self.assertEqual(double.calls(), [])

    def test_input_list_takes_any_arguments(self):
        for arguments in [(), (1,), ("x", None, 2**80)]:
            with self.case(*arguments):
                self.assertEqual(pyORV3.enumerateDefinitions(*arguments), (0, ""))


class References(double.TestCase):
    def test_arguments_keep_their_counts(self):
        good = {"l": 123456, "i": 123456, "f": 1234.5, "s": "a text", "O": (1234567, 2345678)}
        for name, units, _ in PARSING_METHODS:
            arguments = tuple(good[unit] for unit in units)
            for passed in (arguments, arguments + (0,)):
                with self.case(name, passed):
                    watched = list(passed) + list(good["O"])
                    before = [sys.getrefcount(item) for item in watched]
                    getattr(pyORV3, name)(*passed)
                    self.assertEqual([sys.getrefcount(item) for item in watched], before)

    def test_a_refused_spectrum_item_keeps_its_count(self):
        item = object()
        before = sys.getrefcount(item)
        pyORV3.setSpectrum(5, (1, item), 0, 0)
        self.assertEqual(sys.getrefcount(item), before)

    def test_results_belong_to_the_caller_alone(self):
        double.answer("SOrvGetParam", buffer=2, times=double.FOR_EVER)
        double.set_channels([1234567, 2345678])
        for name in ("count", "getParameter", "getSpectrum", "getStatus"):
            units = next(units for method, units, _ in METHODS if method == name)
            self.assertEqual(sys.getrefcount(getattr(pyORV3, name)(*good_arguments(units))), 1)
        status, channels = pyORV3.getSpectrum(5, 0, 0)
        content = channels[0]
        del channels
        self.assertEqual((status, sys.getrefcount(content)), (0, 2))

    def test_repeated_calls_leave_no_objects(self):
        calls = [
            (getattr(pyORV3, name), good_arguments(units or "") + more)
            for name, units, _ in METHODS
            for more in ((), (0,))
        ]
        calls += [
            (pyORV3.setParameter, (5, 0x0007000E, "text", 1, 1)),
            (pyORV3.setParameter, (5, 0x00070008, NoNumber(), 1, 1)),
            (pyORV3.getParameter, (5, 0x0007000E, 1, 1)),
            (pyORV3.setSpectrum, (5, (2**40, "x"), 0, 0)),
            (pyORV3.getParameterMetaData, (5, 0x0007000E, "")),
        ]
        for method, arguments in calls:
            with self.case(method.__name__, arguments):
                # The interpreter itself keeps an object now and then, but never one for each call.
                self.assertLess(min(blocks_left(method, arguments) for _ in range(3)), 50)


def blocks_left(method, arguments):
    """How many memory blocks of the interpreter 100 calls leave behind."""
    before = sys.getallocatedblocks()
    for _ in range(100):
        method(*arguments)
    return sys.getallocatedblocks() - before


if __name__ == "__main__":
    unittest.main()
