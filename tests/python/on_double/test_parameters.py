"""Single parameters: what is asked of the dictionary and the library, and the conversions."""

import math
import struct

import double
import pyORV3
from double import FAILED, FAILURE, NoNumber

# Codes of the double's dictionary, called after their data types.
BYTE, FLAG, SHORT, WORD = 0x00070002, 0x00070006, 0x00070003, 0x00070007
LONG, LONGLONG, FLOAT = 0x00070008, 0x00070009, 0x0007000A
TEXT, LONG_TEXT = 0x0007000E, 0x00070018  # 12 and 40 characters
DOUBLE, QUANTITY, DATE, BARE_DATE = 0x0007001B, 0x000700C0, 0x00070023, 0x00000023
OTHER = 0x12340001  # what a test makes of it


def describe_other(**outputs):
    """Scripts the dictionary's answer for OTHER."""
    double.answer("pqar_util_getpinfo", 1, when={"code": OTHER}, **outputs)


class GetParameter(double.TestCase):
    # Parameter, value bytes, size of the buffer that is asked for, value.
    VALUES = [
        (BYTE, b"\2", 2, True),
        (FLAG, b"\0\1", 2, False),
        (SHORT, b"\xff\xff", 3, 65535),
        (WORD, b"\x34\x12", 3, 0x1234),
        (LONG, b"\0\0\0\x80\xff", 5, -(2**31)),
        (LONGLONG, b"\xfe" + b"\xff" * 7, 9, -2),
        (FLOAT, struct.pack("<f", 0.1), 5, struct.unpack("<f", struct.pack("<f", 0.1))[0]),
        (DOUBLE, struct.pack("<d", 0.1), 9, 0.1),
        (QUANTITY, struct.pack("<d", -1e300), 9, -1e300),
        (TEXT, b"", 14, ""),
        (TEXT, b"peak\0rest", 14, "peak"),
        (TEXT, b"\x80 \xe9\0", 14, "\u20ac \u00e9"),
        (LONG_TEXT, b"x" * 40, 42, "x" * 40),
        (DATE, b"", 9, "1970-01-01T00:00:00.000Z"),
        (DATE, struct.pack("<d", 5212846932.125), 9, "2024-01-24T21:02:12.125Z"),
        (DATE, struct.pack("<d", math.nan), 9, "1970-01-01T00:00:00.000Z"),
        (BARE_DATE, struct.pack("<d", 3506716801), 9, "1970-01-01T00:00:01.000Z"),
    ]

    def test_values_of_each_data_type(self):
        for code, content, size, value in self.VALUES:
            with self.case(hex(code), content):
                double.answer("SOrvGetParam", buffer=content)
                status, read = pyORV3.getParameter(5, code, 2, 3)
                self.assertEqual((status, type(read), read), (0, type(value), value))
                description = ("pqar_util_getpinfo", code, 1, 0)
                reading = ("SOrvGetParam", 5, code, 2, 3, size)
                self.assertEqual(double.calls(), [description, reading])

    def test_text_without_its_terminator_ends_with_the_buffer(self):
        double.answer("SOrvGetParam", buffer=b"x" * 14)
        status, text = pyORV3.getParameter(5, TEXT, 1, 1)
        self.assertEqual((status, set(text)), (0, {"x"}))
        self.assertLessEqual(len(text), 14)

    def test_record_and_entry_keep_their_low_16_bits(self):
        for passed, received in [(65537, 1), (-1, 65535), (2**31 - 1, 65535), (-65536, 0)]:
            with self.case(passed):
                self.assertEqual(pyORV3.getParameter(5, LONG, passed, passed), (0, 0))
                read = ("SOrvGetParam", 5, LONG, received, received, 5)
                self.assertEqual(double.library_calls(), [read])

    def test_code_is_unsigned_for_dictionary_and_library(self):
        double.answer("pqar_util_getpinfo", 1, type=8, size=4)
        self.assertEqual(pyORV3.getParameter(5, double.signed(0x80070008), 1, 1), (0, 0))
        codes = [arguments["code"] for _, arguments in double.orv_double.calls()]
        self.assertEqual(codes, [0x80070008, 0x80070008])

    # What the dictionary says, the buffer size, and the status.
    SIZES = [
        ({"type": 8, "size": 0x10004}, 5, 0),
        ({"type": 8, "size": 3}, 4, 0),
        ({"type": 8, "size": 2}, 3, double.BAD_ARGUMENTS),
        ({"type": 9, "size": 6}, 7, double.BAD_ARGUMENTS),
        ({"type": 35, "size": 4}, 5, double.BAD_ARGUMENTS),
        ({"type": 14, "size": 99, "length": 7}, 9, 0),
        ({"type": 24, "length": 0xFFFF}, 1, 0),
        ({"type": 5, "size": 4}, 5, double.BAD_ARGUMENTS),
        ({"type": 0, "size": 4}, 5, double.BAD_ARGUMENTS),
        ({"type": 0x10008, "size": 4}, 5, double.BAD_ARGUMENTS),
        ({"type": 27, "size": 65535}, 65536, 0),
    ]

    def test_size_comes_from_the_dictionary(self):
        for description, size, status in self.SIZES:
            with self.case(description):
                describe_other(**description)
                self.assertEqual(pyORV3.getParameter(5, OTHER, 1, 1)[0], status)
                self.assertEqual(double.library_calls(), [("SOrvGetParam", 5, OTHER, 1, 1, size)])

    def test_library_failure_comes_back(self):
        double.answer("SOrvGetParam", FAILURE, buffer=b"\1\2\3\4")
        self.assertEqual(pyORV3.getParameter(5, LONG, 1, 1), (FAILED, 0))


class SetParameter(double.TestCase):
    class Word(str):
        pass

    # Parameter, value, value bytes.
    VALUES = [
        (BYTE, True, b"\1"),
        (BYTE, 300, b"\x2c"),
        (FLAG, -1, b"\xff"),
        (SHORT, 65535, b"\xff\xff"),
        (WORD, 0x12345, b"\x45\x23"),
        (LONG, -(2**31), b"\0\0\0\x80"),
        (LONGLONG, 2**63 - 1, b"\xff" * 7 + b"\x7f"),
        (LONGLONG, -2, b"\xfe" + b"\xff" * 7),
        (FLOAT, 1.5, struct.pack("<f", 1.5)),
        (DOUBLE, 0.1, struct.pack("<d", 0.1)),
        (QUANTITY, -3, struct.pack("<d", -3)),
        (TEXT, "", b"\0"),
        (TEXT, "0123456789", b"0123456789\0"),
        (TEXT, "\u20ac \u00e9", b"\x80 \xe9\0"),
        (TEXT, "a\u65e5b", b"a?b\0"),  # the code page lacks the character
        (TEXT, "peak\0rest", b"peak\0"),
        (TEXT, Word("peak"), b"peak\0"),
        (LONG_TEXT, "x" * 5000, b"x" * 5000 + b"\0"),
        (DATE, "2024-01-24T21:02:12Z", struct.pack("<d", 5212846932)),
        (DATE, "2024-01-24T22:02:12.5+01:00", struct.pack("<d", 5212846932.5)),
        (BARE_DATE, "1970-01-01T00:00", struct.pack("<d", 3506716800)),
    ]

    def test_values_of_each_data_type(self):
        for code, value, content in self.VALUES:
            with self.case(hex(code), value):
                description = ("pqar_util_getpinfo", code, 1, 0)
                writing = ("SOrvPutParam", 5, code, 2, 3, content)
                self.check("setParameter", (5, code, value, 2, 3), 0, [description, writing])

    NO_INTEGERS = ["5", 1.5, None, NoNumber()]
    REFUSED = {
        BYTE: [2**31, *NO_INTEGERS],
        FLAG: NO_INTEGERS,
        SHORT: [2**31, *NO_INTEGERS],
        WORD: NO_INTEGERS,
        LONG: [2**31, -(2**31) - 1, *NO_INTEGERS],
        LONGLONG: [2**63, *NO_INTEGERS],
        FLOAT: ["1.5", None, NoNumber()],
        DOUBLE: ["1.5", None, NoNumber()],
        TEXT: [5, b"text", None],
        DATE: [5, 5212846932.0, None, "", "24.01.2024", "2024-13-01T00:00", "2038-01-19T03:14:08Z"],
    }

    def test_values_that_do_not_fit_are_not_written(self):
        for code, values in self.REFUSED.items():
            for value in values:
                with self.case(hex(code), value):
                    status = pyORV3.setParameter(5, code, value, 1, 1)
                    self.assertEqual(status, double.BAD_ARGUMENTS)
                    self.assertEqual(double.library_calls(), [])

    def test_unknown_data_type_is_not_written(self):
        for data_type in (0, 5, 255, 0x10008):
            with self.case(data_type):
                describe_other(type=data_type, size=4)
                self.assertEqual(pyORV3.setParameter(5, OTHER, 1, 1, 1), double.BAD_ARGUMENTS)
                self.assertEqual(double.library_calls(), [])

    def test_record_and_entry_go_whole(self):
        for number in (65537, -1, 2**31 - 1):
            with self.case(number):
                self.assertEqual(pyORV3.setParameter(5, BYTE, 1, number, number), 0)
                put = ("SOrvPutParam", 5, BYTE, number, number, b"\1")
                self.assertEqual(double.library_calls(), [put])

    def test_library_failure_comes_back(self):
        double.answer("SOrvPutParam", FAILURE)
        self.assertEqual(pyORV3.setParameter(5, LONG, 1, 1, 1), FAILED)


class Dictionary(double.TestCase):
    def test_refused_code_is_an_unknown_exception(self):
        # The code, and whether the dictionary is asked at all.
        for code, asked in [(0, []), (OTHER, [("pqar_util_getpinfo", OTHER, 1, 0)])]:
            for result in (0x00278002, 0xFFFFFFFE):
                with self.case(code, result):
                    forever = double.FOR_EVER
                    double.answer("pqar_util_getpinfo", result, times=forever, type=8, size=4)
                    refused = double.UNKNOWN_EXCEPTION
                    self.assertEqual(pyORV3.getParameter(5, code, 1, 1), (refused, 0))
                    self.assertEqual(pyORV3.setParameter(5, code, 1, 1, 1), refused)
                    self.assertEqual(double.calls(), asked * 2)

    def test_is_released_after_each_use(self):
        pyORV3.getParameter(5, LONG, 1, 1)
        self.assertFalse(double.is_mapped("pqar"))
        pyORV3.setParameter(5, OTHER, 1, 1, 1)
        self.assertFalse(double.is_mapped("pqar"))
