"""The engine on real spectra, compared with independent analyses."""

import unittest

import real_spectra
import support

import embedded

# Nuclides of the examples' library in the two Eu-152 sources and their background.
IN_EU_152 = {"Eu-152", "Eu-154", "K-40", "Pb-212", "Pb-214", "Bi-214", "Tl-208", "Ac-228", "Bi-212"}


@unittest.skipUnless(support.SPECTRA, "PYORV3_SPECTRA names no folder of real spectra")
class TestRealSpectra(embedded.TestCase):
    def setUp(self):
        super().setUp()
        self.results = {}
        self.comparisons = {}
        for name in real_spectra.cases():
            case, results = real_spectra.analysed(name, self.path(name + ".qar"))
            self.results[name] = results
            self.comparisons[name] = real_spectra.Comparison(name, case, results.peaks)

    def test_certain_peaks_are_found_with_their_areas(self):
        certain = sum(comparison.certain for comparison in self.comparisons.values())
        missing = [peak for one in self.comparisons.values() for peak in one.missing]
        self.assertLessEqual(len(missing), 0.025 * certain, missing)
        false = [peak for one in self.comparisons.values() for peak in one.false]
        self.assertLessEqual(len(false), 2, false)
        for name, comparison in self.comparisons.items():
            found, certainly = comparison.annihilation()
            self.assertIn(found, (1,) if certainly else (0, 1), name)
            for what, area, other, part in comparison.areas():
                self.assertLess(abs(part), 1.0, (name, what, area, other))

    def test_nuclides_of_the_source_are_identified(self):
        for name in ("eu152-point.txt", "eu152-7cm.spe"):
            found = {nuclide.name for nuclide in self.results[name].nuclides}
            self.assertLessEqual({"Eu-152", "Eu-154"}, found, name)
            self.assertLessEqual(found, IN_EU_152, name)
