"""The package qar on a suite with an unknown dictionary and unknown codes, also on Windows."""

import os
import sys
import tempfile

import double
import qar
from double import FAILURE, FOR_EVER
from qar import formats
from qar.cli import main
from qar.transfer import dictionary_extension, dump, salvage

HANDLE = 7
NO_VALUE, NO_ENTRY, DAMAGED = 0x8110, 0x810D, 0x8118


class TestCase(double.TestCase):
    def setUp(self):
        super().setUp()
        qar.dictionary.forget()
        self.addCleanup(qar.dictionary.forget)

    def open(self, mode="r+", handle=HANDLE):
        double.answer("SOrvCreateDSC2", context=handle)
        return qar.open("sample.qar", mode)


class TestDataSource(TestCase):
    def test_parameters_of_the_suite_work_by_name(self):
        source = self.open()
        values = {"BYTE": True, "WORD": 7, "QUANTITY": 2.5, "TEXT": "peak", "LONGLONG": -(2**40)}
        for name, value in values.items():
            with self.subTest(name):
                source[name, 2] = value
                written = double.arguments("SOrvPutParam")[-1]
                self.assertEqual((written["context"], written["record"]), (HANDLE, 2))
                double.answer("SOrvGetParam", buffer=written["value"])
                self.assertEqual(source[name, 2, 3], value)
                self.assertIsNone(qar.dictionary.describe(name).per_entry)
        described = qar.dictionary.describe("DATE")
        self.assertEqual(
            (described.code, described.type_name, described.unit), (0x70023, "Date", "")
        )
        self.assertEqual(qar.dictionary.parameters_of("TEXT")[0].name, "BYTE")
        self.assertEqual(qar.dictionary.class_of(qar.dictionary.signed(0x90000001)), 0x9000)
        with self.assertRaises(qar.NotFoundError):
            qar.dictionary.describe("QAR_D_LIVETIME")

    def test_column_ends_at_the_entry_count(self):
        source = self.open()
        double.answer("SOrvEntryCount", count=3)
        double.answer("SOrvGetParam", times=3, buffer=b"\0" * 8)
        self.assertEqual(source.column("DOUBLE"), [0.0] * 3)

    def test_unknown_status_is_raised_with_its_code(self):
        source = self.open()
        calls = (
            ("SOrvFlush", source.flush, "saving 'sample.qar'"),
            ("SOrvGetParam", lambda: source.get("DOUBLE"), "reading 'DOUBLE'"),
        )
        for function, call, message in calls:
            double.answer(function, FAILURE)
            with self.assertRaisesRegex(qar.LibraryError, message) as caught:
                call()
            self.assertEqual(caught.exception.status, 0xEBE80010)

    def test_handle_of_a_failed_creation_is_closed(self):
        double.answer("SOrvCreateFile", FAILURE)
        with self.assertRaises(qar.LibraryError):
            self.open("x")
        self.assertEqual(len(double.arguments("SOrvCloseDataSource")), 1)

    def test_input_is_opened_with_its_source_type(self):
        double.answer("SOrvCreateDSC2", context=HANDLE)
        qar.open_input("DET1", "r")
        opened = double.arguments("SOrvOpenDataSource")[-1]
        self.assertEqual((opened["sourceType"], opened["accessMode"]), (769, 1))


class TestTransfer(TestCase):
    def test_dump_finds_classes_parameters_and_the_entries_of_values(self):
        double.answer("SOrvClassCount", when={"classCode": 7}, count=2, times=FOR_EVER)
        double.answer("SOrvEntryCount", when={"record": 1}, count=0, times=FOR_EVER)
        double.answer("SOrvEntryCount", when={"record": 2}, count=2, times=FOR_EVER)
        double.answer("SOrvGetParam", NO_VALUE, times=FOR_EVER)
        values = (
            ("TEXT", 1, 1, b"peak\0"), ("TEXT", 2, 1, b"p\xe4k\0"), ("LONG", 2, 2, b"\x05\0\0\0"),
            ("DOUBLE", 2, 1, b"\0\0\0\0\0\0\xf0\x7f"),  # infinity
        )  # fmt: skip
        codes = {
            name: qar.dictionary.describe(name).code for name in ("TEXT", "LONG", "DOUBLE", "FLOAT")
        }
        for name, record, entry, buffer in values:
            cell = {"code": codes[name], "record": record, "entry": entry}
            double.answer("SOrvGetParam", when=cell, buffer=buffer, times=FOR_EVER)
        double.answer("SOrvGetParam", NO_ENTRY, when={"code": codes["TEXT"], "entry": 2})
        double.answer("SOrvGetParam", FAILURE, when={"code": codes["FLOAT"], "record": 1})
        with self.open("r") as source:
            document = dump.dump(source, 0xFF)
        second = {"values": {"DOUBLE": "Infinity", "TEXT": "päk"}, "entries": [{}, {"LONG": 5}]}
        records = [{"values": {"TEXT": "peak"}}, second]
        self.assertEqual(document["classes"], [{"class": 7, "records": records}])
        self.assertEqual(document["parameters"]["TEXT"]["type"], "str")
        (failure,) = document["not_reached"]
        self.assertIn("FLOAT", failure)
        extension = dictionary_extension.extension(document, 0xFF)
        self.assertIn("LONG", extension.left_out)  # a name that the embedded library refuses

    def test_salvage_copies_records_if_a_class_cannot_be_copied(self):
        double.answer("SOrvClassCount", DAMAGED, when={"classCode": 8})
        double.answer("SOrvClassCount", when={"classCode": 7}, count=3)
        double.answer("SOrvClassCopy", FAILURE, when={"classCode": 7}, times=FOR_EVER)
        double.answer("SOrvCopyRecord", FAILURE, when={"sourceRecord": 2})
        copied, lost = {}, []
        with self.open("r") as source, self.open("x", HANDLE + 1) as copy:
            for number in (7, 8, 9):
                salvage.copy_class(source, copy, number, copied, lost)
        self.assertEqual(copied, {"class 0x0007": 2})
        self.assertRegex("\n".join(lost), "^class 0x0007: 1 of 3 records: .*\nclass 0x0008: ")
        calls = double.arguments("SOrvCopyRecord")
        records = [(call["sourceRecord"], call["destinationRecord"]) for call in calls]
        self.assertEqual(records, [(1, 1), (2, 2), (3, 2)])

    def test_other_formats_work_without_the_library(self):
        measurement = formats.Measurement((5, 6), 1.5, 2.0, energy=(0.5, 0.25), title="ü")
        with tempfile.TemporaryDirectory() as folder:
            for name in ("spe", "csv", "text"):
                path = os.path.join(folder, "a" + formats.FORMATS[name].suffixes[0])
                formats.write(path, measurement, name)
                (result,) = formats.read(path)
                self.assertEqual(result[:-2], measurement[:-2])
            self.assertEqual(len(os.listdir(folder)), 3)
        self.assertEqual(main.main(["status", "0"]), 0)
        if os.name == "nt":
            late = {"ctypes", "multiprocessing", "numpy", "socket", "sqlite3", "subprocess", "zlib"}
            self.assertEqual(late & set(sys.modules), set())
