"""Parameter values of every type survive closing and opening; what cannot be stored is refused."""

import struct
import unittest

import embedded
import pyORV3
from embedded import code_of


def single(number):
    return struct.unpack("f", struct.pack("f", number))[0]


# By type name of the dictionary.
VALUES = {
    "byte": [True, False],
    "short": [0, 1, 32768, 65535],
    "long": [0, 2**31 - 1, -(2**31)],
    "longlong": [0, 2**63 - 1, -(2**63)],
    "float": [0.0, single(-0.1), single(3.4e38), single(1e-45)],
    "double": [0.1, -1.7976931348623157e308, 5e-324],
    "str": ["", "K-40", "Äpfel", "30 µm"],
    "Date": [
        "1970-01-01T00:00:00.000Z",
        "2024-02-29T23:59:59.999Z",
        "2038-01-19T00:00:00.000Z",
    ],
}


def dictionary():
    """(name, type name) of every parameter in the formatted classes."""
    for class_number in range(0x2000, 0x2020):
        for number in range(1, 0x200):
            status, metadata = pyORV3.getParameterMetaData(0, class_number << 16 | number, "")
            if status == 0:
                yield metadata[0], metadata[4]


class Parameters(embedded.TestCase):
    def test_every_parameter_of_the_dictionary_survives(self):
        parameters = list(dictionary())
        self.assertEqual({type_name for _, type_name in parameters}, set(VALUES))
        handle = self.create()
        for turn in range(max(map(len, VALUES.values()))):
            expected = {
                name: VALUES[type_name][turn % len(VALUES[type_name])]
                for name, type_name in parameters
            }
            for name, value in expected.items():
                self.set(handle, name, value)
            handle = self.reopened(handle)
            self.assertEqual({name: self.get(handle, name) for name in expected}, expected)
            for name, type_name in parameters:
                self.assertIs(type(self.get(handle, name)), type(VALUES[type_name][0]))

    def test_values_are_stored_as_their_type_holds_them(self):
        handle = self.create()
        for name, written, read in [
            ("QAR_B_PILEUPREJ", 300, True),
            ("QAR_B_PILEUPREJ", 256, False),
            ("QAR_S_ADCBITS", -1, 65535),
            ("QAR_S_ADCBITS", 65537, 1),
            ("QAR_F_AMPGAIN", 1, 1.0),
            ("QAR_C_COMMENT", "€ß → Ω", "€ß ? ?"),  # the code page lacks them
            ("QAR_T_ACQSTART", "2024-06-01T14:00:00+02:00", "2024-06-01T12:00:00.000Z"),
        ]:
            with self.subTest(name=name, written=written):
                self.set(handle, name, written)
                self.assertEqual(self.get(handle, name), read)

    def test_refused_values_leave_the_old_one(self):
        handle = self.create()
        for name, old, refused, status in [
            ("QAR_L_LOWERDISC", 7, 2**31, embedded.BAD_ARGUMENTS),
            ("QAR_L_LOWERDISC", 7, 7.5, embedded.BAD_ARGUMENTS),
            ("QAR_Q_TOTALCOUNT", 7, 2**63, embedded.BAD_ARGUMENTS),
            ("QAR_D_LIVETIME", 7.0, "7", embedded.BAD_ARGUMENTS),
            ("QAR_C_OPERATOR", "Ö" * 32, "Ö" * 33, embedded.SIZE_REFUSED),
            ("QAR_C_OPERATOR", "Ada", 5, embedded.BAD_ARGUMENTS),
            ("QAR_C_OPERATOR", "Ada", None, embedded.BAD_ARGUMENTS),
            ("QAR_T_ACQSTART", "2024-01-24T21:02:12.000Z", "24.01.2024", embedded.BAD_ARGUMENTS),
        ]:
            with self.subTest(name=name, refused=refused):
                self.set(handle, name, old)
                self.fails(status, pyORV3.setParameter(handle, code_of(name), refused, 1, 1))
                self.assertEqual(self.get(handle, name), old)

    def test_places_without_a_value_have_a_status(self):
        handle = self.create()
        self.set(handle, "QAR_C_NUCLNAME", "K-40")
        self.set(handle, "QAR_D_LINEENERGY", 1460.82)
        name, energy = code_of("QAR_C_NUCLNAME"), code_of("QAR_D_LINEENERGY")
        for code, record, entry, status in [
            (code_of("QAR_C_OPERATOR"), 1, 1, embedded.NOT_SET),
            (code_of("QAR_D_HALFLIFE"), 1, 1, embedded.NOT_SET),
            (name, 0, 1, embedded.NO_SUCH_RECORD),
            (name, 2, 1, embedded.NO_SUCH_RECORD),
            (name, 65535, 1, embedded.NO_SUCH_RECORD),
            (energy, 1, 2, embedded.NO_SUCH_ENTRY),
            (energy, 1, 65535, embedded.NO_SUCH_ENTRY),
            (0x20007FFF, 1, 1, embedded.UNKNOWN_EXCEPTION),
            (-1, 1, 1, embedded.UNKNOWN_EXCEPTION),
            (0, 1, 1, embedded.UNKNOWN_EXCEPTION),
        ]:
            with self.subTest(code=hex(code), record=record, entry=entry):
                answer = pyORV3.getParameter(handle, code, record, entry)
                self.fails(status, answer)
                self.assertEqual(answer[1], 0)
        for record, entry in [(0, 1), (3, 1), (65535, 1), (-1, 1), (1, 3), (1, 65535), (1, -1)]:
            with self.subTest("writing leaves no holes", record=record, entry=entry):
                answer = pyORV3.setParameter(handle, energy, 1.0, record, entry)
                self.assertNotEqual(answer, 0)
        self.assertEqual(self.column(handle, "QAR_D_LINEENERGY", record=1), [1460.82])
        self.assertEqual(self.column(handle, "QAR_C_NUCLNAME"), ["K-40"])

    def test_a_source_opened_for_reading_cannot_be_written(self):
        self.set(self.create(), "QAR_L_CHANNELS", 256)
        handle = self.open(embedded.READ)
        for answer in [
            pyORV3.setParameter(handle, code_of("QAR_L_CHANNELS"), 512, 1, 1),
            pyORV3.setSpectrum(handle, (1,), 0, 0),
            pyORV3.insert(handle, embedded.NUCLIDES, 1, 0),
            pyORV3.createBlock(handle, embedded.NUCLIDES, 0),
        ]:
            self.fails(embedded.READ_ONLY, answer)
        self.assertEqual(self.get(handle, "QAR_L_CHANNELS"), 256)


class MetaData(embedded.TestCase):
    def test_name_and_code_give_the_same_description(self):
        by_name = self.ok(pyORV3.getParameterMetaData(0, 0, "qar_l_channels"))
        self.assertEqual(by_name, self.ok(pyORV3.getParameterMetaData(7, 0x20000007, "")))
        self.assertEqual(
            (by_name[0], by_name[2:]), ("QAR_L_CHANNELS", (0x20000007, 0x2000, "long"))
        )
        for code, name in [(0, ""), (0x20007FFF, ""), (0x20000007, "QAR_L_NOTHING")]:
            with self.subTest(code=hex(code), name=name):
                answer = pyORV3.getParameterMetaData(0, code, name)
                self.fails(embedded.BAD_ARGUMENTS, answer)
                self.assertEqual(answer[1], 0)

    def test_variables_of_the_environment_stand_in_for_unknown_names(self):
        script = """if True:
            import sys, pyORV3
            for name in sys.argv[1:]:
                print(pyORV3.getParameterMetaData(0, 0, name))
        """
        texts = {
            "SUITE_DATA": "/daten/größe",
            "LONG": "x" * 5000,
            "QAR_L_CHANNELS": "not a parameter",
        }
        lines = embedded.output_of(embedded.child(script, *texts, "MISSING", **texts)).splitlines()
        for name, line in zip(["SUITE_DATA", "LONG"], lines):
            self.assertEqual(line, str((0, (name, texts[name], 0, 0, "str"))))
        self.assertIn("(0, ('QAR_L_CHANNELS', 'Number of channels", lines[2])
        self.assertEqual(lines[3], str((embedded.BAD_ARGUMENTS - 2**32, 0)))


if __name__ == "__main__":
    unittest.main()
