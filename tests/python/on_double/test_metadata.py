"""Descriptions of parameters, from the dictionary or the environment."""

import os

import double
import orv_double
import pyORV3

OTHER = 0x12340001  # a code that is not in the double's dictionary
REFUSED = (double.BAD_ARGUMENTS, 0)


def get(code, name=""):
    return pyORV3.getParameterMetaData(5, code, name)


class TestDictionary(double.TestCase):
    KNOWN = [
        (0x20000007, ("QAR_L_CHANNELS", "Number of channels", 0x20000007, 0x2000, "long")),
        (0x00000023, ("BARE_DATE", "A date whose code has no class", 0x23, 0x23, "Date")),
    ]
    TYPES = {
        2: "byte", 6: "byte", 3: "short", 7: "short", 8: "long", 9: "longlong", 10: "float",
        14: "str", 24: "str", 27: "double", 192: "double", 35: "Date", 5: "", 0x10008: "",
    }  # fmt: skip

    def test_type_is_returned_by_name(self):
        for kind, name in self.TYPES.items():
            with self.case(kind):
                double.answer("pqar_util_getpinfo", 1, name=b"N", type=kind)
                self.assertEqual(get(OTHER), (0, ("N", "", OTHER, 0x1234, name)))

    def test_parameter_is_found_by_code_and_by_name(self):
        for code, metadata in self.KNOWN:
            asked = ("pqar_util_getpinfo", code, 1, 0)
            named = ("pqar_util_pname2code", metadata[0].encode())
            with self.case(metadata):
                self.assertEqual(get(code), (0, metadata))
                self.assertEqual(get(OTHER, metadata[0]), (0, metadata))
                self.assertEqual(double.calls(), [asked, named, asked])
                self.assertFalse(orv_double.is_mapped("pqar"))

    # Reply of the dictionary for OTHER, returned name and description.
    TEXTS = [
        ({"name": b"N  \t\r\n\v\f", "description": b" D \n"}, "N", " D"),
        ({"name": b" ", "description": b"\n"}, "", ""),
        ({"name": b"N", "description": b"K\x80fig"}, "N", "N"),
        ({"name": b"K\xe4fig", "description": b"D"}, "K\u00e4fig", "D"),
        ({"name": b"N" * 256, "description": b"D" * 256}, "N" * 55, "D" * 255),
        ({"name": b"NN" + "\u20ac".encode() * 18}, "NN" + "\u20ac" * 17, ""),
    ]

    def test_strings_are_trimmed(self):
        for reply, name, description in self.TEXTS:
            with self.case(reply):
                double.answer("pqar_util_getpinfo", 1, type=8, **reply)
                self.assertEqual(get(OTHER), (0, (name, description, OTHER, 0x1234, "long")))

    def test_code_is_returned_as_a_signed_number(self):
        code = double.signed(0x80070008)
        double.answer("pqar_util_getpinfo", 1, times=2, name=b"N", type=8)
        double.answer("pqar_util_pname2code", 1, code=0x80070008)
        for arguments in ((code,), (0, "N")):
            self.assertEqual(get(*arguments), (0, ("N", "", code, 0x8007, "long")))
            asked = double.arguments("pqar_util_getpinfo")[-1]["code"]
            self.assertEqual(asked, 0x80070008)

    def test_unknown_parameter_is_refused(self):
        with self.case("code 0 is not asked for"):
            self.check("getParameterMetaData", (5, 0, ""), REFUSED, [])
        with self.case("code"):
            self.assertEqual(get(OTHER), REFUSED)
        with self.case("name of a code that is unknown"):
            double.answer("pqar_util_pname2code", 1, code=OTHER)
            self.assertEqual(get(0, "NO_SUCH_NAME"), REFUSED)
        self.assertFalse(orv_double.is_mapped("pqar"))


class TestEnvironment(double.TestCase):
    NAME = "PYORV3_TEST_SETTING"

    def set(self, name, value):
        os.environ[name] = value
        self.addCleanup(os.environ.pop, name, None)

    def test_long_value_of_the_environment_is_returned_whole(self):
        asked = [("pqar_util_pname2code", self.NAME.encode())]
        for value in ("a value", *("x" * length for length in (254, 255, 256, 257, 5000))):
            with self.case(len(value)):
                self.set(self.NAME, value)
                metadata = (self.NAME, value, 0, 0, "str")
                self.check("getParameterMetaData", (5, 0, self.NAME), (0, metadata), asked)
        self.set("LONG", "a value")
        self.assertEqual(get(0, "LONG")[1][2], 0x00070008)

    def test_missing_or_empty_value_is_refused(self):
        self.assertEqual(get(0x00070008, self.NAME), REFUSED)
        self.set(self.NAME, "")
        self.assertEqual(get(0, self.NAME), REFUSED)
