"""The package qar over a suite whose dictionary and codes it does not know."""

import os
import sys

import double
import pyORV3
import qar
from double import FAILURE

HANDLE = 7


class Package(double.TestCase):
    def setUp(self):
        super().setUp()
        qar.dictionary.forget()
        self.addCleanup(qar.dictionary.forget)

    def open(self, mode="r+"):
        double.answer("SOrvCreateDSC2", context=HANDLE)
        return qar.open("sample.qar", mode)

    def test_comes_from_the_same_place_as_the_module(self):
        folders = {os.path.dirname(pyORV3.__file__), os.path.dirname(os.path.dirname(qar.__file__))}
        self.assertEqual(len(folders), 1)
        late = {"ctypes", "multiprocessing", "numpy", "socket", "sqlite3", "subprocess", "zlib"}
        if os.name == "nt":
            self.assertEqual(late & set(sys.modules), set())

    def test_works_by_the_names_of_the_suites_own_dictionary(self):
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
        self.assertEqual((described.code, described.type_name, described.unit), (0x70023, "Date", ""))
        names = [parameter.name for parameter in qar.dictionary.parameters_of("TEXT")]
        self.assertEqual(names[0], "BYTE")
        with self.assertRaises(qar.NotFoundError):
            qar.dictionary.describe("QAR_D_LIVETIME")

    def test_reads_no_more_entries_than_the_library_counts(self):
        source = self.open()
        double.answer("SOrvEntryCount", count=3)
        double.answer("SOrvGetParam", times=3, buffer=b"\0" * 8)
        self.assertEqual(source.column("DOUBLE"), [0.0] * 3)

    def test_raises_what_it_does_not_know_with_its_code(self):
        source = self.open()
        double.answer("SOrvFlush", FAILURE)
        with self.assertRaises(qar.LibraryError) as caught:
            source.flush()
        self.assertEqual(caught.exception.status, 0xEBE80010)
        self.assertIn("saving 'sample.qar'", str(caught.exception))

    def test_gives_a_failed_creation_its_handle_back(self):
        double.answer("SOrvCreateFile", FAILURE)
        with self.assertRaises(qar.LibraryError):
            self.open("x")
        self.assertEqual(len(double.arguments("SOrvCloseDataSource")), 1)

    def test_opens_inputs_with_their_source_type(self):
        double.answer("SOrvCreateDSC2", context=HANDLE)
        qar.open_input("DET1", "r")
        opened = double.arguments("SOrvOpenDataSource")[-1]
        self.assertEqual((opened["sourceType"], opened["accessMode"]), (769, 1))
