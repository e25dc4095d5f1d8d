"""The commands as a user gives them: exit codes, output, one line for what went wrong."""

import contextlib
import json
import os
import re
import shutil
import sqlite3
import struct
import subprocess
import sys

import qar
import support
from qar.display import layout, plot, report, tables, terminal
from qar.formats import nuclide_csv

COMMANDS = "show plot convert dump load calibrate analyse report check salvage status".split()

FAILURES = (  # arguments, what the one line says
    ("", "required: COMMAND"),
    ("show", "required: FILE"),
    ("show none.qar", "no file or input"),
    ("show none.spe", "none.spe: No such file"),
    ("show .", "Is a directory"),
    ("show two.n42", "--spectrum: A, B"),
    ("show two.n42 --spectrum C", 'no spectrum "C"'),
    ("convert a.qar", "FILE OUTPUT"),
    ("convert a.qar a.unknown", "unknown file extension"),
    ("convert a.qar none/b.spe", "no such folder"),
    ("calibrate a.qar --line 5", "CHANNEL=ENERGY"),
    ("calibrate a.qar --line 100=300 --line 440=661.7", "no peak"),
    ("calibrate a.qar --line 441=661.7 --line 781=1173.2 --degree 5", "wants 6 points"),
    ("analyse a.qar -l two.n42", "first line"),
    ("analyse a.qar --set QAR_D_PEAKLIMIT=much", "no value of a double"),
    ("analyse a.qar --set QAR_D_NOSUCH=1", "QAR_D_NOSUCH"),
    ("analyse a.qar --jobs 0", "from 1 to"),
    ("analyse empty", "no file to analyse"),
    ("report a.qar -o a.qar", "File exists"),
    ("salvage none.qar b.qar", "no file or input"),
    ("status word", "no status"),
)
SPECTRUM = (
    '<RadMeasurement><Spectrum id="%s"><ChannelData>%d 2</ChannelData></Spectrum></RadMeasurement>'
)
TWO = "<RadInstrumentData>" + SPECTRUM % ("A", 5) + SPECTRUM % ("B", 6) + "</RadInstrumentData>"

WRONG_LIBRARIES = (
    ("nuclide, half_life, energy\nA,1,2\n", "no column photons"),
    ("nuclide, half_life, energy, photons, colour\n", '"colour"'),
    ("nuclide, half_life, energy, photons\nA,1 week,2,1\n", "line 2"),
    ("nuclide, half_life, energy, photons\nA,1,0,1\n", "line 2"),
    ("nuclide, half_life, energy, photons\n,1,5,1\n", "no name"),
    ("nuclide, half_life, energy, photons\n", "no nuclide"),
)


class CommandLine(support.TestCase):
    def setUp(self):
        super().setUp()
        support.make_spectrum("a.qar")
        self.write("two.n42", TWO)
        os.mkdir("empty")

    def test_every_command_explains_itself(self):
        for command in COMMANDS:
            said = self.run_well(command, "--help")
            self.assertRegex(said, rf"usage: qar {command}(.|\n)*Exit codes")
            self.assertIn(command, self.run_well("--help"))

    def test_what_goes_wrong_is_one_line_and_leaves_nothing(self):
        before = self.names()
        for arguments, said in FAILURES:
            ran = support.run(*arguments.split())
            self.assertEqual((ran.code, ran.out, len(ran.err)), (2, "", 1), (arguments, ran))
            self.assertRegex(ran.err[0], "^qar.*" + re.escape(said))
            self.assertEqual(self.names(), before, arguments)

    def test_a_reader_that_has_seen_enough_is_no_failure_to_tell(self):
        reading, writing = os.pipe()
        os.close(reading)
        command = [sys.executable, "-B", "-m", "qar", "show", "a.qar"]
        result = subprocess.run(command, stdout=writing, stderr=subprocess.PIPE, timeout=60)
        os.close(writing)
        self.assertEqual((result.returncode, result.stderr), (2, b""))

    def test_several_spectra_give_a_file_each_or_the_named_one(self):
        self.assertEqual(support.run("convert", "two.n42", "x.qar").code, 0)
        self.assertEqual(
            support.run("convert", "two.n42", "y.csv", "--spectrum", "B").out, "y.csv\n"
        )
        found = [
            qar.transfer.conversion.read_any(name)[0].counts
            for name in ("x-A.qar", "x-B.qar", "y.csv")
        ]
        self.assertEqual(found, [(5, 2), (6, 2), (6, 2)])
        ran = support.run("convert", "--to", "csv", "--into", "empty", "none.spe", "two.n42")
        self.assertEqual((ran.code, sorted(os.listdir("empty"))), (1, ["two-A.csv", "two-B.csv"]))
        self.assertIn("8 counts", support.run("show", "two.n42", "--spectrum", "B").out)
        self.assertEqual(
            support.run("convert", "two.n42", "y.csv", "--spectrum", "A", "--force").code, 0
        )

    def test_calibrates_analyses_and_shows(self):
        text = self.run_well(
            "calibrate", "a.qar", "--line", "441=661.657", "--line", "781=1173.228"
        )
        self.assertRegex(
            text, r"energy: 3\.496\d+ 1\.4958(.|\n)*1173\.228 +782\.000 ± 0\.017 +4\.675 "
        )
        command = ["analyse", "a.qar", "-l", self.write("library.csv", support.LIBRARY)]
        text = self.run_well(
            *command, "--set", "qar_d_peaklimit=5", "--limit", "6", "--tolerance", "2"
        )
        self.assertRegex(text, r"2 peaks(.|\n)*661\.\d+ ± 0\.0\d+ .*Cs-137(.|\n)*2 nuclides")
        shown = json.loads(self.run_well("show", "a.qar", "--json"))
        self.assertEqual([peak["nuclide"] for peak in shown["peaks"]], ["Cs-137", "Co-60"])
        values = [shown["parameters"][name] for name in ("QAR_D_PEAKLIMIT", "QAR_F_DEADTIME")]
        self.assertEqual((values, len(shown["counts"])), ([6.0, None], 1024))
        text = self.run_well("show", "a.qar")
        for part in (
            "QAR_D_LIVETIME",
            "100 s",
            "2 nuclides in the library",
            "Co-60",
            "keV",
            "counts",
        ):
            self.assertIn(part, text)

    def test_a_report_is_one_file_in_which_texts_stay_texts_and_labels_apart(self):
        support.make_spectrum("b.qar", title="<script>alert(1)</script>")
        library = self.write("library.csv", support.LIBRARY)
        self.run_well("analyse", "b.qar", "-l", library, "--limit", "6", "--tolerance", "2")
        self.assertEqual(self.run_well("report", "b.qar"), "b.html\n")
        page = self.read("b.html")
        self.assertNotRegex(page, r"(src|href)=|url\(|@import|https?:|<script")
        for part in ("counts per channel", "energy / keV", "Cs-137 66", "QAR_D_PEAKLIMIT", " ± "):
            self.assertIn(part, page)
        outline = re.search(r'stroke-width="1" d="M([^"]+)"', page)[1].split()
        points = [tuple(map(float, point.split(","))) for point in outline]
        (left, ground), (x, y), (right, _) = points[0], min(points, key=lambda p: p[1]), points[-1]
        self.assertAlmostEqual((x - left) / (right - left), 439 / 1023, delta=1e-3)
        self.assertGreater(ground - y, 100)
        first, second = map(float, re.findall(r"translate\(([\d.]+) \d+\) rotate\(-90\)", page))
        self.assertGreaterEqual(second - first, 13)

    def test_pictures_keep_labels_apart_overlapping_peaks_together_and_ticks_inside(self):
        axis = layout.axis_of(qar.Calibration((0.0, 1.0)))
        places = [1, 2, 3, 20, 21, 22, 23, 24, 60, 61, 75, 98, 99]
        peaks = [qar.Peak(energy=c, centroid=c, significance=c % 7) for c in places]
        found = layout.labels([5] * 100, peaks, axis, 4, 50)
        shifted = [label.shifted for label in found]
        self.assertGreaterEqual(len(found), 8)
        self.assertTrue(all(b - a >= 4 for a, b in zip(shifted, shifted[1:])), shifted)
        self.assertEqual(sorted(found, key=lambda label: label.position), found)
        self.assertTrue(3 <= shifted[0] and shifted[-1] <= 98, shifted)
        peaks = [
            qar.Peak(centroid=c, fwhm=4, area=80, left=c - 9, right=c + 9) for c in (50, 30, 40)
        ]
        (curve,) = layout.fitted_curves([5] * 100, peaks, axis.calibration)
        self.assertEqual(
            (curve.channels[0], curve.channels[-1], round(max(curve.counts))), (21, 59, 24)
        )
        (curve,) = layout.residuals([5] * 44 + [500] + [5] * 55, peaks, axis.calibration)
        self.assertEqual(max(zip(curve.counts, curve.channels))[1], 45)
        self.assertEqual(layout.ticks(0, 10, 5), [0, 2, 4, 6, 8, 10])
        self.assertIn(
            "</svg>", report.svg([5], qar.Analysis((), ()), axis)
        )  # one channel has no width
        *_, marks, _ = terminal.plot([1] * 1000, layout.axis_of(qar.Calibration()))
        self.assertEqual(marks[-1], "+")  # that of channel 1000

    def test_numbers_have_the_digits_that_they_are_worth(self):
        cases = [(12.3456, 0.5555, "12.35 ± 0.56"), (57315.3, 254.2, "57315 ± 254"),
                 (5.0, None, "5"), (float("nan"), 1.0, "-"), (1.5, float("inf"), "1.5")]  # fmt: skip
        for value, uncertainty, text in cases:
            self.assertEqual(tables.with_uncertainty(value, uncertainty), text)

    def test_draws_a_picture_or_says_what_is_missing(self):
        try:
            plot.figure_class()
        except ImportError:
            self.assertIn("pyORV3[analysis]", support.run("plot", "a.qar").err[0])
            return
        self.assertEqual(self.run_well("plot", "a.qar"), "a.png\n")
        header = (self.folder / "a.png").read_bytes()[:24]
        self.assertEqual(header[:8], b"\x89PNG\r\n\x1a\n")
        self.assertGreater(struct.unpack(">II", header[16:]), (1000, 500))

    def test_damage_is_found_and_the_rest_saved(self):
        self.assertEqual(self.run_well("check", "a.qar"), "a.qar: sound\n")
        shutil.copy("a.qar", "holed.qar")
        with contextlib.closing(sqlite3.connect("holed.qar")) as database:
            database.execute("DELETE FROM place WHERE class = 0x2002 AND entry = 1")
            database.commit()
        self.assertEqual(support.run("check", "holed.qar")[:2], (1, ""))
        ran = support.run("salvage", "holed.qar", "saved.qar")
        self.assertEqual((ran.code, len(ran.err)), (1, 1), ran)
        self.assertIn("lost: QAR_CLS_CALIBRATION", ran.err[0])
        self.run_well("check", "saved.qar")
        with qar.open("a.qar") as first, qar.open("saved.qar") as second:
            self.assertEqual(first.spectrum(), second.spectrum())
            self.assertEqual(first["QAR_C_MEASNAME"], second["QAR_C_MEASNAME"])
        data = (self.folder / "a.qar").read_bytes()
        self.write("c.qar", data[: len(data) // 2])
        ran = support.run("check", "a.qar", "c.qar", "none.qar")
        self.assertEqual((ran.code, ran.out, len(ran.err)), (1, "a.qar: sound\n", 2), ran.err)
        failures = json.loads(support.run("check", "a.qar", "c.qar", "--json").out)
        self.assertEqual([bool(entry["failure"]) for entry in failures], [False, True])

    def test_nuclide_libraries(self):
        lines = "Co-60,,1332.492,0.9998,False\nBi-214,19.9 min,609.3,0.455\n"
        nuclides = nuclide_csv.read(self.write("l.csv", support.LIBRARY + lines))
        self.assertEqual([len(nuclide.lines) for nuclide in nuclides], [1, 2, 1])
        self.assertAlmostEqual(nuclides[0].half_life / 9.4829e8, 1, places=4)
        self.assertEqual(nuclides[2].half_life, 19.9 * 60)
        self.assertEqual(
            [line.key for n in nuclides for line in n.lines], [True, None, False, None]
        )
        written = self.write("m.csv", nuclide_csv.text_of(nuclides))
        self.assertEqual(nuclide_csv.read(written), nuclides)
        for content, said in WRONG_LIBRARIES:
            ran = support.run("analyse", "a.qar", "-l", self.write("w.csv", content))
            self.assertEqual((ran.code, len(ran.err)), (2, 1), ran.err)
            self.assertIn(said, ran.err[0])
