"""Engines and the list of inputs."""

import threading
import time

import double
import orv_double
import pyORV3
from double import signed

MODULE_NOT_FOUND = signed(0xE000007E)
ENTRY_POINT_NOT_FOUND = signed(0xE000007F)


class TestExecuteNativeEngine(double.TestCase):
    # Result of the entry point, status.
    RESULTS = {
        0: 0, 0x00610005: 0xE0610005, 0xFF61FFFF: 0xE061FFFF, 0x00618001: 0xE0618001,
        0x00500001: 0xE0400199, 0x00270010: 0xEBE80010, 5: 0xE0000005,
    }  # fmt: skip

    def test_engine_gets_both_values_and_is_released(self):
        for result, status in self.RESULTS.items():
            with self.case(hex(result)):
                double.answer("run", result)
                passed = ("double_engine", "run", 7, -(2**31))
                run = ("run", 7, -(2**31), 0, 0)
                self.check("executeNativeEngine", passed, signed(status), [run])
                self.assertFalse(orv_double.is_mapped("double_engine"))

    # Engine, entry point, status.
    MISSING = [
        ("no_such_engine", "run", MODULE_NOT_FOUND),
        ("", "run", MODULE_NOT_FOUND),
        ("m\u00f6ssbauer", "run", MODULE_NOT_FOUND),
        ("x" * 255, "run", MODULE_NOT_FOUND),
        ("x" * 256, "run", double.BAD_ARGUMENTS),
        ("double_engine", "no_such_entry", ENTRY_POINT_NOT_FOUND),
        ("double_engine", "", ENTRY_POINT_NOT_FOUND),
    ]

    def test_missing_engine_or_entry_point_has_its_status(self):
        for engine, entry, status in self.MISSING:
            with self.case(engine[:20], entry):
                self.check("executeNativeEngine", (engine, entry, 1, 2), status, [])
                self.assertFalse(orv_double.is_mapped("double_engine"))

    def test_other_threads_run_during_an_engine(self):
        statuses = []
        passed = ("double_engine", "waitForAnotherCall", 1, 2)
        engine = threading.Thread(
            target=lambda: statuses.append(pyORV3.executeNativeEngine(*passed))
        )
        engine.start()
        # If the interpreter lock were held, the engine would time out before this thread continues.
        while not double.calls() and engine.is_alive():
            time.sleep(0.001)
        during = pyORV3.flush(5)
        engine.join()
        self.assertEqual((statuses, during), ([0], 0))
        self.assertEqual(double.calls(), [("waitForAnotherCall", 1, 2, 0, 0), ("SOrvFlush", 5)])


class TestEnumerateDefinitions(double.TestCase):
    # Names in the library, result of the method.
    LISTS = [
        ([], ""),
        ([b"DET01"], "DET01"),
        ([b"DET01", b"DET02", b"DET03"], "DET01,DET02,DET03"),
        ([b"", b"b", b""], ",b,"),
        ([b"x" * 300, "\u00fc".encode() * 200], "x" * 300 + "," + "\u00fc" * 200),
        ([b"x" * 511] * 16, ",".join(["x" * 511] * 16)),  # 8,191 bytes
        ([b"x" * 511] * 15 + [b"y", b"x" * 510], ",".join(["x" * 511] * 15 + ["y"])),
    ]

    def script(self, names):
        for function, name in zip(["SOrvFirstInput"] + ["SOrvNextInput"] * len(names), names):
            double.answer(function, name=name + b"\0" if len(name) < 512 else name)

    def test_names_are_joined_up_to_the_maximum_length(self):
        for names, text in self.LISTS:
            with self.case(len(names), text[:20]):
                self.script(names)
                self.assertEqual(pyORV3.enumerateDefinitions(), (0, text))
                first, *others, end = double.calls()[4:]
                self.assertEqual(
                    (first, end), (("SOrvFirstInput", 1002, 0), ("SOrvDeleteDSC", 1002))
                )
                self.assertLessEqual(set(others), {("SOrvNextInput", 1002)})
                if len(text) < 1000:
                    self.assertEqual(len(others), len(names))  # the end is queried once

    def test_invalid_names_are_returned_without_a_failure(self):
        self.script([b"x" * 512, b"Pr\xfcfung"])
        status, text = pyORV3.enumerateDefinitions()
        self.assertEqual((status, text[:511]), (0, "x" * 511))
        self.assertLess(len(text), 530)

    def test_context_is_deleted_after_a_failure(self):
        with self.case("no context"):
            double.answer("SOrvEnumNodes", double.FAILURE)
            self.assertEqual(pyORV3.enumerateDefinitions(), (double.FAILED, ""))
            self.assertEqual(double.calls()[-1], ("SOrvDeleteDSC", 1001))
        with self.case("thrown by the next name"):
            double.answer("SOrvFirstInput", name=b"one\0")
            double.answer("SOrvNextInput", 5, throw="int")
            self.assertEqual(pyORV3.enumerateDefinitions()[0], signed(0xE0000005))
            self.assertEqual(double.calls()[-1], ("SOrvDeleteDSC", 1002))
