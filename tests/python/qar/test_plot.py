"""Figures of spectra: what they contain, and that they agree with the table of peaks."""

import subprocess
import sys
import unittest

import qar
import support
from qar import formats, optional_imports

STARTS = {"png": b"\x89PNG\r\n", "svg": b"<?xml", "pdf": b"%PDF-"}


@unittest.skipUnless(optional_imports.optional("matplotlib"), "matplotlib is not installed")
class TestPlot(support.TestCase):
    def setUp(self):
        super().setUp()
        self.source = qar.open(support.make_spectrum("a.qar"), "r+")
        self.addCleanup(self.source.close)
        self.results = self.source.analyse()

    def lines(self, axes, label):
        """The positions and heights of each line of a figure, from that with a label on."""
        lines = axes.get_lines()
        start = [line.get_label() for line in lines].index(label)
        return [(list(line.get_xdata()), list(line.get_ydata())) for line in lines[start:]]

    def test_drawn_fits_and_residuals_give_the_chi_squares_and_areas_of_the_table(self):
        formats.write("b.qar", formats.read(support.PROJECT / "examples" / "sample.n42")[0])
        with qar.open("b.qar", "r+") as source:
            results, counts = source.analyse(), source.spectrum()
        axes = results.plot(residuals=True).axes
        fits, regions = self.lines(axes[0], "fit"), results.drawing.regions
        self.assertEqual([len(fits), len(regions)], [12, 12])
        residuals = [list(line.get_ydata()) for line in axes[1].get_lines()[:-1]]
        for region, (_, model), drawn in zip(regions, fits, residuals):
            (peak,) = (results.peaks[index] for index in region.peaks)
            pairs = zip(counts[peak.left - 1 : peak.right], model)
            expected = [(count - height) / height**0.5 for count, height in pairs]
            self.assertEqual([round(r, 6) for r in drawn], [round(r, 6) for r in expected])
            squares = sum(r**2 for r in expected) + region.shape_chi_square
            chi_square = squares / region.degrees_of_freedom
            self.assertAlmostEqual(chi_square / peak.chi_square, 1, delta=0.02)
            net = sum(model) - len(model) * (model[0] + model[-1]) / 2
            self.assertAlmostEqual(net / peak.area, 1, delta=0.1)

    def test_options_add_parts_to_the_figure(self):
        (axes,) = self.results.plot(region=(600, 700), peaks=True, scale="linear").axes
        self.assertEqual((axes.get_xlim(), axes.get_yscale()), ((600, 700), "linear"))
        self.assertEqual([text.get_text() for text in axes.texts], ["Cs-137 661.7"])
        (_, continuum), (_, single), (_, fit) = self.lines(axes, "continuum")[:3]
        middle = len(fit) // 2
        self.assertAlmostEqual(single[middle], fit[middle], delta=1)
        self.assertGreater(fit[middle], 20 * continuum[middle])

    def test_energies_are_those_of_the_results_after_a_correction(self):
        self.source["QAR_L_CORRLINES"] = 5
        self.source.set_column("QAR_D_ENERGYCORR", (1.0, 1.01))
        (axes,) = self.source.plot().axes
        energies, _ = self.lines(axes, "counts")[0]
        expected = 1 + 1.01 * self.source.calibration().energy_at(440)
        self.assertAlmostEqual(energies[439], expected)

    def test_compared_spectrum_is_scaled_to_the_live_time(self):
        with qar.open(support.make_spectrum("b.qar", title="blank"), "r+") as other:
            other["QAR_D_LIVETIME"] = 400.0
            (axes,) = self.source.plot(compare=other).axes
            _, heights = self.lines(axes, "blank (× 0.25)")[0]
            self.assertEqual(heights, [count / 4 for count in other.spectrum()])
            other.set_calibration(energy=())
        with qar.open("c.qar", "x") as other:
            other.set_spectrum([5, 6, 7])
            with self.assertRaisesRegex(ValueError, "only one of the two"):
                self.source.plot(compare=other)

    def test_command_writes_the_format_of_the_suffix(self):
        for suffix, start in STARTS.items():
            name = f"new.{suffix}"
            self.assertEqual(self.run_well("plot", "a.qar", "-o", name), f"{name}\n")
            self.assertEqual((self.folder / name).read_bytes()[: len(start)], start)
        command = [sys.executable, "-B", "-m", "qar", "plot", "-", "-o", "-"]
        with open("a.qar", "rb") as file:
            piped = subprocess.run(command, stdin=file, stdout=subprocess.PIPE, timeout=60)
        self.assertEqual(piped.stdout[:6], STARTS["png"])

    def test_region_outside_the_spectrum_is_refused(self):
        ran = support.run("plot", "a.qar", "--region", "3000:4000")
        self.assertRegex(ran.err[0], "no channel; the spectrum is from 5.0 to 1535.2 keV")
        self.assertEqual((ran.code, self.names()), (2, ["a.qar"]))

    def test_bare_file_is_analysed_for_its_picture(self):
        formats.write("bare.n42", formats.read("a.qar")[0]._replace(shape=()))
        self.assertEqual(support.run("plot", "bare.n42", "-o", "bare.svg").code, 0)
        self.assertIn("<!-- Cs-137 661.7 -->", self.read("bare.svg"))
        formats.write("none.csv", formats.Measurement((5, 6, 7)))
        ran = support.run("plot", "none.csv")
        self.assertRegex("\n".join(ran.err), "none.csv: drawn without an analysis: .*calibration")
        self.assertEqual((ran.code, ran.out), (0, "none.png\n"))

    def test_notebook_shows_results_as_tables_after_the_source_is_closed(self):
        self.source.close()
        html = self.results._repr_html_()
        for part in ("2 peaks", "Cs-137</td>", "1 nuclide", "<th>FWHM<br>keV</th>"):
            self.assertIn(part, html)
        self.assertEqual(self.results.peaks._repr_html_().count("<tr>"), 3)
        self.assertEqual(self.results.nuclides._repr_html_().count("<tr>"), 2)
        self.assertEqual(len(self.results.plot().axes), 1)

    def test_many_files_are_analysed_in_copies_and_failures_left_out(self):
        self.source.close()
        formats.write("b.n42", formats.read("a.qar")[0])
        before = (self.folder / "a.qar").read_bytes()
        paths = ["a.qar", self.write("damaged.spe", "$SPEC_ID:"), self.folder / "b.n42"]
        with self.assertWarnsRegex(UserWarning, "^damaged.spe: "):
            found = list(qar.analyse_files(paths, progress=False, QAR_D_PEAKLIMIT=9.0))
        self.assertEqual([path for path, _ in found], [paths[0], paths[2]])
        self.assertEqual([len(results.peaks) for _, results in found], [2, 2])
        self.assertEqual((self.folder / "a.qar").read_bytes(), before)

    def test_notebook_completes_the_names_of_parameters(self):
        self.assertIn("QAR_D_LIVETIME", self.source._ipython_key_completions_())
