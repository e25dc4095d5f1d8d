"""Dumps of measurements, and extensions of the dictionary."""

import json

import qar
import support
from qar import formats
from qar.transfer import dump

HUMIDITY = {
    "code": 0x20500001, "name": "QAR_D_HUMIDITY", "type": "double", "scope": "record", "description": "d",
}  # fmt: skip
EXTENSION = {
    "qar_dictionary": 1,
    "parameters": [
        HUMIDITY,
        {**HUMIDITY, "code": 0x20000300, "name": "QAR_C_ROOM", "type": "str", "length": 9},
        {**HUMIDITY, "code": 0x20510001, "name": "QAR_L_STEPS", "type": "long", "scope": "entry"},
    ],
}
USE_EXTENSION = """\
import qar
with qar.open("suite.qar", "x") as source:
    source["QAR_D_HUMIDITY", 2 - 1] = 55.5
    source["QAR_C_ROOM"] = "küche 12"
    source.set_column(0x20510001, [3, 4])
    source["QAR_L_STEPS", 2, 2 - 1] = 5
"""
TRY_EXTENSION = "import qar; print(qar.dictionary.describe(0x20500001).name)"

INVALID = (  # changes of the first parameter that make an extension invalid
    {"code": 0x20050001},  # the class of channel contents
    {"code": 0x40010001},  # a class of bytes
    {"code": 2**32},
    {"code": -1},
    {"code": "0x20500001"},
    {"code": 0x20000300},  # used twice
    {"name": "HUMIDITY"},
    {"name": "QAR_D_" + "X" * 13},
    {"type": "quad"},
    {"scope": None},
    {"type": "str"},  # without a length
    {"type": "str", "length": 0},
    {"type": "str", "length": 70000},
    {"description": "d" * 256},
)
NOT_EXTENSIONS = ("", "{", "[" * 10000, '{"qar_dictionary": 2, "parameters": []}', " " * (5 << 20))

DATES = "QAR_T_ACQSTOP QAR_T_CALDATE QAR_T_SAMPLETIME QAR_T_ENERGYTIME QAR_T_ANALYSED".split()

NOT_DUMPS = (
    b"[" * 100000,
    b'{"qar_measurement": 1, "spectrum": [' + b"1" * 100 + b"]}",
    b'{"qar_measurement": 2}',
    b'{"qar_measurement": 1, "spectrum": [1.5]}',
    b'{"qar_measurement": 1, "classes": {}}',
    b'{"qar_measurement": 1, "parameters": {"A": []}}',
    b'{"qar_measurement": 1, "classes": [{"class": 65536, "records": []}]}',
    b'{"qar_measurement": 1, "classes": [{"class": 8192, "records": [{"entries": [1]}]}]}',
    b"\xff\xfe",
)
EVERYTHING = {  # a value of every type, and numbers that JSON does not have
    "QAR_C_COMMENT": 'µ "\\\n', "QAR_S_ADCBITS": 65535, "QAR_B_PILEUPREJ": True, "QAR_F_AMPGAIN": 0.1,
    "QAR_D_LIVETIME": float("nan"), "QAR_D_REALTIME": float("inf"), "QAR_F_DEADTIME": float("-inf"),
    "QAR_Q_CLOCKTICKS": -(2**63), "QAR_T_ACQSTART": "2026-03-02T08:15:00.123Z",
}  # fmt: skip


class TestDump(support.TestCase):
    def test_loaded_dump_equals_the_file(self):
        with qar.open("a.qar", "x") as source:
            source.set_spectrum([5, 0, -7, 2147483647])
            source.update(EVERYTHING)
            for number, name in enumerate(DATES):
                source[name] = f"2026-11-25T03:44:{number + 50}.{862 - number}600Z"
            source.insert("QAR_CLS_NUCLIDE", 1)  # a record without a value
            source["QAR_D_HALFLIFE", 2] = 1e-300
            source["QAR_D_LINEENERGY", 2, 1] = 661.657
            source.insert("QAR_CLS_NUCLIDE", 2, 2)  # an entry without a value
            source["QAR_B_LINEKEY", 2, 3] = False
        self.run_well("dump", "a.qar", "-o", "a.json")
        self.run_well("load", "a.json", "b.qar")
        text = self.read("a.json")
        document = json.loads(text)
        with qar.open("b.qar") as source:
            self.assertEqual(dump.dump(source), {**document, "source": "b.qar"})
        self.assertEqual(document["not_reached"], [])
        self.assertIn("[5, 0, -7, 2147483647]", text)
        classes = {content["class"]: content["records"] for content in document["classes"]}
        values = classes[0x2000][0]["values"]
        self.assertEqual((values["QAR_D_LIVETIME"], "QAR_C_MEASNAME" in values), ("NaN", False))
        lines = [{"QAR_D_LINEENERGY": 661.657}, {}, {"QAR_B_LINEKEY": False}]
        self.assertEqual([record.get("entries") for record in classes[0x2004]], [None, lines])

    def test_class_without_parameters_is_listed_as_not_reached(self):
        with qar.open("a.qar", "x") as source:
            source["QAR_C_MEASNAME"] = "x"
            qar.errors.check(qar.handle.pyORV3.createBlock(source.handle, 0x4005, 9), "creating")
            self.assertRegex(dump.dump(source)["not_reached"][0], "VORLAGEOM")

    def test_values_that_cannot_be_stored_are_listed(self):
        values = {
            "QAR_L_CHANNELS": 2**40,
            "QAR_C_NOSUCH": 1,
            "QAR_T_ACQSTART": "2040-01-01T00:00:00Z",
        }
        classes = [{"class": 0x2000, "records": [{"values": values}]}]
        parameters = {"QAR_C_NOSUCH": {"code": qar.constants.QAR_D_LIVETIME, "type": "str"}}
        document = {"classes": classes, "spectrum": [1] * 40000, "parameters": parameters}
        self.write("a.json", json.dumps({"qar_measurement": 1, **document}))
        ran = support.run("load", "a.json", "b.qar")
        self.assertEqual((ran.code, len(ran.err)), (1, 4), ran.err)
        with qar.open("b.qar") as source:
            self.assertEqual(source.spectrum(), (1,) * 32768)

    def test_load_stops_at_the_first_record_that_does_not_fit(self):
        classes = [{"class": 0x2006, "records": [{}] * 66000}]
        (failure,) = dump.load({"qar_measurement": 1, "classes": classes}, "a.qar")
        self.assertIn("records 65,536 to 66,000", failure)
        with qar.open("a.qar") as source:
            self.assertEqual(source.record_count(0x2006), 65535)

    def test_other_json_is_refused(self):
        for content in NOT_DUMPS:
            self.assertRaises(formats.FormatError, dump.read, self.write("a.json", content))
            ran = support.run("load", "a.json", "b.qar")
            self.assertEqual((ran.code, len(ran.err), self.names()), (2, 1, ["a.json"]), ran.err)

    def test_dump_and_extension_carry_parameters_of_another_dictionary(self):
        theirs = {"ORV_DICTIONARY": self.write("theirs.json", json.dumps(EXTENSION))}
        ours = {"ORV_DICTIONARY": "ours.json"}
        self.python("-c", USE_EXTENSION, **theirs)
        command = ("-m", "qar", "dump", "suite.qar", "-o", "a.json", "--dictionary", "ours.json")
        self.assertEqual(self.python(*command, **theirs), "ours.json\na.json\n")
        rows = {p["name"]: p for p in json.loads(self.read("ours.json"))["parameters"]}
        self.assertEqual(
            (rows["QAR_L_STEPS"]["scope"], rows["QAR_C_ROOM"]["length"]), ("entry", 255)
        )
        for command in (("load", "a.json", "b.qar"), ("dump", "b.qar", "-o", "b.json")):
            self.assertEqual(self.python("-m", "qar", *command, **ours), f"{command[-1]}\n")
        first, second = (json.loads(self.read(name))["classes"] for name in ("a.json", "b.json"))
        self.assertEqual(first, second)
        entries = [{"QAR_L_STEPS": 3}, {"QAR_L_STEPS": 4}]
        self.assertEqual(first[2]["records"][0]["entries"], entries)

    def test_invalid_extension_adds_no_parameter(self):
        valid = self.write("e.json", json.dumps(EXTENSION))
        output = self.python("-c", TRY_EXTENSION, ORV_DICTIONARY=valid)
        self.assertEqual(output.strip(), "QAR_D_HUMIDITY")
        others = EXTENSION["parameters"][1:]
        faulty = [
            json.dumps({**EXTENSION, "parameters": [{**HUMIDITY, **c}, *others]}) for c in INVALID
        ]
        for content in [*faulty, *NOT_EXTENSIONS]:
            extension = {"ORV_DICTIONARY": self.write("e.json", content), "PYORV3_TRACE": "-"}
            output = self.python("-c", TRY_EXTENSION, code=1, **extension)
            self.assertIn("NotFoundError", output.splitlines()[-1])
            self.assertIn("0x00008186", output)  # the message of the dictionary
