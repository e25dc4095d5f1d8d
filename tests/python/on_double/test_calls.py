"""Methods that pass their arguments on to the library: blocks, records, searches, control."""

import struct

import double
import pyORV3
from double import FAILED, FAILURE, signed

ENERGIES = struct.pack("<ff", 1332.5, -0.1)


class TestOneCall(double.TestCase):
    # Method, arguments, library call.
    CALLS = [
        ("flush", (-1,), ("SOrvFlush", -1)),
        ("delete", (5, 2, 3, 4), ("SOrvDeleteOne", 5, 2, 3, 4)),
        ("delete", (5, 0x20000007, -4, -1), ("SOrvDeleteOne", 5, 0x2000, 0, 0)),
        ("delete", (5, 2, 65537, 65538), ("SOrvDeleteOne", 5, 2, 1, 2)),
        ("deleteLevel", (5, -9), ("SOrvDeleteLevel", 5, -9)),
        ("insert", (5, 0x20000007, 3, 4), ("SOrvInsertOne", 5, 0x2000, 3, 4)),
        ("insert", (5, 2, -4, -1), ("SOrvInsertOne", 5, 2, -4, 0)),
        ("copyTo", (5, 6, 0x20000007), ("SOrvClassCopy", 5, 6, 0x2000)),
        ("copyTo", (5, 6, 0), ("SOrvSaveAs", 5, 6)),
        ("copyTo", (5, 6, -1), ("SOrvSaveAs", 5, 6)),
        ("moveRecordsTo", (5, 6, 0x20000007, 3, 4), ("SOrvCopyRecord", 5, 0x2000, 3, 6, 4, 0)),
        ("control", (5, -1, 2**31 - 1), ("SOrvControlDSC", 5, -1, 2**31 - 1)),
        ("reverify", (-5,), ("SOrvReVerify", -5)),
    ]
    # The same for methods that return a 16-bit number. Only the entry count passes the whole class code.
    FINDS = [
        ("count", (5, 0x2005, 0), ("SOrvClassCount", 5, 0x2005)),
        ("count", (5, 0x20000007, -1), ("SOrvClassCount", 5, 0x2000)),
        ("count", (5, 0, 2), ("SOrvClassCount", 5, 0)),
        ("count", (5, 0x20000007, 2), ("SOrvEntryCount", 5, 0x20000007, 2)),
        ("count", (5, -1, 65537), ("SOrvEntryCount", 5, -1, 1)),
        ("findNuclideByName", (5, "Co-60", -3), ("SOrvFindRecord", 5, 2, b"Co-60\0", -3)),
        ("findNuclideByName", (5, "", 0), ("SOrvFindRecord", 5, 2, b"\0", 0)),
        ("findNuclideByName", (5, "\u03b2", 0), ("SOrvFindRecord", 5, 2, b"\xce\xb2\0", 0)),
        ("findNuclideByEnergy", (5, 1332.5, -0.1, -3), ("SOrvFindRecord", 5, 4, ENERGIES, -3)),
    ]

    def test_arguments_reach_the_library_and_its_status_is_returned(self):
        for method, passed, call in self.CALLS:
            for result, status in ((0, 0), (FAILURE, FAILED)):
                with self.case(method, passed, result):
                    double.answer(call[0], result)
                    self.check(method, passed, status, [call])

    def test_number_is_returned_on_success_and_0_on_failure(self):
        for method, passed, call in self.FINDS:
            for result, expected in ((0, (0, 65535)), (FAILURE, (FAILED, 0))):
                with self.case(method, passed, result):
                    output = "count" if method == "count" else "record"
                    double.answer(call[0], result, **{output: 65535})
                    self.check(method, passed, expected, [call])

    # Result and word of the library, result of the method.
    STATES = [
        (0, 0x0001FFFF, (0, -1)),
        (0, 0xFFFF7FFF, (0, 32767)),
        (FAILURE, 0x00000003, (FAILED, 0)),
    ]

    def test_state_is_returned_as_a_signed_16_bit_number(self):
        for result, word, state in self.STATES:
            with self.case(result, hex(word)):
                double.answer("SOrvQueryDataSource", result, word=word)
                self.check("getStatus", (5,), state, [("SOrvQueryDataSource", 5, 1, 0)])

    def test_flags_depend_on_the_handle_number_only(self):
        for handle, is_open in [(0, 0), (5, 1), (-(2**31), 1)]:
            self.check("getIsOpen", (handle,), is_open, [])
            self.check("getIsDirty", (handle,), 0, [])
            self.check("setIsDirty", (handle,), 0, [])


class TestCreateBlock(double.TestCase):
    # Class and size as passed, class and size in the library call.
    BLOCKS = [
        (0x20000007, 257, 0x2000, 257), (0x00010000, -5, 1, -5), (0xFFFF, 3, 0xFFFF, 3),
        (signed(0xFFFF0003), 0, 0xFFFF, 0), (0x2005FFFF, -5, 0x2005, 256),
        *(
            (0x2005, size, 0x2005, rounded)
            for size, rounded in [
                (0, 256),
                (256, 256),
                (257, 512),
                (1024, 1024),
                (1025, 2048),
                (8191, 8192),
                (16384, 16384),
                (16385, 32768),
                (100000, 32768),
            ]
        ),
    ]  # fmt: skip

    def test_class_is_reduced_and_the_size_of_spectra_is_rounded_up(self):
        for argument, size, code, rounded in self.BLOCKS:
            with self.case(hex(argument), size):
                call = ("OrvCreateBlock", 5, code, rounded, 0)
                self.check("createBlock", (5, argument, size), 0, [call])

    # Result of the library, result and code of its error query (None: no query), status.
    FAILURES = [
        (5, None, 0xE0000005), (-3, None, 0xE0400199), (-1, (0, 0x500010), 0xE0400199),
        (-1, (0, 0x270010), 0xEBE80010), (-1, (7, 0x270010), 0xE0000067),
        (-1, (-2, 0x270010), 0xE0400199),
    ]  # fmt: skip

    def test_failure_gets_its_status_from_the_error_query(self):
        for result, query, status in self.FAILURES:
            with self.case(result, query):
                double.answer("OrvCreateBlock", result)
                if query:
                    double.answer("OrvErrorQuery", query[0], code=query[1])
                self.assertEqual(pyORV3.createBlock(5, 2, 1), signed(status))
                self.assertEqual(double.calls()[1:], [("OrvErrorQuery", 5)] if query else [])


class TestDeleteBlock(double.TestCase):
    # Result and output of the record count, record that cannot be deleted, status, records that
    # are deleted.
    TABLE = [
        (0, 0, None, 0, []), (0, 3, None, 0, [3, 2, 1]), (0, 3, 2, 0xE0000007, [3, 2]),
        (0, 65535, 65533, 0xE0000007, [65535, 65534, 65533]), (-1, 3, None, 0xE0400199, []),
        (9, 3, None, 0xE0000009, []),
    ]  # fmt: skip

    def test_records_are_deleted_from_the_last_one_to_the_first_failure(self):
        for result, count, stuck, status, asked in self.TABLE:
            with self.case(result, count, stuck):
                double.answer("OrvRecordCount", result, count=count)
                if stuck:
                    double.answer("SOrvDeleteOne", 7, when={"record": stuck})
                deletions = [("SOrvDeleteOne", 5, 0x2000, record, 0) for record in asked]
                counted = ("OrvRecordCount", 5, 0x2000)
                self.check("deleteBlock", (5, 0x20000007), signed(status), [counted] + deletions)


class TestScript(double.TestCase):
    def test_unmatched_calls_are_reported(self):
        self.assertRaises(ValueError, double.answer, "SOrvFlush", throw="tantrum")
        for outputs in ({"buffer": b"abcdef"}, {"count": 1}):
            double.answer("SOrvGetParam", **outputs)
            self.assertEqual(double.orv_double.unused_answers(), ["SOrvGetParam"])
            status = pyORV3.getParameter(5, 0x00070008, 1, 1)[0]
            self.assertEqual(status, double.STANDARD_EXCEPTION)
