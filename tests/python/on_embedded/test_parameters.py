"""Values and spectra of every type, stored and refused."""

import random
import struct

import pyORV3

import embedded
from embedded import code_of


def single(number):
    return struct.unpack("f", struct.pack("f", number))[0]


# By the type names of the dictionary.
VALUES = {
    "byte": [True, False], "short": [0, 1, 32768, 65535], "long": [0, 2**31 - 1, -(2**31)],
    "longlong": [0, 2**63 - 1, -(2**63)],
    "float": [0.0, single(-0.1), single(3.4e38), single(1e-45)],
    "double": [0.1, -1.7976931348623157e308, 5e-324], "str": ["", "K-40", "Äpfel", "30 µm"],
    "Date": ["1970-01-01T00:00:00.000Z", "2024-02-29T23:59:59.999Z", "2038-01-19T00:00:00.000Z"],
}  # fmt: skip


def dictionary():
    """Yield (name, type name) of every parameter in the formatted classes."""
    for class_number in range(0x2000, 0x2020):
        for number in range(1, 0x200):
            status, metadata = pyORV3.getParameterMetaData(0, class_number << 16 | number, "")
            if status == 0:
                yield metadata[0], metadata[4]


class TestParameters(embedded.TestCase):
    def test_every_parameter_is_read_back_after_reopening(self):
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
            read = {name: self.get(handle, name) for name in expected}
            self.assertEqual(read, expected)
            self.assertEqual([*map(type, read.values())], [*map(type, expected.values())])

    def test_invalid_value_record_or_entry_is_refused(self):
        handle = self.create()
        self.set(handle, "QAR_C_OPERATOR", "Ö" * 32)
        self.set(handle, "QAR_D_LINEENERGY", 1460.82)
        operator, energy = code_of("QAR_C_OPERATOR"), code_of("QAR_D_LINEENERGY")
        for code, value, record, entry, status in [
            (operator, "Ö" * 33, 1, 1, embedded.SIZE_REFUSED),
            (operator, "Ö", 3, 1, embedded.NO_SUCH_RECORD),
            (code_of("QAR_D_LIVETIME"), 1.0, 1, 2, embedded.NO_SUCH_ENTRY),
            *((energy, 1.0, n, 1, embedded.NO_SUCH_RECORD) for n in (0, 3, 65537, -1, -65535)),
            *((energy, 1.0, 1, n, embedded.NO_SUCH_ENTRY) for n in (3, 65535, 65537, -1)),
        ]:
            with self.subTest(code=hex(code), record=record, entry=entry):
                self.fails(status, pyORV3.setParameter(handle, code, value, record, entry))
        for code, record, entry, status in [
            (code_of("QAR_D_HALFLIFE"), 1, 1, embedded.NOT_SET),
            *((energy, n, 1, embedded.NO_SUCH_RECORD) for n in (0, 2, 65535)),
            *((energy, 1, n, embedded.NO_SUCH_ENTRY) for n in (2, 65535)),
            *((code, 1, 1, embedded.UNKNOWN_EXCEPTION) for code in (0x20007FFF, -1, 0)),
        ]:
            with self.subTest("reading", code=hex(code), record=record, entry=entry):
                answer = pyORV3.getParameter(handle, code, record, entry)
                self.fails(status, answer)
                self.assertEqual(answer[1], 0)
        self.assertEqual(self.column(handle, "QAR_D_LINEENERGY", record=1), [1460.82])
        self.assertEqual(self.column(handle, "QAR_C_OPERATOR"), ["Ö" * 32])


class TestSpectrum(embedded.TestCase):
    def test_every_size_is_read_back_after_reopening(self):
        generator = random.Random(5)
        for size in (1, 255, 256, 257, 2047, 2048, 2049, 4096, 5000, 16384, 32768):
            with self.subTest(size=size):
                name = f"{size}.qar"
                channels = tuple(generator.randint(-(2**31), 2**31 - 1) for _ in range(size))
                handle = self.create(name)
                self.set(handle, "QAR_L_CHANNELS", size)
                self.ok(pyORV3.setSpectrum(handle, channels, 0, 0))
                handle = self.reopened(handle, name)
                self.assertEqual(self.ok(pyORV3.getSpectrum(handle, 0, 0)), channels)

    def test_short_spectrum_is_filled_with_zeros_to_the_next_size(self):
        handle = self.create()
        self.ok(pyORV3.createBlock(handle, embedded.SPECTRUM, 600))
        self.assertEqual(self.ok(pyORV3.count(handle, embedded.SPECTRUM, 1)), 1024)
        self.assertEqual(self.ok(pyORV3.getSpectrum(handle, 0, 0)), (0,) * 1024)
        self.ok(pyORV3.setSpectrum(handle, (9,) * 2000, 0, 0))
        self.ok(pyORV3.setSpectrum(handle, (7,) * 100, 0, 0))
        expected = (7,) * 100 + (0,) * 156 + (9,) * 768
        self.assertEqual(self.ok(pyORV3.getSpectrum(handle, 0, 0)), expected)
