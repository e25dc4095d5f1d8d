"""The analysis-sequence copy and its object layer: calls, failures, conversions of types."""

import math
import os
import struct

import double
import pyORV3
from double import FOR_EVER, signed

SOURCE, DESTINATION = 5, 6
SETTINGS = [0x20100075, 0x20100076, 0x20030015, 0x20030053]  # the destination keeps its own
MANDATORY, OPTIONAL = 0x20020028, 0x20020083
SWITCH, FILE_NAME = 0x2010002D, 0x20100104
FIRST, SECOND = 0x20000002, 0x20100005
GEOMETRY = ("OrvCreateBlock", DESTINATION, 0x4005, 0, -1)
BLOCK_MISSING = 0x00278102

# The calls of the object layer that create a context: on the node of a first context, 1001.
UNBOUND = ("OrvCreateDSC2", None, None, 0, 0)
NODE = ("OrvNodeEnumeration", 1001, b"", b"", 1, 0x42)
NODE_AGAIN = ("OrvNodeEnumeration", 1001, b"", b"", 1, 0x46)
NO_UNBOUND = ("OrvContextDeletion", 1001)
BOUND = ("OrvCreateDSC2", b"", b"", 0, 0)
CONTEXT = [UNBOUND, NODE, NO_UNBOUND, BOUND]


def description(context, code):
    """Return the call that queries the description of a parameter by its code."""
    return ("OrvParameterDescriptionQuery", context, bytes(13), code & 0xFFFF, code >> 16)


def describe(context, code, kind=14, size=3):
    """Set the description of a parameter, by default a string of at most three characters."""
    when = {"context": context, "codeLow": code & 0xFFFF, "codeHigh": code >> 16}
    outputs = {"type": kind, "size": size, "name": b"QAR_NAME"}
    double.answer("OrvParameterDescriptionQuery", when=when, times=FOR_EVER, **outputs)


def hold(context, code, content, kind=14, size=3):
    """Set a value of a parameter and the same description in source and destination."""
    describe(context, code, kind, size)
    describe(DESTINATION, code, kind, size)
    when = {"context": context, "code": code}
    double.answer("OrvParameterRead", when=when, times=FOR_EVER, buffer=content)


def copy():
    return pyORV3.copyAnalysisSequenceTo(SOURCE, DESTINATION)


def calls(*functions):
    return [call for call in double.calls() if call[0] in functions]


def written():
    """Return each written parameter and value, without the zero bytes after strings."""
    return [
        (one["code"], one["value"].rstrip(b"\0")) for one in double.arguments("OrvParameterWrite")
    ]


class TestOrder(double.TestCase):
    def test_classes_and_geometry_are_copied_without_parameters(self):
        expected = [description(DESTINATION, code) for code in SETTINGS] + [
            ("OrvClassCopy", SOURCE, DESTINATION, 0x2010),
            ("OrvClassCopy", SOURCE, DESTINATION, 0x2003),
            description(SOURCE, MANDATORY),
            description(SOURCE, OPTIONAL),
            GEOMETRY,
            ("OrvReadUFBlock", SOURCE, 0x4005, 0, 512, 0, 1),
            *(description(SOURCE, code) for code in (SWITCH, FIRST, SECOND)),
        ]
        self.check("copyAnalysisSequenceTo", (SOURCE, DESTINATION), 0, expected)

    def test_parameters_are_copied_in_order(self):
        for code in SETTINGS:
            hold(DESTINATION, code, b"own")
        referenced = 1004  # the diagnostics of the refused write take two contexts
        for context, code, text in [
            (SOURCE, MANDATORY, b"a"),
            (SOURCE, OPTIONAL, b"b"),
            (SOURCE, SWITCH, b"Yes"),
            (SOURCE, FILE_NAME, b"x"),
            (referenced, 0x200000B6, b"c"),
            (referenced, 0x2010004C, b"d"),
            (SOURCE, FIRST, b"e"),
        ]:
            hold(context, code, text)
        describe(DESTINATION, SECOND)
        # A refused optional parameter or referenced class does not stop the copy.
        double.answer("OrvClassCopy", 5, when={"classCode": 0x2002})
        double.answer("OrvParameterWrite", 5, when={"code": OPTIONAL})
        self.assertEqual(copy(), 0)
        own = [(code, b"own") for code in SETTINGS]
        before = [(MANDATORY, b"a"), (OPTIONAL, b"b"), (0x200000B6, b"c"), (0x2010004C, b"d")]
        self.assertEqual(written(), before + own + [(FIRST, b"e"), (SECOND, b"e")])
        cells = {
            (call["context"], call["record"], call["entry"], len(call["value"]))
            for call in double.arguments("OrvParameterWrite")
        }
        self.assertEqual(cells, {(DESTINATION, 1, 0, 4)})
        # The contexts for diagnostics and for the referenced file are deleted.
        self.assertEqual(calls("OrvCreateDSC2"), [UNBOUND, BOUND] * 2)
        deleted = [call[1] for call in calls("OrvContextDeletion")]
        self.assertEqual(deleted, [1001, 1002, 1003, referenced])
        name = os.fsencode(os.path.abspath("x"))
        expected = [
            ("OrvClassCopy", SOURCE, DESTINATION, 0x2010),
            ("OrvClassCopy", SOURCE, DESTINATION, 0x2003),
            ("OrvDataSourceOpening", referenced, name, 1, 0x80, 0, None),
            ("OrvClassCopy", referenced, DESTINATION, 0x2002),
            ("OrvDataSourceClosing", referenced),  # without a flush
        ]
        functions = ("OrvClassCopy", "OrvDataSourceOpening", "OrvDataSourceFlush")
        self.assertEqual(calls(*functions, "OrvDataSourceClosing"), expected)

    def test_second_parameter_gets_one_of_the_last_two_values(self):
        # Values in the source, values written.
        for present, expected in [
            ({}, []),
            ({FIRST: b"one"}, [(FIRST, b"one"), (SECOND, b"one")]),
            ({SECOND: b"two"}, [(SECOND, b"two")]),
            ({FIRST: b"one", SECOND: b"two"}, [(FIRST, b"one")]),
        ]:
            with self.case(present):
                describe(DESTINATION, SECOND)
                for code, text in present.items():
                    hold(SOURCE, code, text)
                self.assertEqual(copy(), 0)
                self.assertEqual(written(), expected)

    def test_missing_handle_makes_no_call(self):
        for sides in [(0, 0), (SOURCE, 0), (0, DESTINATION)]:
            with self.case(*sides):
                self.check("copyAnalysisSequenceTo", sides, signed(0xE0400199), [])


class TestClasses(double.TestCase):
    # Class; results of its copies, each with the handle, result and code of its error query; status;
    # whether a block is created.
    COPIES = [
        (0x2010, [(4, DESTINATION, 0, BLOCK_MISSING), (0,)], 0, True),
        (0x2003, [(-1, SOURCE, 0, BLOCK_MISSING), (3, SOURCE, 0, BLOCK_MISSING)], 0, True),
        (0x2003, [(4, DESTINATION, 0, 0x8102), (4, DESTINATION, 0, 0x8003)], 0xEBE88003, True),
        (0x2010, [(4, DESTINATION, 0, 0x12345)], 0xE0012345, False),
        (0x2010, [(4, DESTINATION, 7, BLOCK_MISSING)], 0xE0000067, False),
        (0x2010, [(-1, SOURCE, -2, BLOCK_MISSING)], 0xE0400199, False),
        (0x2003, [(3, SOURCE, 0, 0xECE99D7D)], 0xEBE89D7D, False),
        (0x2003, [(5,)], 0xE0000065, False),
        (0x2010, [(-2,)], 0xE0400199, False),
    ]

    def test_missing_block_is_created_once_and_other_failures_end_the_copy(self):
        for number, results, status, is_made in self.COPIES:
            with self.case(hex(number), results):
                hold(DESTINATION, SETTINGS[0], b"own")
                asked = []
                for result, *query in results:
                    double.answer("OrvClassCopy", result, when={"classCode": number})
                    if query:
                        side, answer, code = query
                        double.answer("OrvErrorQuery", answer, when={"context": side}, code=code)
                        asked.append(("OrvErrorQuery", side))
                self.assertEqual(copy(), signed(status))
                self.assertEqual(calls("OrvErrorQuery"), asked)
                made = [("OrvCreateBlock", DESTINATION, number, 0, 0)] * is_made
                self.assertEqual(calls("OrvCreateBlock"), made + [GEOMETRY] * (status == 0))
                # Only a copy that continues restores the settings.
                self.assertEqual(len(written()), status == 0)

    def test_failed_mandatory_parameter_ends_the_copy(self):
        # Reply of the library, status, whether a value is written.
        query = "OrvParameterDescriptionQuery"
        for function, result, outputs, status, is_asked in [
            ("OrvParameterWrite", 5, {}, 0xE0000065, True),
            (query, -5, {}, 0xE000FFFB, False),
            (query, 0, {"type": 14}, 0xEBE8801A, False),
            (query, 0, {"type": 8, "size": 3}, 0xE0070057, False),
        ]:
            with self.case(function, result, outputs):
                hold(SOURCE, MANDATORY, b"a")
                when = {"context": DESTINATION}
                when.update({"codeLow": MANDATORY & 0xFFFF} if function == query else {})
                double.answer(function, result, when=when, **outputs)
                self.assertEqual(copy(), signed(status))
                self.assertEqual(written(), [(MANDATORY, b"a")] * is_asked)
                self.assertEqual(calls("OrvCreateBlock"), [])

    def hold_geometry(self, total):
        """Set the numbered chunks of a block with a total size."""
        for offset in range(0, total + 1, 512):
            chunk = (struct.pack("<I", total) if offset == 0 else b"....") + b"%d" % (offset // 512)
            double.answer("OrvReadUFBlock", when={"offset": offset}, buffer=chunk)

    def chunks(self):
        """Return the numbers of the written chunks."""
        return [
            int(call["buffer"][4:].rstrip(b"\0")) for call in double.arguments("OrvWriteUFBlock")
        ]

    def test_whole_chunks_of_the_geometry_block_are_copied(self):
        for total, count in [(0, 0), (300, 0), (511, 0), (512, 1), (1000, 1), (1024, 2)]:
            with self.case(total):
                self.hold_geometry(total)
                self.assertEqual(copy(), 0)
                self.assertEqual(self.chunks(), list(range(count)))
                for call in double.arguments("OrvWriteUFBlock"):
                    self.assertEqual((call["option"], len(call["buffer"])), (0x40, 512))

    def test_failed_geometry_chunk_ends_only_the_geometry(self):
        for function, when, count in [
            ("OrvReadUFBlock", {"offset": 1024}, 2),
            ("OrvWriteUFBlock", {}, 1),
            ("OrvReadUFBlock", {"offset": 0}, 0),
            ("OrvCreateBlock", {"classCode": 0x4005}, 9),
        ]:
            with self.case(function, when):
                double.answer(function, -7, when=when)
                double.answer("OrvReadUFBlock", times=FOR_EVER, buffer=struct.pack("<I", 5000))
                self.assertEqual(copy(), 0)
                self.assertEqual(len(double.arguments("OrvWriteUFBlock")), count)
                self.assertEqual(double.calls()[-1], description(SOURCE, SECOND))


class TestReferencedFile(double.TestCase):
    # Reply of the library, calls for the file.
    FAILURES = [
        (("OrvParameterRead", 1, {"code": SWITCH}, {}), None),
        (("OrvParameterRead", 1, {"code": FILE_NAME}, {}), None),
        (("OrvParameterRead", 0, {"code": SWITCH}, {"buffer": b"No"}), None),
        (("OrvCreateDSC2", 9, {}, {}), [UNBOUND]),
        (("OrvNodeEnumeration", 2, {}, {}), [UNBOUND, NODE, NODE_AGAIN, NO_UNBOUND, BOUND]),
        (("OrvNodeEnumeration", 9, {}, {}), [UNBOUND, NODE, NO_UNBOUND]),
        (("OrvNodeEnumeration", 0, {}, {"refusal": b"no licence"}), [UNBOUND, NODE, NO_UNBOUND]),
        (("OrvCreateDSC2", -2, {"identity": b""}, {}), CONTEXT),
        (
            ("OrvCreateDSC2", 5, {"identity": b""}, {"context": 1005}),
            CONTEXT + [("OrvContextDeletion", 1005)],
        ),
    ]  # fmt: skip

    def test_calibration_file_that_is_unused_or_does_not_open_is_skipped(self):
        for (function, result, when, outputs), expected in self.FAILURES:
            with self.case(function, result, when):
                hold(SOURCE, SWITCH, b"Yes")
                hold(SOURCE, FILE_NAME, b"x")
                double.answer(function, result, when=when, **outputs)
                double.answer("OrvDataSourceOpening", 6, times=FOR_EVER)
                self.assertEqual(copy(), 0)
                made = calls("OrvCreateDSC2", "OrvNodeEnumeration", "OrvContextDeletion")
                if expected is None:
                    self.assertEqual(double.arguments("OrvDataSourceOpening"), [])
                else:
                    self.assertEqual(made, expected)
                self.assertEqual(len(calls("OrvClassCopy")), 2)
                self.assertEqual(calls("OrvDataSourceClosing"), [])


class TestLayouts(double.TestCase):
    WIDTHS = {1: 1, 2: 1, 3: 2, 8: 4, 9: 8, 10: 4, 27: 8, 35: 8, 193: 4}
    UNITS = {1: "<B", 2: "<B", 3: "<H", 8: "<I", 9: "<q", 10: "<f", 27: "<d", 35: "<d"}

    def moved(self, kind, content, other, size=None):
        """Return the bytes of a value after conversion to the type of the destination."""
        double.orv_double.reset()
        hold(SOURCE, MANDATORY, content, kind, self.WIDTHS.get(kind, max(len(content) - 1, 1)))
        describe(DESTINATION, MANDATORY, other, size or self.WIDTHS.get(other, 40))
        self.assertEqual(copy(), 0)
        return [call["value"] for call in double.arguments("OrvParameterWrite")]

    def check_moves(self, kind, content, text, flag, short, number, large, floating):
        """Check the conversion to all types of the destination."""
        self.assertEqual(self.moved(kind, content, 14), [text.ljust(41, b"\0")])
        single = floating if abs(floating) < 3e38 else math.copysign(math.inf, floating)
        for other, unit, expected in [
            (2, "<B", flag),
            (3, "<h", short),
            (8, "<i", number),
            (9, "<q", large),
            (10, "<f", floating if math.isnan(floating) else single),
            (27, "<d", floating),
        ]:
            self.assertEqual(self.moved(kind, content, other), [struct.pack(unit, expected)], other)

    LARGEST, LOWEST = 2**63 - 1, -(2**63)
    # Type and value; string, flag, integers of 16, 32 and 64 bits, floating-point number.
    NUMBERS = [
        (1, 5, b"1", 1, 1, 1, 1, 1),
        (2, 0, b"0", 0, 0, 0, 0, 0),
        (3, 65535, b"65535", 1, -1, 65535, 65535, 65535),
        (8, 2**32 - 1, b"-1", 1, -1, -1, 4294967295, 4294967295),
        (9, -5000000000, b"-5e+09", 1, 3584, -705032704, -5000000000, -5000000000),
        (9, 123456789, b"1.23457e+08", 1, -13035, 123456789, 123456789, 123456789),
        (10, -2.75, b"-2.75", 1, -2, -2, -2, -2.75),
        (10, 0, b"0", 0, 0, 0, 0, 0),
        (10, 3.1415927410125732, b"3.14159", 1, 3, 3, 3, 3.1415927410125732),
        (27, 0.1, b"0.1", 1, 0, 0, 0, 0.1),
        (27, 2147483648, b"2.14748e+09", 1, 32767, 2147483647, 2147483648, 2147483648),
        (27, 1e300, b"1e+300", 1, 32767, 2147483647, LARGEST, 1e300),
        (27, 2.0**63, b"9.22337e+18", 1, 32767, 2147483647, LARGEST, 2.0**63),
        (27, -9.3e18, b"-9.3e+18", 1, -32768, -2147483648, LOWEST, -9.3e18),
        (27, math.nan, b"nan", 1, 0, 0, 0, math.nan),
        (
            35,
            5212846932.5,
            b"2024-01-24T21:02:12.500Z",
            1,
            32767,
            2**31 - 1,
            5212846932,
            5212846932.5,
        ),
    ]  # fmt: skip

    def test_number_is_converted_to_every_type(self):
        for kind, value, *expected in self.NUMBERS:
            with self.subTest(kind=kind, value=value):
                self.check_moves(kind, struct.pack(self.UNITS[kind], value), *expected)

    ZEROS = b"0" * 400
    # 64-bit integer, floating-point number and flag of strings.
    TEXTS = [
        (0, 0, 0, [b"", b"+-8", b"- 8", b"0", b"0x10", b"inf", b"-nan", b"No", b"false", b" true"]),
        (0, 0, 0, [b"0.01e-999", b"0." + ZEROS + b"1"]), (0, 0, 1, [b"Yes", b"true"]),
        (0, 0.5, 0, [b".5"]), (0, -2.5, 0, [b"-.25e1x"]), (1, 1, 1, [b"1\xb2"]),
        (1, math.inf, 1, [b"1e999"]), (-1, -math.inf, 1, [b"-1e+999"]), (2, 2, 1, [b"2e"]),
        (3, 3.9, 1, [b"3.9"]), (-7, -7, 1, [b" \t\n-7"]), (8, 8, 1, [b"+8"]),
        (42, 42, 1, [b"42abc"]), (LARGEST, 1e20, 1, [b"99999999999999999999"]),
        (LARGEST, 1, 1, [b"1" + ZEROS + b"e-400"]),
        (LARGEST, math.inf, 1, [b"1" + ZEROS * 2 + b"e-1"]),
        (LOWEST, -1e20, 1, [b"-99999999999999999999"]),
    ]  # fmt: skip

    def test_leading_number_of_a_string_is_converted(self):
        for large, floating, flag, texts in self.TEXTS:
            low = [
                struct.unpack(unit, struct.pack("<q", large)[: struct.calcsize(unit)])[0]
                for unit in ("<h", "<i")
            ]
            for text in texts:
                with self.subTest(text=text[:20]):
                    self.check_moves(14, text + b"\0", text[:40], flag, *low, large, floating)

    # Type and content of the source, type and size of the destination, bytes there.
    OTHERS = [
        (14, b"\xe9t\xe9\0x", 14, 4, b"\xe9t\xe9\0\0"), (14, b"ABCD", 14, 4, b"ABCD\0"),
        (14, b"ABC\0", 14, 2, b"AB\0"), (27, struct.pack("<d", 2.5), 35, 8, struct.pack("<d", 2.5)),
        (14, b"2024\0", 35, 8, struct.pack("<d", 3506716800)),
        (35, struct.pack("<d", 0), 35, 8, struct.pack("<d", 3506716800)),
        (8, b"\1\0\0\0", 193, 4, bytes(4)), (8, b"\1\0\0\0", 8, 6, b"\1\0\0\0\0\0"),
    ]  # fmt: skip

    def test_strings_dates_and_unknown_types_are_converted_within_the_size(self):
        for kind, content, other, size, expected in self.OTHERS:
            with self.subTest(kind=kind, content=content, other=other):
                self.assertEqual(self.moved(kind, content, other, size), [expected])
        self.assertEqual(self.moved(193, b"abcd", 8), [])  # no value

    def test_size_below_the_layout_is_neither_read_nor_written(self):
        for kind, width in self.WIDTHS.items():
            if 1 < width and kind != 193:
                with self.case(kind):
                    hold(SOURCE, MANDATORY, b"", kind, width - 1)
                    self.assertEqual(copy(), 0)
                    hold(SOURCE, MANDATORY, b"a", 14, 3)
                    describe(DESTINATION, MANDATORY, kind, width - 1)
                    self.assertEqual(copy(), signed(0xE0070057))
                    self.assertEqual(written(), [])
