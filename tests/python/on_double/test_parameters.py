"""Single parameters: the calls of dictionary and library, and the conversions."""

import math
import os
import struct

import double
import pyORV3
from double import BAD_ARGUMENTS, FAILED, FAILURE, NoNumber

# Codes of the double's dictionary, named after their data types.
BYTE, FLAG, SHORT, WORD = 0x00070002, 0x00070006, 0x00070003, 0x00070007
LONG, LONGLONG, FLOAT = 0x00070008, 0x00070009, 0x0007000A
TEXT, LONG_TEXT = 0x0007000E, 0x00070018  # 12 and 40 characters
DOUBLE, QUANTITY, DATE, BARE_DATE = 0x0007001B, 0x000700C0, 0x00070023, 0x00000023
BUFFER_SIZES = {BYTE: 2, FLAG: 2, SHORT: 3, WORD: 3, LONG: 5, FLOAT: 5, TEXT: 14, LONG_TEXT: 42}
OTHER = 0x12340001  # described by each test


def describe_other(**outputs):
    """Set the reply of the dictionary for OTHER."""
    double.answer("pqar_util_getpinfo", 1, when={"code": OTHER}, **outputs)


EPOCH = 3506716800  # the seconds of a date at 1970-01-01


def date(seconds):
    return struct.pack("<d", seconds)


class Word(str):
    pass


class TestValues(double.TestCase):
    # Parameter, value and its bytes, in both directions.
    BOTH_WAYS = [
        (BYTE, True, b"\1"), (SHORT, 65535, b"\xff\xff"), (WORD, 0x1234, b"\x34\x12"),
        (LONG, -(2**31), b"\0\0\0\x80"), (LONGLONG, -2, b"\xfe" + b"\xff" * 7),
        (FLOAT, 1.5, struct.pack("<f", 1.5)), (DOUBLE, 0.1, struct.pack("<d", 0.1)),
        (QUANTITY, -1e300, struct.pack("<d", -1e300)), (TEXT, "", b"\0"),
        (TEXT, "\u20ac \u00e9", b"\x80 \xe9\0"), (LONG_TEXT, "x" * 40, b"x" * 40 + b"\0"),
        (DATE, "2024-01-24T21:02:12.125Z", date(5212846932.125)),
        (BARE_DATE, "1970-01-01T00:00:01.000Z", date(3506716801)),
    ]  # fmt: skip
    READ = [
        (FLAG, False, b"\0\1"),
        (LONG, -1, b"\xff" * 5),
        (FLOAT, struct.unpack("<f", struct.pack("<f", 0.1))[0], struct.pack("<f", 0.1)),
        (TEXT, "peak", b"peak\0rest"),
        (DATE, "1970-01-01T00:00:00.000Z", b""),
        (DATE, "1970-01-01T00:00:00.000Z", date(math.nan)),
        (DATE, "1970-01-01T00:00:00.000Z", date(-math.inf)),
        (DATE, "1970-01-01T00:00:00.000Z", date(EPOCH - 0.1)),
        (DATE, "9999-12-31T23:59:59.000Z", date(math.inf)),  # .999999999 in single precision is 1
        (DATE, "9999-12-31T23:59:59.000Z", date(EPOCH + 253402300800)),
    ]
    WRITTEN = [
        (BYTE, 300, b"\x2c"), (FLAG, -1, b"\xff"), (WORD, 0x12345, b"\x45\x23"),
        (QUANTITY, -3, struct.pack("<d", -3)),
        (TEXT, "a\u65e5b", b"a?b\0"),  # not in the code page
        (TEXT, "\U0001f600x", (b"??x" if os.name == "nt" else b"?x") + b"\0"),
        (TEXT, "peak\0rest", b"peak\0"), (TEXT, Word("peak"), b"peak\0"),
        (LONG_TEXT, "x" * 5000, b"x" * 5000 + b"\0"),
    ]  # fmt: skip

    def test_bytes_are_read_as_a_value(self):
        for code, value, content in self.BOTH_WAYS + self.READ:
            with self.case(hex(code), content):
                double.answer("SOrvGetParam", buffer=content)
                described = ("pqar_util_getpinfo", code, 1, 0)
                read = ("SOrvGetParam", 5, code, 2, 3, BUFFER_SIZES.get(code, 9))
                self.check("getParameter", (5, code, 2, 3), (0, value), [described, read])
                double.answer("SOrvGetParam", buffer=content)
                self.assertIs(type(pyORV3.getParameter(5, code, 2, 3)[1]), type(value))

    def test_value_is_written_as_bytes(self):
        for code, value, content in self.BOTH_WAYS + self.WRITTEN:
            with self.case(hex(code), value):
                described = ("pqar_util_getpinfo", code, 1, 0)
                written = ("SOrvPutParam", 5, code, 2, 3, content)
                self.check("setParameter", (5, code, value, 2, 3), 0, [described, written])

    def test_every_byte_of_a_string_is_decoded(self):
        for byte in range(1, 256):
            content = bytes([byte])
            try:
                character = content.decode("cp1252")
            except UnicodeDecodeError:  # undefined in the code page
                character = chr(byte)
            with self.case(byte):
                double.answer("SOrvGetParam", buffer=content)
                self.assertEqual(pyORV3.getParameter(5, TEXT, 1, 1), (0, character))
                self.assertEqual(pyORV3.setParameter(5, TEXT, character, 1, 1), 0)
                self.assertEqual(double.arguments("SOrvPutParam")[0]["value"], content + b"\0")

    NO_INTEGERS = ["5", 1.5, None, NoNumber()]
    REFUSED = {
        BYTE: [2**31, *NO_INTEGERS], FLAG: NO_INTEGERS, SHORT: [2**31, *NO_INTEGERS],
        WORD: NO_INTEGERS, LONG: [2**31, -(2**31) - 1, *NO_INTEGERS],
        LONGLONG: [2**63, *NO_INTEGERS], FLOAT: ["1.5", None, NoNumber()],
        DOUBLE: ["1.5", None, NoNumber()], TEXT: [5, b"text", None], DATE: [5, 5212846932.0, None],
    }  # fmt: skip

    def test_value_that_does_not_fit_is_not_written(self):
        for code, values in self.REFUSED.items():
            for value in values:
                with self.case(hex(code), value):
                    self.assertEqual(pyORV3.setParameter(5, code, value, 1, 1), BAD_ARGUMENTS)
                    self.assertEqual(double.calls_of_library(), [])

    def test_string_without_terminator_ends_with_the_buffer(self):
        double.answer("SOrvGetParam", buffer=b"x" * 14)
        status, text = pyORV3.getParameter(5, TEXT, 1, 1)
        self.assertEqual((status, set(text)), (0, {"x"}))
        self.assertLessEqual(len(text), 14)


class TestDates(double.TestCase):
    # String, seconds since 1970, units of 100 ns.
    GOOD = [
        ("2024-01-24T21:02:12.000Z", 1706130132, 0), ("2024-01-24T21:02", 1706130120, 0),
        ("2024-01-24T21:02:12.5Z", 1706130132, 5000000),
        ("2024-01-24T21:02:12.345", 1706130132, 3450003),  # in single precision
        ("2024-01-24T21:02:12+01:00", 1706126532, 0), ("2024-01-24T21:02:12-0330", 1706142732, 0),
        ("2024-01-24T21:02:12-00:30", 1706131932, 0), ("2024-01-24T21:02:12+05", 1706112132, 0),
        (" 2024-1-24T 21: 2: 12", 1706130132, 0), ("2023-02-31T00:00Z", 1677801600, 0),
        ("1970-01-01T00:00:00Z", 0, 0), ("2038-01-19T03:14:07Z", 2147483647, 0),
    ]  # fmt: skip
    BAD = (
        "|T|now|24.01.2024|2024-01-24|2024-01T21:02|2024-01-24T|2024-01-24T21|2024-13-01T00:00|"
        "2024-00-01T00:00|2024-01-32T00:00|2024-01-24T24:00|2024-01-24T21:60|2024-01-24T21:02:60|"
        "2024-01-24T21:02:nan|2024-01-24T21:02:1e99|99999999999-01-01T00:00|"
        "2024-01-24T21:02:12+24:00|2024-01-24T21:02:12+01:60|2024-01-24T21:02:12+0160|"
        "2024-01-24T21:02:12+x|2024-01-24T21:02:12+01:|1969-12-31T23:00:00Z|2038-01-19T03:14:08Z|"
        "1970-01-01T00:30:00+01:00|2038-01-19T04:14:07+01:00"  # out of range before the offset
    )

    def test_date_is_stored_as_seconds(self):
        for text, seconds, parts in self.GOOD:
            with self.case(text):
                self.assertEqual(pyORV3.setParameter(5, DATE, text, 1, 1), 0)
                stored = date(float((EPOCH + seconds) * 10**7 + parts) / 1e7)
                self.assertEqual(double.arguments("SOrvPutParam")[0]["value"], stored)

    def test_invalid_date_is_not_written(self):
        for text in self.BAD.split("|"):
            with self.case(text):
                self.assertEqual(pyORV3.setParameter(5, DATE, text, 1, 1), BAD_ARGUMENTS)
                self.assertEqual(double.calls_of_library(), [])


class TestCalls(double.TestCase):
    def test_record_and_entry_are_cut_to_16_bits_for_reading_only(self):
        for number, cut in [(65537, 1), (-1, 65535), (2**31 - 1, 65535), (-65536, 0)]:
            with self.case(number):
                self.assertEqual(pyORV3.getParameter(5, LONG, number, number), (0, 0))
                self.assertEqual(pyORV3.setParameter(5, BYTE, 1, number, number), 0)
                read = ("SOrvGetParam", 5, LONG, cut, cut, 5)
                written = ("SOrvPutParam", 5, BYTE, number, number, b"\1")
                self.assertEqual(double.calls_of_library(), [read, written])

    def test_code_is_passed_unsigned_to_dictionary_and_library(self):
        double.answer("pqar_util_getpinfo", 1, type=8, size=4)
        self.assertEqual(pyORV3.getParameter(5, double.signed(0x80070008), 1, 1), (0, 0))
        codes = [arguments["code"] for _, arguments in double.orv_double.calls()]
        self.assertEqual(codes, [0x80070008, 0x80070008])

    def test_failure_of_the_library_is_returned(self):
        double.answer("SOrvGetParam", FAILURE, buffer=b"\1\2\3\4")
        self.assertEqual(pyORV3.getParameter(5, LONG, 1, 1), (FAILED, 0))
        double.answer("SOrvPutParam", FAILURE)
        self.assertEqual(pyORV3.setParameter(5, LONG, 1, 1, 1), FAILED)


class TestDictionary(double.TestCase):
    # Reply of the dictionary, size of the buffer, status.
    SIZES = [
        ({"type": 8, "size": 0x10004}, 5, 0), ({"type": 8, "size": 3}, 4, 0),
        ({"type": 8, "size": 2}, 3, BAD_ARGUMENTS), ({"type": 9, "size": 6}, 7, BAD_ARGUMENTS),
        ({"type": 35, "size": 4}, 5, BAD_ARGUMENTS), ({"type": 14, "size": 99, "length": 7}, 9, 0),
        ({"type": 24, "length": 0xFFFF}, 1, 0), ({"type": 27, "size": 65535}, 65536, 0),
        *(({"type": unknown, "size": 4}, 5, BAD_ARGUMENTS) for unknown in (0, 5, 0x10008)),
    ]  # fmt: skip

    def test_dictionary_gives_size_and_type(self):
        for description, size, status in self.SIZES:
            with self.case(description):
                describe_other(**description)
                self.assertEqual(pyORV3.getParameter(5, OTHER, 1, 1)[0], status)
                self.assertEqual(
                    double.calls_of_library(), [("SOrvGetParam", 5, OTHER, 1, 1, size)]
                )
        for unknown in (0, 5, 0x10008):
            with self.case(unknown):
                describe_other(type=unknown, size=4)
                self.assertEqual(pyORV3.setParameter(5, OTHER, 1, 1, 1), BAD_ARGUMENTS)
                self.assertEqual(double.calls_of_library(), [])

    def test_every_odd_reply_is_a_success(self):
        for result in (1, 3, 0x00278003, 0xFFFFFFFF):
            with self.case(result):
                double.answer("pqar_util_getpinfo", result, type=8, size=4, name=b"N")
                self.assertEqual(pyORV3.getParameter(5, OTHER, 1, 1), (0, 0))
                double.answer("pqar_util_pname2code", result, code=LONG)
                status, metadata = pyORV3.getParameterMetaData(5, 0, "N")
                self.assertEqual((status, metadata[2]), (0, LONG))

    def test_refused_code_returns_unknown_exception(self):
        # Code, whether the dictionary is called.
        for code, asked in [(0, []), (OTHER, [("pqar_util_getpinfo", OTHER, 1, 0)])]:
            for result in (0x00278002, 0xFFFFFFFE, 0):
                with self.case(code, result):
                    refused = double.UNKNOWN_EXCEPTION
                    times = double.FOR_EVER
                    double.answer("pqar_util_getpinfo", result, times=times, type=8, size=4)
                    self.check("getParameter", (5, code, 1, 1), (refused, 0), asked)
                    self.check("setParameter", (5, code, 1, 1, 1), refused, asked * 2)
