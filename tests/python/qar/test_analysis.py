"""Calibrations and analyses."""

import json
import math
import pathlib
import random
import sys
import unittest

import qar
import support
from qar.analysis.calibration import (
    FWHM_PER_SIGMA,
    counted_from_one,
    counted_from_zero,
    fit_polynomial,
    polynomial,
)
from qar.analysis.known_lines import MeasuredPeak, calibrate

sys.path.insert(0, str(support.PROJECT / "examples"))

import nuclide_analysis  # noqa: E402
import simulation  # noqa: E402


class TestCalibration(support.TestCase):
    CURVED = (1.25, 0.4985, 3e-7, -2e-12)

    def test_functions_of_channel_and_energy_agree_with_the_polynomials(self):
        calibration = qar.Calibration(self.CURVED, (1.2, 0.002), (-2.5, 0.5, -0.1))
        for channel in (0.5, 1, 1000.25, 16384):
            energy = calibration.energy_at(channel)
            self.assertAlmostEqual(calibration.channel_at(energy), channel, places=8)
        self.assertEqual(calibration.energies(3)[2], calibration.energy_at(3))
        self.assertAlmostEqual(calibration.fwhm_at(661.657), math.sqrt(1.2 + 0.002 * 661.657))
        logarithm = math.log(100)
        efficiency = math.exp(-2.5 + 0.5 * logarithm - 0.1 * logarithm**2)
        self.assertAlmostEqual(calibration.efficiency_at(100), efficiency)
        refused = [
            (qar.Calibration().energy_at, 5), (qar.Calibration((5.0, -1.0)).channel_at, 3),
            (qar.Calibration((5.0,)).channel_at, 3), (qar.Calibration((), (0.0,)).fwhm_at, 3),
        ]  # fmt: skip
        for function, argument in refused:
            with self.assertRaises(ValueError):
                function(argument)

    def test_origin_of_channels_is_shifted_in_both_directions(self):
        shifted = polynomial(counted_from_zero(self.CURVED), 16383)
        self.assertAlmostEqual(shifted, polynomial(self.CURVED, 16384), places=9)
        self.assertEqual(counted_from_one((1, 2, 3)), (2.0, -4.0, 3.0))
        self.assertEqual((counted_from_zero(()), counted_from_zero((3.0,))), ((), (3.0,)))

    def test_fit_is_exact_if_the_points_are_on_a_polynomial(self):
        xs = [1.0, 2048.5, 8000.0, 16384.0]
        found = fit_polynomial(xs, [polynomial(self.CURVED, x) for x in xs], [1, 2, 3, 4], 3)
        for x in (3.0, 5000.0, 16000.0):
            self.assertAlmostEqual(polynomial(found, x), polynomial(self.CURVED, x), places=8)

    def test_known_lines_calibrate_narrow_and_broad_peaks(self):
        generator = random.Random(5)
        for fwhm in (2.0, 6.0, 20.0, 60.0):
            sigma, peaks = fwhm / FWHM_PER_SIGMA, ((701.3, 60000), (2500.7, 20000), (3500.2, 9000))
            edges = [
                sum(area * simulation.normal_cdf((c + 0.5 - at) / sigma) for at, area in peaks)
                for c in range(4097)
            ]
            means = [20 + high - low for low, high in zip(edges, edges[1:])]
            counts = [simulation.poisson(mean, generator) for mean in means]
            lines = {0.5 * at + 3: at + 5 for at, _ in peaks}
            with self.subTest(fwhm=fwhm), qar.open(f"{fwhm}.qar", "x") as source:
                source.set_spectrum(counts)
                result = source.calibrate(lines)
                for point, (at, _) in zip(result.points, peaks):
                    self.assertLess(abs(point.centroid - at), 5 * point.centroid_uncertainty + 0.02)
                    self.assertLess(abs(point.fwhm / 0.5 - fwhm) / fwhm, 0.04)
                self.assertEqual(source.calibration()[:2], result.calibration[:2])
                self.assertTrue(source["QAR_T_ENERGYTIME"])

    def test_known_line_on_a_slope_beside_a_neighbour_is_measured(self):
        generator = random.Random(6)
        sigma = 6 / FWHM_PER_SIGMA
        means = [
            6000 * math.exp(-channel / 900)
            + sum(
                8000 * height * math.exp(-0.5 * ((channel - at) / sigma) ** 2)
                for at, height in ((300.3, 1.0), (312.3, 0.6), (700.6, 0.3))
            )
            for channel in range(1, 1025)
        ]
        with qar.open("slope.qar", "x") as source:
            source.set_spectrum([simulation.poisson(mean, generator) for mean in means])
            points = source.calibrate({100.0: 301, 104.0: 312, 233.4: 700}).points
            source.set_calibration((0.0, 1 / 3), (4.0, 0.01))
            width_only = source.calibrate({100.0: 300})
        for point, centroid in zip(points, (300.3, 312.3, 700.6)):
            self.assertAlmostEqual(point.centroid, centroid, delta=0.1)
            self.assertAlmostEqual(point.fwhm * 3, 6, delta=0.4)
        self.assertEqual(width_only.calibration.energy, (0.0, 1 / 3))
        self.assertAlmostEqual(width_only.calibration.fwhm_at(100.0), 2.0, delta=0.1)
        self.assertIn("only the width", width_only.notes[0])

    def test_nuclides_calibrate_a_spectrum_without_calibration(self):
        with qar.open("mixed.qar", "x") as source:
            source.set_spectrum(simulation.measure(417))
            result = source.calibrate_from_nuclides(sorted(simulation.ACTIVITIES))
            for channel in (500, 3500):
                expected = qar.Calibration(simulation.ENERGY).energy_at(channel)
                self.assertAlmostEqual(result.calibration.energy_at(channel), expected, delta=0.5)
            self.assertEqual(source.record_count("QAR_C_NUCLNAME"), 0)
            with self.assertRaisesRegex(qar.BadArgumentError, "unknown nuclide 'Xx-9'"):
                source.calibrate_from_nuclides(["Xx-9"])

    @staticmethod
    def peaks_of(energy, width=2.0):
        """Return exact peaks of lines for an energy polynomial."""
        calibration = qar.Calibration(energy)
        return {
            line: MeasuredPeak(calibration.channel_at(line), 0.02, width / energy[1], 0.01)
            for line in (100.0, 400.0, 700.0, 1000.0, 1300.0, 1600.0)
        }

    def test_residuals_choose_the_degree(self):
        for energy, degree in (((1.0, 0.5), 1), ((1.0, 0.5, 4e-6), 2), ((1.0, 0.5, 4e-6, 2e-9), 3)):
            result = calibrate(self.peaks_of(energy), qar.Calibration(), 3000)
            self.assertEqual(len(result.calibration.energy), degree + 1)
        self.assertEqual(len(calibrate(self.peaks_of(energy), qar.Calibration(), 3000, 1)[0][0]), 2)

    def test_better_energy_calibration_is_kept_unless_forced(self):
        peaks = self.peaks_of((1.0, 0.5))
        for number, line in enumerate(sorted(peaks)):  # scatter, a third of a keV
            peaks[line] = peaks[line]._replace(
                centroid=peaks[line].centroid + (-1) ** number * 0.35
            )
        good, poor = qar.Calibration((1.0, 0.5), (4.1,)), qar.Calibration((2.0, 0.5), (9.0,))
        result = calibrate(peaks, good, 3000)
        self.assertEqual(result.calibration, good)
        self.assertEqual([note.split(":")[0][-4:] for note in result.notes], ["kept", "kept"])
        for existing, force in ((poor, False), (good, True)):
            new = calibrate(peaks, existing, 3000, force=force).calibration
            self.assertNotEqual(new.energy, existing.energy)
            self.assertNotEqual(new.shape, existing.shape)

    def test_outlying_width_is_reported_and_not_used(self):
        peaks = self.peaks_of((1.0, 0.5))
        peaks[700.0] = peaks[700.0]._replace(fwhm=1.5 * peaks[700.0].fwhm)
        result = calibrate(peaks, qar.Calibration(), 3000)
        self.assertEqual([p.energy for p in result.points if p.is_outlying], [700.0])
        self.assertIn("700 keV was not used", result.notes[0])
        self.assertAlmostEqual(result.calibration.fwhm_at(700.0), 2.0, delta=0.05)

    @unittest.skipUnless(support.SPECTRA, "PYORV3_SPECTRA names no folder of spectra")
    def test_known_lines_calibrate_real_spectra(self):
        folder = pathlib.Path(support.SPECTRA)
        spectra = json.loads((folder / "spectra.json").read_text(encoding="utf-8"))
        for name in ("eu152-point.txt", "bi207-1cm.txt"):
            peaks = spectra[name]["peaks"]
            strong = [p for p in peaks if p["significance"] > 150 and p["in_group_of"] == 1]
            lines = {p["energy"]: p["channel"] + 4 for p in strong}
            with qar.open(f"{name}.qar", "x") as source:
                source.set_spectrum(qar.formats.read(folder / name)[0].counts)
                result = source.calibrate(lines)
            widths = qar.Calibration((), tuple(spectra[name]["shape"]))
            for peak, point in zip(strong, result.points):
                with self.subTest(name, energy=peak["energy"]):
                    self.assertLess(abs(point.centroid - peak["channel"]), 1.0)
                    self.assertLess(abs(point.fwhm / widths.fwhm_at(point.energy) - 1), 0.1)


class TestAnalysis(support.TestCase):
    def test_results_are_records_that_are_read_again(self):
        with qar.open("mixed.qar", "x") as source:
            source.set_spectrum(simulation.measure(417))
            source.set_calibration(simulation.ENERGY, simulation.SHAPE, simulation.EFFICIENCY)
            source.set_nuclide_library(nuclide_analysis.library())
            results = source.analyse(QAR_D_PEAKLIMIT=5.0, QAR_D_MATCHTOL=0.6, QAR_D_MINCONF=0.8)
            self.assertEqual(source["QAR_D_PEAKLIMIT"], 5.0)
        with qar.open("mixed.qar", "r+") as source:
            self.assertEqual(source.results(), results)
            self.assertEqual({n.name for n in results.nuclides}, set(simulation.ACTIVITIES))
            strongest = max(results.peaks, key=lambda peak: peak.area)
            self.assertLess(abs(strongest.energy - 59.541), 0.1)
            self.assertEqual(strongest.nuclide, "Am-241")
            self.assertLess(abs(source.calibration().energy_at(strongest.centroid) - 59.541), 0.1)
            source.delete_results()
            self.assertEqual(source.results()[:3], ((), (), ()))

    def test_channels_without_a_width_raise_a_warning(self):
        with qar.open("narrow.qar", "x") as source:
            source.set_spectrum([5] * 500 + [50, 200, 400, 200, 50] + [5] * 500)
            source.set_calibration((0.0, 1.0), (-1.0, 0.01))  # no width below 100 keV
            with self.assertWarnsRegex(UserWarning, "no usable width"):
                self.assertEqual(len(source.analyse().peaks), 1)

    def test_nuclide_library_is_read_back(self):
        lines = (qar.GammaLine(63.29, 0.037, 0.02, 0.004, True), qar.GammaLine(92.5))
        nuclides = [qar.Nuclide("Th-234", 2.08e6, lines, 3e2, "U-238", False), qar.Nuclide("X")]
        with qar.open("library.qar", "x") as source:
            source.set_nuclide_library(nuclides)
            self.assertEqual(repr(source.nuclide_library()), repr(nuclides))
