"""Reading and writing of whole spectra."""

import struct

import double
import pyORV3
from double import FAILED, FAILURE

COUNT_READ = ("SOrvGetParam", 5, 0x20000007, 1, 1, 4)


def pieces(function):
    """Return first channel and channel count of each transfer."""
    return [(call["firstChannel"], call["channelCount"]) for call in double.arguments(function)]


class TestGetSpectrum(double.TestCase):
    # Channel count of the file, transfers.
    PIECES = [
        (0, [(1, 0)]),
        (1024, [(1, 1024)]),
        (2048, [(1, 2048)]),
        (5000, [(1, 2048), (2049, 2048), (4097, 904)]),
        (65535, [(1 + 2048 * piece, 2048) for piece in range(31)] + [(63489, 2047)]),
    ]

    def test_spectrum_is_read_in_parts_of_2048_channels(self):
        for count, expected in self.PIECES:
            with self.case(count):
                ends = (-(2**31), 2**31 - 1) if count else ()  # contents are signed 32-bit
                channels = ends + tuple(channel * 7 - 3000 for channel in range(count - len(ends)))
                double.set_channels(channels)
                double.answer("SOrvGetParam", buffer=count)
                self.assertEqual(pyORV3.getSpectrum(5, 98, 99), (0, channels))
                self.assertEqual(pieces("SOrvGetSpectrum"), expected)
                self.assertEqual(double.calls()[0], COUNT_READ)
                self.assertEqual(double.calls()[1][1::3], (5, 0))

    def test_invalid_channel_count_is_refused(self):
        for count in (-1, 65536, 2**31 - 1):
            with self.case(count):
                double.answer("SOrvGetParam", buffer=count)
                self.check("getSpectrum", (5, 0, 0), (double.BAD_ARGUMENTS, (0,)), [COUNT_READ])

    def test_failure_returns_the_status_and_no_spectrum(self):
        with self.case("count"):
            double.answer("SOrvGetParam", FAILURE, buffer=3)
            self.check("getSpectrum", (5, 0, 0), (FAILED, (0,)), [COUNT_READ])
        with self.case("second transfer"):
            double.answer("SOrvGetParam", buffer=6000)
            double.answer("SOrvGetSpectrum", FAILURE, when={"firstChannel": 2049})
            self.assertEqual(pyORV3.getSpectrum(5, 0, 0), (FAILED, (0,)))
            self.assertEqual(pieces("SOrvGetSpectrum"), [(1, 2048), (2049, 2048)])


class TestSetSpectrum(double.TestCase):
    # Items of the tuple, channels of the file (None: not readable), channels written, transfers.
    PIECES = [
        (1000, 1024, 1024, [(1, 256), (257, 256), (513, 256), (769, 256)]),
        (100, 1024, 256, [(1, 100), (101, 156)]),
        (2000, 1024, 1024, [(1, 256), (257, 256), (513, 256), (769, 256)]),
        (300, 200, 200, [(1, 200)]), (257, 4096, 512, [(1, 256), (257, 256)]),
        (100, None, 256, [(1, 100), (101, 156)]), (0, 1024, 256, [(1, 0), (1, 256)]),
        (0, 100, 100, [(1, 0), (1, 100)]), (5, 0, 0, [(1, 0)]),
        (16385, None, 32768, [(1 + 256 * piece, 256) for piece in range(128)]),
    ]  # fmt: skip

    def test_spectrum_is_written_in_parts_of_256_channels_with_trailing_zeros(self):
        for items, channels, written, expected in self.PIECES:
            with self.case(items, channels):
                failure = 7 if channels is None else 0
                double.answer("SOrvGetParam", failure, buffer=channels or 0)
                spectrum = tuple(range(1, items + 1))
                self.assertEqual(pyORV3.setSpectrum(5, spectrum, 98, 99), 0)
                self.assertEqual(double.calls()[0], COUNT_READ)
                self.assertEqual(pieces("SOrvPutSpectrum"), expected)
                content = b"".join(call["channels"] for call in double.arguments("SOrvPutSpectrum"))
                padded = (spectrum + (0,) * written)[:written]
                self.assertEqual(content, struct.pack("<%di" % written, *padded))

    def test_low_32_bits_of_items_are_written(self):
        items = (-1, 2**31, 2**32 + 5, -(2**40) - 6, 2**64 + 7, True)
        double.answer("SOrvGetParam", buffer=len(items))
        self.assertEqual(pyORV3.setSpectrum(5, items, 0, 0), 0)
        content = struct.unpack("<6i", double.arguments("SOrvPutSpectrum")[0]["channels"])
        self.assertEqual(content, (-1, -(2**31), 5, -6, 7, 1))

    def test_invalid_spectrum_is_refused_before_any_call(self):
        bad_items = ["1", None, 1.5, double.NoNumber(), (1,)]
        bad_tuples = [(1,) * 500 + (item,) for item in bad_items]
        for refused in [*bad_tuples, [1, 2], None, "12", 5, (0,) * 32769]:
            with self.case(str(refused)[-20:]):
                self.check("setSpectrum", (5, refused, 0, 0), double.BAD_ARGUMENTS, [])

    def test_failed_transfer_ends_the_write(self):
        double.answer("SOrvGetParam", buffer=1024)
        double.answer("SOrvPutSpectrum", FAILURE, when={"firstChannel": 257})
        self.assertEqual(pyORV3.setSpectrum(5, (1,) * 1024, 0, 0), FAILED)
        self.assertEqual(pieces("SOrvPutSpectrum"), [(1, 256), (257, 256)])
