"""Reading and writing a whole spectrum."""

import struct
import unittest

import double
import pyORV3

COUNT_READ = ("SOrvGetParam", 5, 0x20000007, 1, 1, 4)


def pieces(function):
    """First channel and channel count of each transfer."""
    return [(call["firstChannel"], call["channelCount"]) for call in double.arguments(function)]


class GetSpectrum(double.TestCase):
    # The file's channel count and the transfers.
    PIECES = [
        (0, [(1, 0)]),
        (1, [(1, 1)]),
        (1024, [(1, 1024)]),
        (2048, [(1, 2048)]),
        (5000, [(1, 2048), (2049, 2048), (4097, 904)]),
        (65535, [(1 + 2048 * piece, 2048) for piece in range(31)] + [(63489, 2047)]),
    ]

    def test_comes_whole_in_pieces_of_2048(self):
        for count, expected in self.PIECES:
            with self.case(count):
                channels = tuple(channel * 7 - 3000 for channel in range(count))
                double.set_channels(channels)
                double.answer("SOrvGetParam", buffer=count)
                self.assertEqual(pyORV3.getSpectrum(5, 98, 99), (0, channels))
                self.assertEqual(pieces("SOrvGetSpectrum"), expected)
                self.assertEqual(double.calls()[0], COUNT_READ)
                self.assertEqual(double.calls()[1][1::3], (5, 0))

    def test_contents_are_signed_32_bit(self):
        channels = (-(2**31), -1, 0, 1, 2**31 - 1)
        double.set_channels(channels)
        double.answer("SOrvGetParam", buffer=len(channels))
        self.assertEqual(pyORV3.getSpectrum(5, 0, 0), (0, channels))

    def test_impossible_counts_are_refused(self):
        for count in (-1, -(2**31), 65536, 2**31 - 1):
            with self.case(count):
                double.answer("SOrvGetParam", buffer=count)
                self.assertEqual(pyORV3.getSpectrum(5, 0, 0), (double.BAD_ARGUMENTS, (0,)))
                self.assertEqual(double.calls(), [COUNT_READ])

    def test_failures_give_the_library_status_and_no_spectrum(self):
        failed = (double.signed(0xEBE80010), (0,))
        with self.case("count"):
            double.answer("SOrvGetParam", 0x270010, buffer=3)
            self.assertEqual(pyORV3.getSpectrum(5, 0, 0), failed)
            self.assertEqual(double.calls(), [COUNT_READ])
        with self.case("second transfer"):
            double.answer("SOrvGetParam", buffer=6000)
            double.answer("SOrvGetSpectrum", 0x270010, when={"firstChannel": 2049})
            self.assertEqual(pyORV3.getSpectrum(5, 0, 0), failed)
            self.assertEqual(pieces("SOrvGetSpectrum"), [(1, 2048), (2049, 2048)])


class SetSpectrum(double.TestCase):
    # Items of the tuple, channels of the file (None: not readable), how many channels are written,
    # and the transfers.
    PIECES = [
        (1000, 1024, 1024, [(1, 256), (257, 256), (513, 256), (769, 256)]),
        (100, 1024, 256, [(1, 100), (101, 156)]),
        (2000, 1024, 1024, [(1, 256), (257, 256), (513, 256), (769, 256)]),
        (300, 200, 200, [(1, 200)]),
        (300, 280, 280, [(1, 256), (257, 24)]),
        (257, 4096, 512, [(1, 256), (257, 256)]),
        (100, None, 256, [(1, 100), (101, 156)]),
        (0, 1024, 256, [(1, 0), (1, 256)]),
        (0, 100, 100, [(1, 0), (1, 100)]),
        (5, 0, 0, [(1, 0)]),
        (32768, 65535, 32768, [(1 + 256 * piece, 256) for piece in range(128)]),
        (16385, None, 32768, [(1 + 256 * piece, 256) for piece in range(128)]),
    ]

    def test_goes_in_pieces_of_256_and_zeros_follow(self):
        for items, channels, written, expected in self.PIECES:
            with self.case(items, channels):
                if channels is None:
                    double.answer("SOrvGetParam", 7, buffer=1)
                else:
                    double.answer("SOrvGetParam", buffer=channels)
                spectrum = tuple(range(1, items + 1))
                self.assertEqual(pyORV3.setSpectrum(5, spectrum, 98, 99), 0)
                self.assertEqual(double.calls()[0], COUNT_READ)
                self.assertEqual(pieces("SOrvPutSpectrum"), expected)
                content = b"".join(call["channels"] for call in double.arguments("SOrvPutSpectrum"))
                padded = (spectrum + (0,) * written)[:written]
                self.assertEqual(content, struct.pack("<%di" % written, *padded))

    def test_items_keep_their_low_32_bits(self):
        class Index:
            def __index__(self):
                return 77

        items = (-1, 2**31, 2**32 + 5, -(2**40) - 6, 2**64 + 7, True, Index())
        double.answer("SOrvGetParam", buffer=len(items))
        self.assertEqual(pyORV3.setSpectrum(5, items, 0, 0), 0)
        content = struct.unpack("<7i", double.arguments("SOrvPutSpectrum")[0]["channels"])
        self.assertEqual(content, (-1, -(2**31), 5, -6, 7, 1, 77))

    def test_what_is_no_spectrum_is_refused_before_any_call(self):
        class NoIndex:
            def __index__(self):
                raise RuntimeError("no index")

        bad_items = ["1", None, 1.5, b"1", NoIndex(), (1,)]
        bad_tuples = [(1,) * 500 + (item,) for item in bad_items]
        for refused in [*bad_tuples, [1, 2], None, "12", 5, {}, (0,) * 32769]:
            with self.case(type(refused), refused[-1:] if refused and refused != 5 else refused):
                self.assertEqual(pyORV3.setSpectrum(5, refused, 0, 0), double.BAD_ARGUMENTS)
                self.assertEqual(double.calls(), [])

    def test_failed_transfer_ends_it(self):
        double.answer("SOrvGetParam", buffer=1024)
        double.answer("SOrvPutSpectrum", 0x270010, when={"firstChannel": 257})
        status = pyORV3.setSpectrum(5, (1,) * 1024, 0, 0)
        self.assertEqual(status, double.signed(0xEBE80010))
        self.assertEqual(pieces("SOrvPutSpectrum"), [(1, 256), (257, 256)])


if __name__ == "__main__":
    unittest.main()
