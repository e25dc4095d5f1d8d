"""Blocks, records, entries, copies and the nuclide search."""

import struct
import unittest

import double
import pyORV3

signed = double.signed


class Arguments(double.TestCase):
    # The class argument of a script and the class code of the library.
    CLASSES = [
        (0x20000007, 0x2000),
        (0x00002005, 0x2005),
        (0x2005FFFF, 0x2005),
        (0x00010000, 1),
        (signed(0xFFFF0003), 0xFFFF),
        (signed(0x80000000), 0x8000),
        (0x0000FFFF, 0xFFFF),
        (0, 0),
    ]

    def test_class_is_the_high_half_where_there_is_one(self):
        for argument, code in self.CLASSES:
            with self.case(hex(argument)):
                pyORV3.createBlock(5, argument, 256)
                pyORV3.deleteBlock(5, argument)
                pyORV3.delete(5, argument, 1, 1)
                pyORV3.insert(5, argument, 1, 1)
                pyORV3.count(5, argument, 0)
                pyORV3.moveRecordsTo(5, 6, argument, 1, 1)
                received = [values["classCode"] for _, values in double.orv_double.calls()]
                self.assertEqual(received, [code] * 6)

    # The method, its arguments, and the one library call.
    CALLS = [
        ("delete", (5, 2, 3, 4), ("SOrvDeleteOne", 5, 2, 3, 4)),
        ("delete", (5, 2, -4, -1), ("SOrvDeleteOne", 5, 2, 0, 0)),
        ("delete", (5, 2, 65537, 65538), ("SOrvDeleteOne", 5, 2, 1, 2)),
        ("deleteLevel", (5, -9), ("SOrvDeleteLevel", 5, -9)),
        ("insert", (5, 2, 3, 4), ("SOrvInsertOne", 5, 2, 3, 4)),
        ("insert", (5, 2, -4, -1), ("SOrvInsertOne", 5, 2, -4, 0)),
        ("insert", (5, 2, 0, 0), ("SOrvInsertOne", 5, 2, 0, 0)),
        ("copyTo", (5, 6, 0x20000007), ("SOrvClassCopy", 5, 6, 0x2000)),
        ("copyTo", (5, 6, 0), ("SOrvSaveAs", 5, 6)),
        ("copyTo", (5, 6, -1), ("SOrvSaveAs", 5, 6)),
        ("moveRecordsTo", (5, 6, 2, 3, 4), ("SOrvCopyRecord", 5, 2, 3, 6, 4, 0)),
    ]

    def test_reach_the_library_and_its_code_comes_back(self):
        for method, arguments, call in self.CALLS:
            for result, status in ((0, 0), (0x270010, signed(0xEBE80010))):
                with self.case(method, arguments, result):
                    double.answer(call[0], result)
                    self.assertEqual(getattr(pyORV3, method)(*arguments), status)
                    self.assertEqual(double.calls(), [call])


class CreateBlock(double.TestCase):
    SIZES = [
        (0x2005, -5, 256),
        (0x2005, 0, 256),
        (0x2005, 256, 256),
        (0x2005, 257, 512),
        (0x2005, 300, 512),
        (0x2005, 1024, 1024),
        (0x2005, 1025, 2048),
        (0x2005, 4096, 4096),
        (0x2005, 8191, 8192),
        (0x2005, 16384, 16384),
        (0x2005, 16385, 32768),
        (0x20050001, 100000, 32768),
        (0x2000, 300, 300),
        (0x2000, -5, -5),
    ]

    def test_spectrum_sizes_are_rounded(self):
        for class_argument, size, received in self.SIZES:
            with self.case(class_argument, size):
                self.assertEqual(pyORV3.createBlock(5, class_argument, size), 0)
                code = class_argument >> 16 or class_argument
                self.assertEqual(double.calls(), [("OrvCreateBlock", 5, code, received, 0)])

    # Result of the library; of its error query and the code there (None: not asked); the status.
    FAILURES = [
        (5, None, 0xE0000005),
        (-3, None, 0xE0400199),
        (-1, (0, 0x500010), 0xE0400199),
        (-1, (0, 0x270010), 0xEBE80010),
        (-1, (7, 0x270010), 0xE0000067),
        (-1, (-2, 0x270010), 0xE0400199),
    ]

    def test_failure_is_resolved_by_the_error_query(self):
        for result, query, status in self.FAILURES:
            with self.case(result, query):
                double.answer("OrvCreateBlock", result)
                if query:
                    double.answer("OrvErrorQuery", query[0], code=query[1])
                self.assertEqual(pyORV3.createBlock(5, 2, 1), signed(status))
                queries = [("OrvErrorQuery", 5)] if query else []
                self.assertEqual(double.calls()[1:], queries)


class DeleteBlock(double.TestCase):
    # Records in the class, the record that cannot be deleted, the records asked for.
    TABLE = [
        (0, None, []),
        (3, None, [3, 2, 1]),
        (3, 3, [3]),
        (3, 2, [3, 2]),
        (65535, 65533, [65535, 65534, 65533]),
    ]

    def test_deletes_from_the_last_record_to_the_first_failure(self):
        for count, stuck, asked in self.TABLE:
            with self.case(count, stuck):
                double.answer("OrvRecordCount", count=count)
                if stuck:
                    double.answer("SOrvDeleteOne", 7, when={"record": stuck})
                status = signed(0xE0000007) if stuck else 0
                self.assertEqual(pyORV3.deleteBlock(5, 0x2000), status)
                deletions = [("SOrvDeleteOne", 5, 0x2000, record, 0) for record in asked]
                self.assertEqual(double.calls(), [("OrvRecordCount", 5, 0x2000)] + deletions)

    def test_unknown_count_deletes_nothing(self):
        for result, status in ((-1, 0xE0400199), (9, 0xE0000009)):
            with self.case(result):
                double.answer("OrvRecordCount", result, count=3)
                self.assertEqual(pyORV3.deleteBlock(5, 2), signed(status))
                self.assertEqual(double.calls(), [("OrvRecordCount", 5, 2)])


class Count(double.TestCase):
    TABLE = [
        ((5, 0x2005, 0), ("SOrvClassCount", 5, 0x2005)),
        ((5, 0x20000007, -1), ("SOrvClassCount", 5, 0x2000)),
        ((5, 0, 2), ("SOrvClassCount", 5, 0)),
        ((5, 0x2005, 2), ("SOrvEntryCount", 5, 0x2005, 2)),
        ((5, 0x20000007, 2), ("SOrvEntryCount", 5, 0x20000007, 2)),
        ((5, -1, 65537), ("SOrvEntryCount", 5, -1, 1)),
    ]

    def test_counts_records_or_entries(self):
        for arguments, call in self.TABLE:
            for result, counted in ((0, (0, 65535)), (7, (signed(0xE0000007), 0))):
                with self.case(arguments, result):
                    double.answer(call[0], result, count=65535)
                    self.assertEqual(pyORV3.count(*arguments), counted)
                    self.assertEqual(double.calls(), [call])


class NuclideSearch(double.TestCase):
    # The method, its arguments after the handle and before the option, the kind and the key.
    TABLE = [
        ("findNuclideByName", ("Co-60",), 2, b"Co-60\0"),
        ("findNuclideByName", ("",), 2, b"\0"),
        ("findNuclideByName", ("\u03b2",), 2, b"\xce\xb2\0"),
        ("findNuclideByName", ("x" * 5000,), 2, b"x" * 5000 + b"\0"),
        ("findNuclideByEnergy", (1332.5, -0.1), 4, struct.pack("<ff", 1332.5, -0.1)),
        ("findNuclideByEnergy", (3, 0), 4, struct.pack("<ff", 3.0, 0.0)),
    ]

    def test_key_and_option_reach_the_library(self):
        for method, key, kind, received in self.TABLE:
            for result, found in ((0, (0, 65535)), (7, (signed(0xE0000007), 0))):
                with self.case(method, key[0], result):
                    double.answer("SOrvFindRecord", result, record=65535, word=1)
                    self.assertEqual(getattr(pyORV3, method)(5, *key, -3), found)
                    self.assertEqual(
                        double.calls(), [("SOrvFindRecord", 5, kind, received, -3)]
                    )


if __name__ == "__main__":
    unittest.main()
