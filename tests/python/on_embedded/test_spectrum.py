"""Spectra of all sizes survive; refused ones leave what was there."""

import random
import unittest

import embedded
import pyORV3


class Spectrum(embedded.TestCase):
    def write(self, handle, channels):
        self.set(handle, "QAR_L_CHANNELS", len(channels))
        self.ok(pyORV3.setSpectrum(handle, tuple(channels), 0, 0))

    def test_all_sizes_survive(self):
        generator = random.Random(5)
        for size in (1, 255, 256, 257, 2047, 2048, 2049, 4096, 5000, 16384, 32768):
            with self.subTest(size=size):
                name = f"{size}.qar"
                channels = tuple(generator.randint(-(2**31), 2**31 - 1) for _ in range(size))
                handle = self.create(name)
                self.write(handle, channels)
                self.assertEqual(self.ok(pyORV3.getSpectrum(handle, 0, 0)), channels)
                handle = self.reopened(handle, name)
                self.assertEqual(self.ok(pyORV3.getSpectrum(handle, 0, 0)), channels)

    def test_a_short_tuple_is_filled_with_zeros_to_the_next_size(self):
        handle = self.create()
        self.write(handle, [9] * 1024)
        self.ok(pyORV3.setSpectrum(handle, tuple([7] * 100), 0, 0))
        expected = tuple([7] * 100 + [0] * 156 + [9] * 768)
        self.assertEqual(self.ok(pyORV3.getSpectrum(handle, 0, 0)), expected)
        self.ok(pyORV3.setSpectrum(handle, tuple([5] * 2000), 0, 0))
        handle = self.reopened(handle)
        self.assertEqual(self.ok(pyORV3.getSpectrum(handle, 0, 0)), tuple([5] * 1024))

    def test_items_keep_their_low_32_bits(self):
        handle = self.create()
        self.write(handle, [-1, 2**32 + 5, 2**31, True])
        self.assertEqual(self.ok(pyORV3.getSpectrum(handle, 0, 0)), (-1, 5, -(2**31), 1))

    def test_refused_spectra_change_nothing(self):
        handle = self.create()
        self.write(handle, [3, 2, 1])
        for channels in [(1, "2", 3), (1, 2.5, 3), (1, None, 3), [1, 2, 3], None, (0,) * 32769]:
            answer = pyORV3.setSpectrum(handle, channels, 0, 0)
            self.fails(embedded.BAD_ARGUMENTS, answer)
        self.assertEqual(self.ok(pyORV3.getSpectrum(handle, 0, 0)), (3, 2, 1))

    def test_a_block_of_channels_is_a_spectrum_of_zeros(self):
        handle = self.create()
        self.ok(pyORV3.createBlock(handle, embedded.SPECTRUM, 300))
        self.assertEqual(self.ok(pyORV3.getSpectrum(handle, 0, 0)), (0,) * 512)
        self.assertEqual(self.ok(pyORV3.count(handle, embedded.SPECTRUM, 1)), 512)


if __name__ == "__main__":
    unittest.main()
