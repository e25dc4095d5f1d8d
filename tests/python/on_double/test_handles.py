"""The methods open and close."""

import double
import pyORV3
from double import signed

# The calls that create a handle: a temporary context 1001, then the handle 1002 on its node.
TEMPORARY = ("SOrvCreateDSC", None, None, 0, 0)
NODES = ("SOrvEnumNodes", 1001, b"", b"", 1, 0x42)
NODES_AGAIN = ("SOrvEnumNodes", 1001, b"", b"", 1, 0x46)
NO_TEMPORARY = ("SOrvDeleteDSC", 1001)
BOUND = ("SOrvCreateDSC2", b"", b"", 0, 0)
HANDLE = [TEMPORARY, NODES, NO_TEMPORARY, BOUND]
TWICE = [TEMPORARY, NODES, NODES_AGAIN, NO_TEMPORARY]
RELEASED = [("SOrvCloseDataSource", 1002), ("SOrvDeleteDSC", 1002)]


class TestHandleCreation(double.TestCase):
    # Reply of the library, status, calls.
    FAILURES = [
        ([("SOrvCreateDSC", 7, {"context": 55})], 0xE0000007, [TEMPORARY]),
        ([("SOrvEnumNodes", 6, {})], 0xE0000006, HANDLE[:3]),
        (
            [("SOrvEnumNodes", 0x500002, {"count": 9}), ("SOrvEnumNodes", 0x500002, {})],
            0xE0400199,
            TWICE,
        ),
        (
            [("SOrvEnumNodes", 0x500002, {}), ("SOrvEnumNodes", 0, {"refusal": b"down"})],
            0xECE99E49,
            TWICE,
        ),
        ([("SOrvEnumNodes", 0, {"refusal": b"x" * 538})], 0xECE99E49, HANDLE[:3]),
        ([("SOrvCreateDSC2", 0x500004, {})], 0xECE99E48, HANDLE),
    ]

    def test_failure_leaves_no_context(self):
        for answers, status, calls in self.FAILURES:
            with self.case(answers):
                for function, result, outputs in answers:
                    double.answer(function, result, **outputs)
                self.check("open", ("a.qar", 1, 1, ""), (signed(status), 0), calls)

    def test_second_selector_is_tried_and_the_node_record_passed_on(self):
        identity = bytes(1 + index % 255 for index in range(514))
        double.answer("SOrvEnumNodes", 0x500002, count=9)
        # A string after the terminator is ignored.
        double.answer("SOrvEnumNodes", identity=identity, refusal=b"\0rest")
        self.assertEqual(pyORV3.open("a.qar", 1, 1, ""), (0, 1002))
        bound = ("SOrvCreateDSC2", identity, b"\0rest", 0, 0)
        self.assertEqual(double.calls()[:5], TWICE + [bound])

    def test_failure_with_a_handle_counts_as_success(self):
        double.answer("SOrvCreateDSC2", 0x500004, context=-7)
        self.assertEqual(pyORV3.open("a.qar", 1, 1, ""), (0, -7))
        self.assertEqual(double.arguments("SOrvOpenDataSource")[0]["context"], -7)


class TestOpen(double.TestCase):
    # Arguments of the method, call after the creation of the handle.
    ARGUMENTS = [
        (("a.qar", 3, 7, "aux"), ("SOrvOpenDataSource", 1002, b"a.qar", 1, 3, 0, b"aux")),
        (("a.qar", 0, 0x10000, ""), ("SOrvOpenDataSource", 1002, b"a.qar", 1, 0, 0, None)),
        (("in", 2, 0, "\u00fc"), ("SOrvOpenDataSource", 1002, b"in", 769, 2, 0, b"\xc3\xbc")),
        (
            ("gr\u00f6\u00dfe", -1025, 0, ""),
            ("SOrvOpenDataSource", 1002, "gr\u00f6\u00dfe".encode(), 769, 0xFFFFFBFF, 0, None),
        ),
        (("", 0x80, -1, ""), ("SOrvOpenDataSource", 1002, b"", 1, 0x80, 0, None)),
        (("a.qar", 0x400, 1, ""), ("SOrvCreateFile", 1002, b"a.qar", 1, 65535, 1, 32768)),
        (("a.qar", -1, 0, "aux"), ("SOrvCreateFile", 1002, b"a.qar", 1, 65535, 1, 32768)),
    ]

    def test_arguments_reach_the_library(self):
        for passed, call in self.ARGUMENTS:
            with self.case(passed):
                self.check("open", passed, (0, 1002), HANDLE + [call])

    def test_failed_creation_keeps_its_context(self):
        double.answer("SOrvCreateFile", 0x300022)
        result = pyORV3.open("a.qar", 0x400, 1, "")
        self.assertEqual(result, (signed(0xE0300022), 1002))
        self.assertEqual(double.calls()[-1][0], "SOrvCreateFile")

    # Result of the library's open, its state word (None: no query), status, whether it is released.
    RESULTS = [
        (0x300022, None, 0xECE99EA2, True), (0x500001, 0x1FF, 0, False),
        (0x500001, 0x200, 0xECE99EA3, True), (0x500001, 0xFFFFFFFF, 0xECE99EA3, True),
        (0x500001, b"\0\0\0\0\0\2", 0, False), (0x500002, None, 0xE0400199, True),
        (0x270010, None, 0xEBE80010, True),
    ]  # fmt: skip

    def test_context_is_released_depending_on_the_result(self):
        for result, state, status, released in self.RESULTS:
            with self.case(result, state):
                double.answer("SOrvOpenDataSource", result)
                query = []
                if state is not None:
                    # The result of the query is ignored.
                    double.answer("SOrvQueryDSC", 5, buffer=state)
                    query = [("SOrvQueryDSC", 1002, 3, b"")]
                if released:
                    double.answer("SOrvCloseDataSource", 5)
                opened = pyORV3.open("a.qar", 1, 1, "")
                self.assertEqual(opened, (signed(status), 1002))
                rest = double.calls()[len(HANDLE) + 1 :]
                self.assertEqual(rest, query + (RELEASED if released else []))


class TestClose(double.TestCase):
    def test_source_is_closed_and_its_context_deleted(self):
        double.answer("SOrvDeleteDSC", 5)
        self.check("close", (1002, 99), 0, RELEASED)

    def test_failure_keeps_the_context(self):
        double.answer("SOrvCloseDataSource", 7)
        self.check("close", (1002, 0), signed(0xE0000007), RELEASED[:1])
        self.check("close", (1002, 0), 0, RELEASED[:1] + RELEASED)
