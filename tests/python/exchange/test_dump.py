"""A measurement as JSON and back, and the parameters that only another dictionary has."""

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

UNUSABLE = (  # what makes an extension one that is not used: a change of its first parameter
    {"code": 0x20050001},  # the class of channel contents
    {"code": 0x40010001},  # a class of bytes
    {"code": 2**32},
    {"code": -1},
    {"code": "0x20500001"},
    {"code": 0x20000300},  # twice
    {"name": "HUMIDITY"},
    {"name": "QAR_D_" + "X" * 13},
    {"type": "quad"},
    {"scope": None},
    {"type": "str"},  # without a length
    {"type": "str", "length": 0},
    {"type": "str", "length": 70000},
    {"description": "d" * 256},
)
NO_EXTENSIONS = ("", "{", "[" * 10000, '{"qar_dictionary": 2, "parameters": []}', " " * (5 << 20))

# A quarter of all milliseconds lie above the floating-point number that a file has of them.
DATES = "QAR_T_ACQSTOP QAR_T_CALDATE QAR_T_SAMPLETIME QAR_T_ENERGYTIME QAR_T_ANALYSED".split()

NO_DOCUMENTS = (
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
EVERYTHING = {  # a value of every type, and numbers that JSON has not
    "QAR_C_COMMENT": 'µ "\\\n', "QAR_S_ADCBITS": 65535, "QAR_B_PILEUPREJ": True, "QAR_F_AMPGAIN": 0.1,
    "QAR_D_LIVETIME": float("nan"), "QAR_D_REALTIME": float("inf"), "QAR_F_DEADTIME": float("-inf"),
    "QAR_Q_CLOCKTICKS": -(2**63), "QAR_T_ACQSTART": "2026-03-02T08:15:00.123Z",
}  # fmt: skip


class Dump(support.TestCase):
    def test_loads_into_an_equal_file(self):
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

    def test_tells_what_it_could_not_reach_or_store(self):
        with qar.open("a.qar", "x") as source:
            source["QAR_C_MEASNAME"] = "x"
            qar.errors.check(qar.handle.pyORV3.createBlock(source.handle, 0x4005, 9), "making")
            self.assertRegex(dump.dump(source)["not_reached"][0], "VORLAGEOM")
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

    def test_refuses_what_is_no_dump(self):
        for content in NO_DOCUMENTS:
            self.assertRaises(formats.FormatError, dump.read, self.write("a.json", content))
            ran = support.run("load", "a.json", "b.qar")
            self.assertEqual((ran.code, len(ran.err), self.names()), (2, 1, ["a.json"]), ran.err)

    def test_carries_parameters_that_only_the_other_dictionary_has(self):
        theirs = {"ORV_DICTIONARY": self.write("theirs.json", json.dumps(EXTENSION))}
        ours = {"ORV_DICTIONARY": "ours.json"}
        self.python("-c", USE_EXTENSION, **theirs)
        command = ("-m", "qar", "dump", "suite.qar", "-o", "a.json", "--dictionary", "ours.json")
        self.assertEqual(self.python(*command, **theirs), "")
        made = {p["name"]: p for p in json.loads(self.read("ours.json"))["parameters"]}
        self.assertEqual(
            (made["QAR_L_STEPS"]["scope"], made["QAR_C_ROOM"]["length"]), ("entry", 255)
        )
        for command in (("load", "a.json", "b.qar"), ("dump", "b.qar", "-o", "b.json")):
            self.assertEqual(self.python("-m", "qar", *command, **ours), "")
        first, second = (json.loads(self.read(name))["classes"] for name in ("a.json", "b.json"))
        self.assertEqual(first, second)
        entries = [{"QAR_L_STEPS": 3}, {"QAR_L_STEPS": 4}]
        self.assertEqual(first[2]["records"][0]["entries"], entries)

    def test_an_extension_with_any_fault_adds_nothing(self):
        said = self.python(
            "-c", TRY_EXTENSION, ORV_DICTIONARY=self.write("e.json", json.dumps(EXTENSION))
        )
        self.assertEqual(said.strip(), "QAR_D_HUMIDITY")
        others = EXTENSION["parameters"][1:]
        faulty = [
            json.dumps({**EXTENSION, "parameters": [{**HUMIDITY, **c}, *others]}) for c in UNUSABLE
        ]
        for content in [*faulty, *NO_EXTENSIONS]:
            extension = {"ORV_DICTIONARY": self.write("e.json", content), "PYORV3_TRACE": "-"}
            output = self.python("-c", TRY_EXTENSION, code=1, **extension)
            self.assertIn("NotFoundError", output.splitlines()[-1])
            self.assertIn("0x00008186", output)  # what the dictionary says of it
