"""The common parts of all methods: the method table, argument parsing, references."""

import sys
import unittest

import double
import pyORV3

try:
    import _testcapi  # not in every interpreter
except ImportError:
    _testcapi = None

# In slot order: each method with the format units of its arguments and, if it returns a pair, the
# value next to the status of a refused call.
METHODS = dict(
    method.split(":")
    for method in """
    open:slls close:ll getIsDirty:l setIsDirty:l getIsOpen:l flush:l createBlock:lll deleteBlock:ll
    delete:llll deleteLevel:ll insert:llll count:lll copyTo:lll moveRecordsTo:lllll
    getParameterMetaData:lis findNuclideByEnergy:lffl findNuclideByName:lsl getParameter:llll
    setParameter:llOll getSpectrum:lll setSpectrum:lOll executeNativeEngine:ssll
    enumerateDefinitions: control:lll getStatus:l copyAnalysisSequenceTo:ll reverify:l
    """.split()
)
VALUES = dict.fromkeys(
    "open count getParameterMetaData findNuclideByEnergy findNuclideByName getParameter "
    "getStatus".split(),
    0,
)
VALUES["getSpectrum"] = (0,)
CALLS = 1000
PARSING_METHODS = {name: units for name, units in METHODS.items() if units}

GOOD = {"l": 70000, "i": 70000, "f": 1234.5, "s": "a text", "O": (1234567, 2345678)}
NO_INTEGERS = ["5", 1.5, None, 2**31, -(2**31) - 1, double.NoNumber()]
BAD = {
    "l": NO_INTEGERS,
    "i": NO_INTEGERS,
    "f": ["1.5", None, double.NoNumber()],
    "s": [5, b"text", None, "te\0xt", "\ud800"],
    "O": [],
}


def good_arguments(units):
    return tuple(GOOD[unit] for unit in units)


def bad_argument_lists(units):
    good = good_arguments(units)
    yield from ((), good[:-1], good + (0,))
    for position, unit in enumerate(units):
        for bad in BAD[unit]:
            yield good[:position] + (bad,) + good[position + 1 :]


class TestMethodTable(double.TestCase):
    def test_module_has_27_functions_in_slot_order_without_documentation(self):
        names = [name for name in vars(pyORV3) if not name.startswith("__")]
        self.assertEqual(names, list(METHODS))
        self.assertEqual({getattr(pyORV3, name).__doc__ for name in names}, {None})
        self.assertIsNone(pyORV3.__doc__)


class TestArgumentMismatch(double.TestCase):
    def test_mismatch_returns_a_status_without_a_library_call(self):
        refused = double.BAD_ARGUMENTS
        for name, units in PARSING_METHODS.items():
            expected = (refused, VALUES[name]) if name in VALUES else refused
            for arguments in bad_argument_lists(units):
                with self.case(name, arguments):
                    self.check(name, arguments, expected, [])

    def test_input_list_accepts_any_arguments(self):
        for arguments in [(), (1,), ("x", None, 2**80)]:
            with self.case(*arguments):
                self.assertEqual(pyORV3.enumerateDefinitions(*arguments), (0, ""))


class TestReferences(double.TestCase):
    def test_reference_counts_of_arguments_are_unchanged(self):
        passed = [(name, good_arguments(units)) for name, units in PARSING_METHODS.items()]
        passed += [(name, arguments + (0,)) for name, arguments in passed]
        passed.append(("setSpectrum", (70000, (1234567, object()), 70000, 70000)))
        for name, arguments in passed:
            with self.case(name, arguments):
                watched = [*arguments, *(arguments[1] if name == "setSpectrum" else GOOD["O"])]
                before = [sys.getrefcount(item) for item in watched]
                getattr(pyORV3, name)(*arguments)
                self.assertEqual([sys.getrefcount(item) for item in watched], before)

    def test_results_have_one_reference(self):
        double.answer("SOrvGetParam", buffer=2, times=double.FOR_EVER)
        double.set_channels([1234567, 2345678])
        for name in ("count", "getParameter", "getSpectrum", "getStatus"):
            result = sys.getrefcount(getattr(pyORV3, name)(*good_arguments(METHODS[name])))
            self.assertEqual(result, 1, name)
        status, channels = pyORV3.getSpectrum(5, 0, 0)
        content = channels[0]
        del channels
        self.assertEqual((status, sys.getrefcount(content)), (0, 2))

    def test_repeated_calls_leak_no_objects(self):
        calls = [
            (name, good_arguments(units) + more)
            for name, units in METHODS.items()
            for more in ((), (0,))
        ]
        calls += [
            ("setParameter", (5, 0x0007000E, "text", 1, 1)),
            ("setParameter", (5, 0x00070008, double.NoNumber(), 1, 1)),
            ("getParameter", (5, 0x0007000E, 1, 1)),
            ("setSpectrum", (5, (2**40, "x"), 0, 0)),
            ("getParameterMetaData", (5, 0x0007000E, "")),
        ]
        for name, arguments in calls:
            with self.case(name, arguments):
                # The interpreter may keep a few objects, but not one for each call.
                self.assertTrue(any(blocks_left(name, arguments) < CALLS // 2 for _ in range(3)))


@unittest.skipIf(_testcapi is None, "the interpreter cannot run out of memory at will")
class TestExhaustedMemory(double.TestCase):
    # Method, arguments, and the function whose output makes the result need memory.
    CALLS = [
        ("open", ("name", 1, 1, ""), "SOrvOpenDataSource", {}),
        ("count", (5, 2, 0), "SOrvClassCount", {"count": 5000}),
        ("getStatus", (5,), "SOrvQueryDataSource", {"word": 5000}),
        ("findNuclideByName", (5, "Co-60", 0), "SOrvFindRecord", {"record": 5000}),
        ("getParameter", (5, 0x00070008, 1, 1), "SOrvGetParam", {"buffer": 500000}),
        ("getSpectrum", (5, 0, 0), "SOrvGetParam", {"buffer": 300}),
        ("getParameterMetaData", (5, 0x00070008, ""), "SOrvFlush", {}),
    ]

    def result_without(self, allocation, method, arguments):
        """Return the result of a call with one failing allocation; None for MemoryError."""
        _testcapi.set_nomemory(allocation, allocation + 1)
        try:
            return method(*arguments)
        except MemoryError:
            return None
        finally:
            _testcapi.remove_mem_hooks()

    def test_failed_allocation_never_returns_a_wrong_value(self):
        for name, arguments, function, outputs in self.CALLS:
            failures = set()
            for allocation in range(40):
                double.orv_double.reset()
                double.answer(function, times=double.FOR_EVER, **outputs)
                expected = getattr(pyORV3, name)(*arguments)
                double.orv_double.reset()
                double.answer(function, times=double.FOR_EVER, **outputs)
                result = self.result_without(allocation, getattr(pyORV3, name), arguments)
                if result != expected:
                    failures.add(result and result[0])
                    created = len(double.arguments("SOrvCreateDSC2"))
                    deleted = len(double.arguments("SOrvDeleteDSC"))
                    self.assertEqual(deleted, 2 * created, "a context is left")
            with self.subTest(name):
                self.assertLessEqual(failures, {None, double.OUT_OF_MEMORY})
                self.assertTrue(failures)


def blocks_left(name, arguments):
    """Return the number of memory blocks that a number of calls leaks."""
    before = sys.getallocatedblocks()
    for _ in range(CALLS):
        getattr(pyORV3, name)(*arguments)
    double.orv_double.reset()
    return sys.getallocatedblocks() - before
