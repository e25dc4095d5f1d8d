"""Engines, control, state, re-verification and the list of inputs."""

import threading
import time
import unittest

import double
import orv_double
import pyORV3

signed = double.signed
MODULE_NOT_FOUND = signed(0xE000007E)
ENTRY_POINT_NOT_FOUND = signed(0xE000007F)


class NativeEngine(double.TestCase):
    # What the entry point returns, and the status.
    RESULTS = [
        (0, 0),
        (0x00610005, 0xE0610005),
        (0x12610005, 0xE0610005),
        (0xFF61FFFF, 0xE061FFFF),
        (0x00618001, 0xE0618001),
        (0x00500001, 0xE0400199),
        (0x00270010, 0xEBE80010),
        (5, 0xE0000005),
    ]

    def test_runs_with_the_two_values_and_is_released(self):
        for result, status in self.RESULTS:
            with self.case(hex(result)):
                double.answer("run", result)
                run = pyORV3.executeNativeEngine("double_engine", "run", 7, -(2**31))
                self.assertEqual(run, signed(status))
                self.assertEqual(double.calls(), [("run", 7, -(2**31), 0, 0)])
                self.assertFalse(double.is_mapped("double_engine"))

    # Engine, entry point, status.
    MISSING = [
        ("no_such_engine", "run", MODULE_NOT_FOUND),
        ("", "run", MODULE_NOT_FOUND),
        ("m\u00f6ssbauer", "run", MODULE_NOT_FOUND),
        ("x" * 255, "run", MODULE_NOT_FOUND),
        ("x" * 256, "run", double.BAD_ARGUMENTS),
        ("x" * 100000, "run", double.BAD_ARGUMENTS),
        ("double_engine", "no_such_entry", ENTRY_POINT_NOT_FOUND),
        ("double_engine", "", ENTRY_POINT_NOT_FOUND),
    ]

    def test_missing_engine_or_entry_point(self):
        for engine, entry, status in self.MISSING:
            with self.case(engine[:20], entry):
                self.assertEqual(pyORV3.executeNativeEngine(engine, entry, 1, 2), status)
                self.assertEqual(double.calls(), [])
                self.assertFalse(double.is_mapped("double_engine"))

    def test_other_threads_run_meanwhile(self):
        statuses = []
        arguments = ("double_engine", "waitForRelease", 1, 2)
        engine = threading.Thread(
            target=lambda: statuses.append(pyORV3.executeNativeEngine(*arguments))
        )
        engine.start()
        # With the interpreter lock held, the engine would give up before this thread goes on.
        while not double.calls() and engine.is_alive():
            time.sleep(0.001)
        during = pyORV3.flush(5)
        orv_double.release_engine()
        engine.join()
        self.assertEqual((statuses, during), ([0], 0))
        self.assertEqual(double.calls(), [("waitForRelease", 1, 2, 0, 0), ("SOrvFlush", 5)])


class Control(double.TestCase):
    CALLS = [
        ("control", (5, -1, 2**31 - 1), ("SOrvControlDSC", 5, -1, 2**31 - 1)),
        ("reverify", (-5,), ("SOrvReVerify", -5)),
    ]

    def test_reach_the_library_and_its_code_comes_back(self):
        for method, arguments, call in self.CALLS:
            for result, status in ((0, 0), (0x00300022, signed(0xE0300022))):
                with self.case(method, result):
                    double.answer(call[0], result)
                    self.assertEqual(getattr(pyORV3, method)(*arguments), status)
                    self.assertEqual(double.calls(), [call])

    # Result, word of the library, what the script sees.
    STATES = [
        (0, 0x00000000, (0, 0)),
        (0, 0x0001FFFF, (0, -1)),
        (0, 0xFFFF7FFF, (0, 32767)),
        (0, 0x00008000, (0, -32768)),
        (7, 0x00000003, (signed(0xE0000007), 0)),
    ]

    def test_state_is_a_signed_16_bit_number(self):
        for result, word, state in self.STATES:
            with self.case(result, hex(word)):
                double.answer("SOrvQueryDataSource", result, word=word)
                self.assertEqual(pyORV3.getStatus(5), state)
                self.assertEqual(double.calls(), [("SOrvQueryDataSource", 5, 1, 0)])


class InputList(double.TestCase):
    def script(self, names):
        for function, name in zip(["SOrvFirstInput"] + ["SOrvNextInput"] * len(names), names):
            double.answer(function, name=name + b"\0" if len(name) < 512 else name)

    # Names of the library and the text of the script.
    LISTS = [
        ([], ""),
        ([b"DET01"], "DET01"),
        ([b"DET01", b"DET02", b"DET03"], "DET01,DET02,DET03"),
        ([b"", b"b", b""], ",b,"),
        ([b"DETECTOR-001", b"DETECTOR-002"], "DETECTOR-001,DETECTOR-002"),
        ([b"x" * 300, "\u00fc".encode() * 200], "x" * 300 + "," + "\u00fc" * 200),
        ([b"x" * 511] * 16, ",".join(["x" * 511] * 16)),  # 8,191 bytes
        ([b"x" * 511] * 15 + [b"y", b"x" * 510], ",".join(["x" * 511] * 15 + ["y"])),
    ]

    def test_names_are_joined_as_far_as_they_fit(self):
        for names, text in self.LISTS:
            with self.subTest(count=len(names)):
                orv_double.reset()
                self.script(names)
                self.assertEqual(pyORV3.enumerateDefinitions(), (0, text))
                calls = double.calls()
                self.assertEqual(calls[4], ("SOrvFirstInput", 1002, 0))
                self.assertTrue(all(call == ("SOrvNextInput", 1002) for call in calls[5:-1]))
                self.assertEqual(calls[-1], ("SOrvDeleteDSC", 1002))

    def test_end_of_the_list_is_asked_for_once(self):
        self.script([b"a", b"b"])
        pyORV3.enumerateDefinitions()
        listing = [call[0] for call in double.calls()[4:]]
        self.assertEqual(
            listing, ["SOrvFirstInput", "SOrvNextInput", "SOrvNextInput", "SOrvDeleteDSC"]
        )

    def test_names_that_are_no_proper_text_do_no_harm(self):
        self.script([b"x" * 512, b"Pr\xfcfung"])
        status, text = pyORV3.enumerateDefinitions()
        self.assertEqual((status, text[:511]), (0, "x" * 511))
        self.assertLess(len(text), 530)

    def test_failed_context_is_reported(self):
        double.answer("SOrvEnumNodes", 0x270010)
        self.assertEqual(pyORV3.enumerateDefinitions(), (signed(0xEBE80010), ""))
        self.assertEqual(double.calls()[-1], ("SOrvDeleteDSC", 1001))


if __name__ == "__main__":
    unittest.main()
