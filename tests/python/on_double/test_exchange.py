"""The exchange over a suite whose dictionary and codes it does not know, on Windows as well."""

import os
import sys
import tempfile

import double
import qar
from double import FAILURE, FOR_EVER
from qar import command_line, dictionary_extension, dump, exchange, formats, salvage

HANDLE = 7
NO_VALUE, NO_ENTRY = 0x8110, 0x810D


def answer_value(name, record, entry, buffer):
    """What the library says to a parameter at one place."""
    code = qar.dictionary.describe(name).code
    when = {"code": code, "record": record, "entry": entry}
    double.answer("SOrvGetParam", when=when, buffer=buffer, times=FOR_EVER)


class Exchange(double.TestCase):
    def setUp(self):
        super().setUp()
        qar.dictionary.forget()
        self.addCleanup(qar.dictionary.forget)

    def test_a_dump_finds_classes_parameters_and_where_their_values_stand(self):
        double.answer("SOrvCreateDSC2", context=HANDLE)
        double.answer("SOrvClassCount", when={"classCode": 7}, count=2, times=FOR_EVER)
        double.answer("SOrvEntryCount", when={"record": 1}, count=0, times=FOR_EVER)
        double.answer("SOrvEntryCount", when={"record": 2}, count=2, times=FOR_EVER)
        double.answer("SOrvGetParam", NO_VALUE, times=FOR_EVER)
        answer_value("TEXT", 1, 1, b"peak\0")
        answer_value("TEXT", 2, 1, b"p\xe4k\0")
        answer_value("LONG", 2, 2, b"\x05\0\0\0")
        answer_value("DOUBLE", 2, 1, b"\0\0\0\0\0\0\xf0\x7f")  # infinity
        codes = {name: qar.dictionary.describe(name).code for name in ("TEXT", "FLOAT")}
        double.answer("SOrvGetParam", NO_ENTRY, when={"code": codes["TEXT"], "entry": 2})
        double.answer("SOrvGetParam", FAILURE, when={"code": codes["FLOAT"], "record": 1})
        with qar.open("suite.qar") as source:
            document = dump.dump(source, 0xFF)
        entries = [{}, {"LONG": 5}]
        second = {"values": {"DOUBLE": "Infinity", "TEXT": "päk"}, "entries": entries}
        records = [{"values": {"TEXT": "peak"}}, second]
        self.assertEqual(document["classes"], [{"class": 7, "records": records}])
        self.assertEqual(document["parameters"]["TEXT"]["type"], "str")
        (failure,) = document["not_reached"]
        self.assertIn("FLOAT", failure)
        extension = dictionary_extension.extension(document, 0xFF)
        self.assertIn("LONG", extension.left_out)  # a name that the embedded library cannot have

    def test_salvage_goes_on_by_records_where_a_class_cannot_be_copied(self):
        double.answer("SOrvCreateDSC2", context=HANDLE)
        double.answer("SOrvCreateDSC2", context=HANDLE + 1)
        double.answer("SOrvClassCount", 0x8118, when={"classCode": 8})  # damaged
        double.answer("SOrvClassCount", when={"classCode": 7}, count=3)
        double.answer("SOrvClassCopy", FAILURE, when={"classCode": 7}, times=FOR_EVER)
        double.answer("SOrvCopyRecord", FAILURE, when={"sourceRecord": 2})
        copied, lost = {}, []
        with qar.open("damaged.qar") as source, qar.open("new.qar", "x") as copy:
            for number in (7, 8, 9):
                salvage.copy_class(source, copy, number, copied, lost)
        self.assertEqual(copied, {"class 0x0007": 2})
        self.assertRegex("\n".join(lost), "^class 0x0007: 1 of 3 records: .*\nclass 0x0008: ")
        places = [
            (c["sourceRecord"], c["destinationRecord"]) for c in double.arguments("SOrvCopyRecord")
        ]
        self.assertEqual(places, [(1, 1), (2, 2), (3, 2)])

    def test_formats_work_without_the_library(self):
        measurement = formats.Measurement(
            (5, 6), live_time=1.5, real_time=2.0, energy=(0.5, 0.25), title="ü"
        )
        with tempfile.TemporaryDirectory() as folder:
            for name in ("spe", "csv", "text"):
                path = os.path.join(folder, "a" + formats.FORMATS[name].suffix)
                formats.write(path, measurement, name)
                (found,) = exchange.read_any(path)
                self.assertEqual(found[:-1], measurement[:-1])
            self.assertEqual(len(os.listdir(folder)), 3)
        self.assertEqual(command_line.main(["status", "0"]), 0)
        if os.name == "nt":
            late = {"multiprocessing", "socket", "subprocess", "zlib"}
            self.assertEqual(late & set(sys.modules), set())
