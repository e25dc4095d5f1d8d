"""The contents of interactive reports; tests/browser checks how they behave."""

import itertools
import json
import math
import random
import re
import unittest
from unittest import mock

import qar
import support
from qar.analysis.expected_lines import expected_lines
from qar.display import assets, report

OWN, FOREIGN = "Cs-137", "Ba-133"


def data_of(page):
    return json.loads(re.search('id="report-data">(.*?)</script>', page, re.S)[1])


class TestPage(support.TestCase):
    @unittest.skipUnless(assets.is_interactive(), "built without the charting library")
    def test_curves_in_the_page_have_the_chi_square_of_the_table(self):
        generator = random.Random(2)
        with qar.open(support.make_spectrum("a.qar"), "r+") as source:
            counts = [round(generator.gauss(mean, mean**0.5)) for mean in source.spectrum()]
            source.set_spectrum([max(count, 0) for count in counts])
            results = source.analyse()
            overlays = [report.Overlay("</script>", [0.0] * len(counts))]
            page = data_of(report.page(source, results, report.Options(overlays=overlays)))
            freedom = source["QAR_L_PEAKFREEDOM"]
            total = source["QAR_D_SHAPECHISQ"]
        region = page["regions"][0]
        model = [step * region["unit"] for step in itertools.accumulate(region["model"])]
        for count, mean in zip(page["counts"][region["first"] - 1 :], model):
            total += (count - mean) ** 2 / max(mean, 0.5)
        self.assertAlmostEqual(total / freedom / results.peaks[0].chi_square, 1, delta=0.02)
        self.assertEqual(page["overlays"][0]["name"], "</script>")

    def test_page_without_the_charting_library_is_static_and_has_a_note(self):
        with qar.open(support.make_spectrum("a.qar")) as source:
            with mock.patch.object(assets, "_LIBRARY", "none"):
                page = report.page(source, source.results())
                self.assertEqual(assets.shared_files(), {})
        self.assertIn(assets.NO_LIBRARY, page)
        self.assertIn("script-src &#x27;none&#x27;", page)
        self.assertNotIn("<script>", page)

    def test_energies_of_the_page_are_corrected_like_those_of_the_peaks(self):
        with qar.open(support.make_spectrum("a.qar"), "r+") as source:
            source.set_column("QAR_D_ENERGYCORR", (2.0, 1.01))
            self.assertEqual(report.corrected_calibration(source).energy[0], 3.4961)
            source["QAR_L_CORRLINES"] = 3
            energy = report.corrected_calibration(source).energy_at(440)
            self.assertAlmostEqual(energy, 2.0 + 1.01 * source.calibration().energy_at(440))

    def test_impossible_values_in_a_file_do_not_prevent_its_page(self):
        values = [
            ("QAR_D_ENERGYCAL", math.nan), ("QAR_D_ENERGYCAL", 1e308), ("QAR_D_EFFICCAL", 1e9),
            ("QAR_D_PEAKAREA", math.inf), ("QAR_D_PEAKAREAU", 1e-300), ("QAR_D_PEAKENERGY", math.nan),
            ("QAR_D_CONTLEVEL", 1e300), ("QAR_D_LINEYIELD", math.inf), ("QAR_D_MATCHTOL", -1.0),
        ]  # fmt: skip
        with qar.open(support.make_spectrum("a.qar"), "r+") as source:
            source.set_calibration(efficiency=(0.0, -1.0))
            library = (qar.Nuclide("Cs-137", 1e9, (qar.GammaLine(661.7, 0.85),)),)
            source.set_nuclide_library(library)
            source.analyse(QAR_D_MATCHTOL=2.0)
            for name, value in values:
                kept, source[name] = source[name], value
                with self.subTest(name):
                    self.assertIn("</html>", report.page(source, source.results()))
                source[name] = kept


class TestComparison(support.TestCase):
    def test_other_spectrum_is_scaled_to_the_live_time_and_rebinned_by_energy(self):
        with qar.open("a.qar", "x") as source, qar.open("b.qar", "x") as other:
            source.set_spectrum([1] * 100)
            source.set_calibration((0.0, 1.0))
            other.set_spectrum([0] * 20 + [600] * 10 + [0] * 20)
            other.set_calibration((-0.5, 2.0))  # from channel 41 to 60 of the other
            self.assertIn("not scaled", report.overlay_of(source, other, "b").name)
            source["QAR_D_LIVETIME"], other["QAR_D_LIVETIME"] = 10.0, 30.0
            overlay = report.overlay_of(source, other, "b")
        self.assertEqual((overlay.name, len(overlay.counts)), ("b × 0.3333", 100))
        self.assertAlmostEqual(sum(overlay.counts), 2000)
        self.assertEqual([round(count) for count in overlay.counts[39:61]], [0] + [100] * 20 + [0])


class TestExpectedLines(unittest.TestCase):
    def test_counts_follow_from_the_nuclides_own_peaks(self):
        lines = ((100.0, 0.5), (200.0, 0.25), (300.0, 0.1), (400.0, 1e-4), (900.0, 0.9))
        nuclide = qar.Nuclide(OWN, 1.0, tuple(qar.GammaLine(*line) for line in lines))
        peaks = [
            qar.Peak(100.3, fwhm=1.0, area=1000.0, area_uncertainty=10.0, nuclide=OWN),
            qar.Peak(99.9, fwhm=1.0, area=5000.0, area_uncertainty=10.0, nuclide=FOREIGN),
            qar.Peak(200.2, fwhm=1.0, area=700.0, area_uncertainty=10.0, nuclide=FOREIGN),
        ]
        calibration = qar.Calibration((0.0, 1.0), efficiency=(0.0, -1.0))  # 1 / energy
        found = expected_lines(nuclide, peaks, calibration, 0.5, 500.0)
        self.assertEqual([line.energy for line in found], [100, 200, 300])  # not faint, not outside
        self.assertEqual([(line.peak, line.is_own) for line in found],
                         [(0, True), (2, False), (None, False)])  # fmt: skip
        expected = [1000.0, 250.0, 1000 / 15]
        for line, counts in zip(found, expected):
            self.assertAlmostEqual(line.expected, counts)
        without = expected_lines(nuclide, peaks, qar.Calibration((0.0, 1.0)), 0.5, 500.0)
        self.assertEqual({line.expected for line in without}, {None})


if __name__ == "__main__":
    unittest.main()
