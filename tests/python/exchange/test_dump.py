"""A measurement as JSON and back, and the parameters that only another dictionary has."""

import json
import os
import subprocess
import sys
import unittest

import qar
import support
from qar import dump, formats

EXTENSION = {
    "qar_dictionary": 1,
    "parameters": [
        {
            "code": 0x20500001,
            "name": "QAR_D_HUMIDITY",
            "type": "double",
            "scope": "record",
            "description": "d",
        },
        {
            "code": 0x20000300,
            "name": "QAR_C_ROOM",
            "type": "str",
            "scope": "record",
            "length": 9,
            "description": "d",
        },
        {
            "code": 0x20510001,
            "name": "QAR_L_STEPS",
            "type": "long",
            "scope": "entry",
            "description": "d",
        },
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

# A quarter of all milliseconds lie above the floating-point number that a file has of them.
DATES = "QAR_T_ACQSTOP QAR_T_CALDATE QAR_T_SAMPLETIME QAR_T_ENERGYTIME QAR_T_ANALYSED".split()

NO_DOCUMENTS = (
    b"[" * 100000,
    b'{"qar_measurement": 1, "spectrum": [' + b"1" * 100 + b"]}",
    b'{"qar_measurement": 2}',
    b'{"qar_measurement": 1, "spectrum": [1.5]}',
    b'{"qar_measurement": 1, "classes": [{"class": 65536, "records": []}]}',
    b'{"qar_measurement": 1, "classes": [{"class": 8192, "records": [{"entries": [1]}]}]}',
    b"\xff\xfe",
)


def dump_of(path):
    with qar.open(path) as source:
        document = dump.dump(source)
    del document["source"]
    return document


def make_everything(path):
    """A value of every type, records and entries with gaps, and numbers that JSON has not."""
    with qar.open(path, "x") as source:
        source.set_spectrum([5, 0, -7, 2147483647])
        source.update(
            {
                "QAR_C_COMMENT": 'µ "\\\n',
                "QAR_S_ADCBITS": 65535,
                "QAR_B_PILEUPREJ": True,
                "QAR_F_AMPGAIN": 0.1,
                "QAR_D_LIVETIME": float("nan"),
                "QAR_D_REALTIME": float("inf"),
                "QAR_F_DEADTIME": float("-inf"),
                "QAR_Q_CLOCKTICKS": -(2**63),
                "QAR_T_ACQSTART": "2026-03-02T08:15:00.123Z",
            }
        )
        for number, name in enumerate(DATES):
            source[name] = f"2026-11-25T03:44:{number + 50}.{862 - number}600Z"
        source.insert("QAR_CLS_NUCLIDE", 1)  # a record without a value
        source["QAR_D_HALFLIFE", 2] = 1e-300
        source["QAR_D_LINEENERGY", 2, 1] = 661.657
        source.insert("QAR_CLS_NUCLIDE", 2, 2)  # an entry without a value
        source["QAR_B_LINEKEY", 2, 3] = False


class Dump(support.TestCase):
    traced = False

    def environment(self, extension):
        trace = {"PYORV3_TRACE": "-"} if self.traced else {}
        return {**os.environ, "ORV_DICTIONARY": extension, "PYTHONIOENCODING": "utf-8", **trace}

    def python(self, extension, *arguments):
        result = subprocess.run(
            [sys.executable, "-B", *arguments], env=self.environment(extension),
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, encoding="utf-8", timeout=60,
        )  # fmt: skip
        return result.returncode, result.stdout.strip()

    def test_loads_into_an_equal_file(self):
        make_everything("a.qar")
        self.run_well("dump", "a.qar", "-o", "a.json")
        self.run_well("load", "a.json", "b.qar")
        document = dump_of("a.qar")
        self.assertEqual(dump_of("b.qar"), document)
        self.assertEqual(document["not_reached"], [])
        text = (self.folder / "a.json").read_text(encoding="utf-8")
        self.assertIn("[5, 0, -7, 2147483647]", text)
        classes = {content["class"]: content for content in document["classes"]}
        measurement, nuclides = classes[0x2000], classes[0x2004]
        self.assertEqual(measurement["records"][0]["values"]["QAR_D_LIVETIME"], "NaN")
        self.assertNotIn("QAR_C_MEASNAME", measurement["records"][0]["values"])
        lines = [{"QAR_D_LINEENERGY": 661.657}, {}, {"QAR_B_LINEKEY": False}]
        self.assertEqual([record.get("entries") for record in nuclides["records"]], [None, lines])

    def test_tells_what_it_could_not_reach_or_store(self):
        with qar.open("a.qar", "x") as source:
            source["QAR_C_MEASNAME"] = "x"
            qar.errors.check(qar.source.pyORV3.createBlock(source.handle, 0x4005, 9), "making")
        self.assertRegex(dump_of("a.qar")["not_reached"][0], "VORLAGEOM")
        values = {
            "QAR_L_CHANNELS": 2**40,
            "QAR_C_NOSUCH": 1,
            "QAR_T_ACQSTART": "2040-01-01T00:00:00Z",
        }
        document = {
            "qar_measurement": 1,
            "classes": [{"class": 0x2000, "records": [{"values": values}]}],
        }
        self.write("a.json", json.dumps({**document, "spectrum": [1] * 40000}))
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
        self.write("theirs.json", json.dumps(EXTENSION))
        self.assertEqual(self.python("theirs.json", "-c", USE_EXTENSION), (0, ""))
        command = ("-m", "qar", "dump", "suite.qar", "-o", "a.json", "--dictionary", "ours.json")
        self.assertEqual(self.python("theirs.json", *command), (0, ""))
        made = {
            p["name"]: p for p in json.loads((self.folder / "ours.json").read_text())["parameters"]
        }
        self.assertEqual(made["QAR_L_STEPS"]["scope"], "entry")
        self.assertEqual(self.python("ours.json", "-m", "qar", "load", "a.json", "b.qar"), (0, ""))
        self.assertEqual(
            self.python("ours.json", "-m", "qar", "dump", "b.qar", "-o", "b.json"), (0, "")
        )
        first, second = (
            json.loads((self.folder / name).read_text("utf-8")) for name in ("a.json", "b.json")
        )
        self.assertEqual(first["classes"], second["classes"])
        self.assertEqual(
            first["classes"][2]["records"][0]["entries"], [{"QAR_L_STEPS": 3}, {"QAR_L_STEPS": 4}]
        )

    def test_an_extension_with_any_fault_adds_nothing(self):
        first, *others = EXTENSION["parameters"]
        contents = [
            json.dumps({**EXTENSION, "parameters": [{**first, **c}, *others]}) for c in UNUSABLE
        ]
        contents += [
            "",
            "{",
            "[" * 10000,
            '{"qar_dictionary": 2, "parameters": []}',
            " " * (5 << 20),
        ]
        self.write("e.json", json.dumps(EXTENSION))
        self.assertEqual(self.python("e.json", "-c", TRY_EXTENSION), (0, "QAR_D_HUMIDITY"))
        self.traced = True
        for content in contents:
            code, output = self.python(self.write("e.json", content), "-c", TRY_EXTENSION)
            self.assertEqual(code, 1, content[:200])
            self.assertIn("NotFoundError", output.splitlines()[-1])
            self.assertIn("0x00008186", output)  # what the dictionary says of it


if __name__ == "__main__":
    unittest.main()
