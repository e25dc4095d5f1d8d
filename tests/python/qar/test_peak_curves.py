"""Curves of fitted regions."""

import math
import os
import random
import sys
import unittest

import qar
import support
from qar import formats
from qar.analysis import peak_curves
from qar.analysis.calibration import FWHM_PER_SIGMA

sys.path.insert(0, str(support.PROJECT / "examples"))

import simulation  # noqa: E402

CHANNELS, FWHM = 2048, 5.0


def means():
    """Return the expected contents: tailed peaks, a doublet and weak neighbours on a step."""
    contents = [200 - 0.05 * channel for channel in range(CHANNELS)]
    peaks = [(300 + 150 * number, 40000) for number in range(11)] + [(907, 20000), (1060, 90)]
    for centre, area in peaks:
        sigma = FWHM / FWHM_PER_SIGMA
        tailed = [simulation.normal_cdf((c - 0.5 - centre) / sigma) for c in range(CHANNELS + 1)]
        for channel in range(CHANNELS):
            distance = channel - centre
            tail = math.exp(distance / 4) / 4 if distance < 0 else 0.0
            contents[channel] += area * (0.9 * (tailed[channel + 1] - tailed[channel]) + 0.1 * tail)
            contents[channel] += area * 2e-4 * (1 - tailed[channel])
    return contents


def analysed(name, counts):
    with qar.open(name, "x") as source:
        source.set_spectrum(counts)
        source.set_calibration((0.0, 0.7), (0.7**2 * FWHM**2,))
        source.analyse()
    return qar.open(name, "r+")


def curves_of(source):
    counts = source.spectrum()
    return peak_curves.curves_of(source, source.results().peaks, counts, source.calibration())


class TestCurves(support.TestCase):
    def check(self, source):
        """Check that chi-square of each drawn curve is that in the table; return the curves."""
        counts, peaks = source.spectrum(), source.results().peaks
        excess = peak_curves.excess_variance(counts)
        curves = curves_of(source)
        drawn = sorted(index for curve in curves for index in curve.region.peaks)
        self.assertEqual(drawn, [*range(len(peaks))])
        for curve in curves:
            listed = peaks[curve.region.peaks[0]].chi_square
            ratio = curve.chi_square(counts, excess) / listed
            self.assertAlmostEqual(ratio, 1, delta=0.02, msg=curve.region)
            self.assertLess(curve.region.shape_chi_square, 0.5 * listed * len(curve.model))
        return curves

    def test_chi_square_of_drawn_curves_is_that_of_the_table(self):
        generator = random.Random(3)
        counts = [simulation.poisson(mean, generator) for mean in means()]
        with analysed("tails.qar", counts) as source:
            curves = self.check(source)
        self.assertTrue(any(shape.left for curve in curves for shape in curve.region.shapes))
        self.assertTrue(any(len(curve.peaks) > 1 for curve in curves))
        for curve in curves:
            for area, shape in zip(map(sum, curve.peaks), curve.region.shapes):
                self.assertAlmostEqual(area / shape.area, 1, delta=0.05)

    def test_chi_square_agrees_if_a_background_was_subtracted(self):
        generator = random.Random(4)
        contents = means()
        background = [190 - 0.05 * channel for channel in range(CHANNELS)]
        counts = [
            simulation.poisson(mean, generator) - simulation.poisson(subtracted, generator)
            for mean, subtracted in zip(contents, background)
        ]
        with analysed("difference.qar", counts) as source:
            self.check(source)

    @unittest.skipUnless(support.SPECTRA, "PYORV3_SPECTRA names no folder of spectra")
    def test_chi_square_agrees_in_real_spectra(self):
        for name in ("mixture.txt", "background-5d.spe", "eu152-7cm.spe"):
            with self.subTest(name):
                measurement = formats.read(os.path.join(support.SPECTRA, name))[0]
                formats.write("real.qar", measurement, "qar", replace=True)
                with qar.open("real.qar", "r+") as source:
                    source.analyse()
                    self.check(source)

    def test_peaks_without_a_model_get_gaussians_on_a_straight_line(self):
        counts = [5] * 100
        places = [(50, 41, 59), (30, 21, 39), (40, None, None), (90, 95, 85)]
        with qar.open("other.qar", "x") as source:
            source.set_spectrum(counts)
            source.set_calibration((0.0, 1.0))
            for record, (centre, left, right) in enumerate(places, start=1):
                source["QAR_D_PEAKCENTR", record] = centre
                source["QAR_D_PEAKFWHM", record], source["QAR_D_PEAKAREA", record] = 4.0, 80.0
                if left:
                    source["QAR_L_PEAKLEFT", record], source["QAR_L_PEAKRIGHT", record] = (
                        left,
                        right,
                    )
            (curve,) = curves_of(source)
        self.assertEqual((curve.region.first, curve.region.last), (21, 59))
        self.assertEqual((curve.region.peaks, curve.region.is_fit), ((1, 2, 0), False))
        self.assertAlmostEqual(sum(curve.model), 39 * 5 + 240, delta=1)
        self.assertIsNone(curve.chi_square(counts))
        counts[44] = 500
        residuals = curve.residuals(counts)
        self.assertEqual(residuals.index(max(residuals)), 44 - 20)

    def test_damaged_models_are_not_drawn(self):
        counts = [100] * 300
        for channel in range(-12, 13):
            counts[150 + channel] += round(5000 * 2.0 ** -((channel / 2.5) ** 2))
        faults = [
            ("QAR_D_PEAKWIDTH", 0.0), ("QAR_D_LEFTTAIL", 1.5), ("QAR_D_PEAKBROAD", 0.0),
            ("QAR_D_PEAKDRIFT", math.inf), ("QAR_D_CONTLEVEL", math.nan), ("QAR_L_PEAKRIGHT", 301),
        ]  # fmt: skip
        with analysed("damaged.qar", counts) as source:
            self.assertTrue(curves_of(source)[0].region.is_fit)
            for name, value in faults:
                plain = float(name == "QAR_D_PEAKBROAD")
                kept, source[name] = source.get(name, default=plain), value
                self.assertFalse([c for c in curves_of(source) if c.region.is_fit], name)
                source[name] = kept

    def test_work_is_limited_if_a_file_claims_many_wide_peaks(self):
        shape = peak_curves.Shape(50.0, 4.0, 80.0)
        region = peak_curves.Region(1, 1000, (0,), (shape,) * 9, 5.0, 0.0, 0.0, (), 9, 0.0, True)
        affordable = peak_curves._affordable([region] * 100, 1000)
        self.assertEqual(len([*affordable]), 6)


if __name__ == "__main__":
    unittest.main()
