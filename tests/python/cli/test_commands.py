"""The commands as a user gives them: exit codes, output, one line for each failure."""

import base64
import contextlib
import hashlib
import html
import json
import os
import pathlib
import re
import shutil
import sqlite3
import subprocess
import sys

import qar
import support
from qar.display import layout, static_plot, tables, terminal
from qar.formats import nuclide_csv

FAILURES = (  # arguments, part of the message
    ("", "required: COMMAND"),
    ("show", "required: FILE"),
    ("show none.qar", "none.qar"),
    ("show none.spe", "none.spe: No such file"),
    ("view none.spe --no-browser", "none.spe: No such file"),
    ("show .", "Is a directory"),
    ("report two.n42", "--spectrum: A, B"),
    ("plot none.qar -o a.gif", "a.gif: unknown file extension '.gif'; expected .png, .svg or .pdf"),
    ("calibrate a.qar --line 9=5 --plot a.gif", "a.gif: unknown file extension '.gif'"),
    ("plot a.qar --region 700:600", "'700:600' is not a region"),
    ("show two.n42 --spectrum C", 'no spectrum "C"'),
    ("convert a.qar", "FILE OUTPUT"),
    ("convert a.qar a.unknown", "unknown file extension"),
    ("convert a.qar none/b.spe", "no such folder"),
    ("convert --to spe --into new/folder two.qar", "two.qar"),
    ("calibrate a.qar --line 5", "CHANNEL=ENERGY"),
    ("analyse bare.csv", "qar calibrate bare.csv --nuclide "),
    ("calibrate a.qar", "expected either --line, or --nuclide"),
    ("calibrate a.qar --line 100=300 --line 440=661.7", "no peak"),
    ("calibrate a.qar --nuclide Xx-9", "unknown nuclide 'Xx-9'"),
    ("calibrate a.qar --line 441=661.7 --line 781=1173.2 --degree 5", "needs 6 points"),
    ("analyse a.qar -l two.n42", "first line"),
    ("analyse a.qar --set QAR_D_PEAKLIMIT=much", "QAR_D_PEAKLIMIT: 'much' is not a valid double"),
    ("analyse a.qar --set QAR_D_NOSUCH=1", "QAR_D_NOSUCH"),
    ("show a.qar --skip -1", "--skip: '-1' is not a number of lines"),
    ("show a.qar --columns channel,count", "'count' is not a column"),
    ("show a.qar --columns channel", "has 0 columns 'counts'"),
    ("show a.qar --start today", "today"),
    ("analyse a.qar --jobs 0", "--jobs/-j: '0' is not a whole number from 1 to 256"),
    ("analyse empty", "no file to analyse"),
    ("analyse a.qar -o none/t.csv", "none: there is no such folder"),
    ("analyse a.qar --into two.n42", "two.n42: Not a directory"),
    ("report a.qar -o a.qar", "a.qar: the file exists; use --force"),
    ("salvage none.qar b.qar", "no file or input"),
    ("salvage a.qar a.qar --force", "the damaged file is not replaced"),
    ("status word", "'word' is not a status code"),
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


class TestCase(support.TestCase):
    def setUp(self):
        super().setUp()
        support.make_spectrum("a.qar")
        self.write("two.n42", TWO)
        self.write("bare.csv", "channel,counts\n" + "".join(f"{n},{n % 9}\n" for n in range(1, 65)))
        os.mkdir("empty")

    def counts(self, name):
        (measurement,) = qar.formats.read(name)
        return measurement.counts


class TestFailures(TestCase):
    def test_failure_is_one_line_and_leaves_nothing(self):
        before = self.names()
        for arguments, message in FAILURES:
            ran = support.run(*arguments.split())
            self.assertEqual((ran.code, ran.out, len(ran.err)), (2, "", 1), (arguments, ran))
            self.assertRegex(ran.err[0], "^qar.*" + re.escape(message))
            self.assertEqual(self.names(), before, arguments)

    def test_closed_standard_output_ends_the_command_quietly(self):
        reading, writing = os.pipe()
        os.close(reading)
        command = [sys.executable, "-B", "-m", "qar", "show", "a.qar"]
        result = subprocess.run(command, stdout=writing, stderr=subprocess.PIPE, timeout=60)
        os.close(writing)
        self.assertEqual((result.returncode, result.stderr), (2, b""))

    def test_messages_show_the_path_of_the_user(self):
        self.write("one.csv", "5\n6\n")
        for command in ("analyse one.csv", "analyse a.qar one.csv", "plot one.csv -o x/y.png"):
            self.assertNotIn("/shm/", "".join(support.run(*command.split()).err))


class TestConvert(TestCase):
    def test_each_spectrum_gets_a_file(self):
        ran = support.run("convert", "two.n42", "x.qar")
        self.assertEqual(ran.out, "x-A.qar\nx-B.qar\n")
        self.assertEqual([self.counts(f"x-{name}.qar") for name in "AB"], [(5, 2), (6, 2)])

    def test_named_spectrum_is_converted_alone(self):
        self.assertEqual(
            support.run("convert", "two.n42", "y.csv", "--spectrum", "B").out, "y.csv\n"
        )
        self.assertEqual(self.counts("y.csv"), (6, 2))
        again = support.run("convert", "two.n42", "y.csv", "--spectrum", "A", "--force")
        self.assertEqual((again.code, self.counts("y.csv")), (0, (5, 2)))

    def test_one_failure_does_not_stop_the_others(self):
        ran = support.run("convert", "--to", "csv", "--into", "new/a", "none.spe", "two.n42")
        self.assertEqual((ran.code, sorted(os.listdir("new/a"))), (1, ["two-A.csv", "two-B.csv"]))
        self.assertRegex(ran.err[0], "^qar: none.spe: [^:]*$")
        self.assertEqual(ran.err[-1], "qar: 2 files: 1 converted, 1 failed")

    def test_directories_are_converted_and_files_of_the_format_left_out(self):
        os.makedirs("in/deep/.hidden")
        for path in ("in/b.qar", "in/deep/c.qar", "in/deep/.hidden/d.qar"):
            shutil.copy("a.qar", path)
        self.write("in/two.n42", TWO)
        self.assertEqual(support.run("convert", "in", "--to", "n42").out, "in/b.n42\n")
        ran = support.run("convert", "in", "--to", "csv", "--into", "empty", "--recursive")
        names = ["b.csv", "c.csv", "two-A.csv", "two-B.csv"]
        self.assertEqual((ran.code, sorted(os.listdir("empty"))), (2, []))  # b.qar and b.n42
        os.remove("in/b.n42")
        ran = support.run("convert", "in", "--to", "csv", "--into", "empty", "--recursive")
        self.assertEqual((ran.code, sorted(os.listdir("empty"))), (0, names))

    def test_minus_is_standard_input_and_output(self):
        program = [sys.executable, "-B", "-m", "qar"]
        to_csv = [*program, "convert", "a.qar", "-", "--to", "csv"]
        piped = subprocess.run(to_csv, stdout=subprocess.PIPE, timeout=60).stdout
        for command in (["convert", "-", "b.qar"], ["analyse", "-"], ["show", "-"]):
            ran = subprocess.run(
                [*program, *command], input=piped, stdout=subprocess.PIPE, timeout=60
            )
            self.assertEqual(ran.returncode, 0, command)
        self.assertEqual(self.counts("b.qar"), self.counts("a.qar"))


class TestReading(TestCase):
    table = "Report\n1024 channels\n0 10.0 5\n1 10.5 6\n2 11.0 7\n"

    def test_table_is_read_as_the_options_describe_it(self):
        self.write("t.txt", self.table)
        ran = support.run(
            *("convert", "t.txt", "t.spe", "--skip", "2", "--columns", "ignore,energy,counts"),
            *("--live-time", "60", "--real-time", "61", "--start", "2024-01-24T21:02:12Z"),
        )
        self.assertEqual(ran.code, 0, ran.err)
        (measurement,) = qar.formats.read("t.spe")
        self.assertEqual(measurement.counts, (5, 6, 7))
        self.assertEqual((measurement.live_time, measurement.real_time), (60.0, 61.0))
        self.assertEqual(measurement.start.isoformat(), "2024-01-24T21:02:12+00:00")
        self.assertAlmostEqual(qar.Calibration(measurement.energy).energy_at(1), 10.0)

    def test_live_time_of_a_qar_file_is_not_overridden(self):
        self.assertIn("own times", support.run("analyse", "a.qar", "--live-time", "5").err[0])


class TestShow(TestCase):
    def test_several_spectra_are_listed(self):
        text = self.run_well("show", "two.n42")
        self.assertRegex(text, r"two.n42: 2 spectra(.|\n)* A +2 +7 (.|\n)* B +2 +8 ")
        listed = json.loads(self.run_well("show", "two.n42", "--json"))["spectra"]
        self.assertEqual([item["name"] for item in listed], ["A", "B"])

    def test_named_spectrum_is_shown(self):
        self.assertIn("8 counts", support.run("show", "two.n42", "--spectrum", "B").out)

    def test_parameters_results_and_plot_are_shown(self):
        library = self.write("library.csv", support.LIBRARY)
        self.run_well("analyse", "a.qar", "-l", library)
        text = self.run_well("show", "a.qar")
        for part in ("QAR_D_LIVETIME", "100 s", "2 nuclides in the", "Co-60", "keV", "counts"):
            self.assertIn(part, text)

    def test_json_has_all_values_and_null_for_infinity(self):
        library = self.write("library.csv", support.LIBRARY)
        self.run_well("analyse", "a.qar", "-l", library, "--limit", "6")
        shown = json.loads(self.run_well("show", "a.qar", "--json"))
        self.assertEqual([peak["nuclide"] for peak in shown["peaks"]], ["Cs-137", "Co-60"])
        values = [shown["parameters"][name] for name in ("QAR_D_PEAKLIMIT", "QAR_F_DEADTIME")]
        self.assertEqual((values, len(shown["counts"])), ([6.0, None], 1024))


class TestCalibrateAndAnalyse(TestCase):
    def test_calibrate_prints_coefficients_and_points(self):
        command = ["calibrate", "a.qar", "--line", "441=661.657", "--line", "781=1173.228"]
        text = self.run_well(*command, "--force")
        self.assertRegex(
            text, r"energy: 3\.495\d+ 1\.4958(.|\n)*1173\.228 +782\.000 ± 0\.016 +4\.67\d ± "
        )
        self.assertIn("energy calibration kept", support.run(*command).err[0])

    def test_calibrate_converts_a_file_of_another_format(self):
        shutil.copy("a.qar", "b.qar")
        self.run_well("convert", "b.qar", "b.csv")
        command = ["calibrate", "b.csv", "--line", "440=661.657", "-o", "c.qar"]
        ran = support.run(*command)
        self.assertEqual((ran.code, ran.out.splitlines()[-1]), (0, "c.qar"))
        self.assertEqual(support.run(*command, "--line", "9=1").code, 2)  # c.qar exists

    def test_analyse_prints_peaks_and_nuclides(self):
        command = ["analyse", "a.qar", "-l", self.write("library.csv", support.LIBRARY)]
        text = self.run_well(*command, "--set", "qar_d_peaklimit=5", "--tolerance", "2")
        self.assertRegex(text, r"2 peaks(.|\n)*661\.\d+ ± 0\.0\d+ .*Cs-137(.|\n)*2 nuclides")

    def test_foreground_with_most_counts_is_analysed_unless_all_are_requested(self):
        parts = [("Background", 900), ("Foreground", 400), ("Foreground", 500)]
        measurements = "".join(
            f"<RadMeasurement id='m{n}'><MeasurementClassCode>{kind}</MeasurementClassCode>"
            f"<Spectrum id='s{n}' energyCalibrationReference='e'><ChannelData>"
            f"{' '.join(['20'] * 200 + [str(height)] * 3 + ['20'] * 200)}</ChannelData>"
            "</Spectrum></RadMeasurement>"
            for n, (kind, height) in enumerate(parts)
        )
        calibration = (
            "<EnergyCalibration id='e'><CoefficientValues>0 1 0</CoefficientValues>"
            "</EnergyCalibration>"
        )
        self.write("m.n42", f"<RadInstrumentData>{calibration}{measurements}</RadInstrumentData>")
        command = ("analyse", "m.n42", "--set", "QAR_D_SHAPECAL=9,0.01")
        ran = support.run(*command)
        self.assertIn("m.n42: analysed the spectrum 's2' of 3", ran.err[0])
        self.assertNotIn("spectrum s0", support.run(*command, "--spectrum", "s1").out)
        every = support.run(*command, "--all").out
        self.assertEqual(re.findall("^spectrum (s.)$", every, re.M), ["s0", "s1", "s2"])


class TestReport(TestCase):
    def setUp(self):
        super().setUp()
        support.make_spectrum("b.qar", title="<script>alert(1)</script>")
        library = self.write("library.csv", support.LIBRARY)
        self.run_well("analyse", "b.qar", "-l", library, "--limit", "6", "--tolerance", "2")
        self.assertEqual(self.run_well("report", "b.qar"), "b.html\n")
        self.page = self.read("b.html")

    def test_page_needs_no_other_file_and_admits_only_its_own_script_and_style(self):
        found = re.findall(
            r"<(script|style)( type=\"application/json\"[^>]*)?>(.*?)</", self.page, re.S
        )
        self.assertEqual(len(found), self.page.count("<script") + self.page.count("<style"))
        policy = html.unescape(re.search('Security-Policy" content="(.*?)"', self.page)[1])
        digests = [
            base64.b64encode(hashlib.sha256(text.encode()).digest()).decode()
            for _, kind, text in found
            if not kind
        ]
        self.assertEqual(re.findall("sha256-([^']+)'", policy), digests[::-1])
        self.assertTrue(policy.startswith("default-src 'none';"), policy)
        outside = re.sub("<script>.*?</script>", "", self.page, flags=re.S)
        self.assertNotRegex(outside, r"(src|href)=|url\(|@import|https?:|<script>")
        for part in ("counts per channel", "energy / keV", "Cs-137 66", "QAR_D_PEAKLIMIT", " ± "):
            self.assertIn(part, self.page)

    def test_outline_has_its_peak_at_the_right_energy_and_labels_are_apart(self):
        outline = re.search(r'class="counts" d="M([^"]+)"', self.page)[1].split()
        points = [tuple(map(float, point.split(","))) for point in outline]
        (left, ground), (x, y), (right, _) = points[0], min(points, key=lambda p: p[1]), points[-1]
        self.assertAlmostEqual((x - left) / (right - left), 439 / 1023, delta=1e-3)
        self.assertGreater(ground - y, 100)
        found = re.findall(r'translate\(([\d.]+) \d+\) rotate\(-90\)" class="label"', self.page)
        first, second = map(float, found)
        self.assertGreaterEqual(second - first, 13)


class TestPictures(TestCase):
    axis = layout.axis_of(qar.Calibration((0.0, 1.0)))

    def test_labels_are_apart_and_inside_the_axis(self):
        channels = [1, 2, 3, 20, 21, 22, 23, 24, 60, 61, 75, 98, 99]
        peaks = [qar.Peak(energy=c, centroid=c, significance=c % 7) for c in channels]
        labels = layout.labels([5] * 100, peaks, self.axis, 4, 50)
        shifted = [label.shifted for label in labels]
        self.assertGreaterEqual(len(labels), 8)
        self.assertTrue(all(b - a >= 4 for a, b in zip(shifted, shifted[1:])), shifted)
        self.assertEqual(sorted(labels, key=lambda label: label.position), labels)
        self.assertTrue(3 <= shifted[0] and shifted[-1] <= 98, shifted)

    def test_ticks_are_inside_the_axis(self):
        self.assertEqual(layout.ticks(0, 10, 5), [0, 2, 4, 6, 8, 10])
        *_, marks, _ = terminal.plot([1] * 1000, layout.axis_of(qar.Calibration()))
        self.assertEqual(marks[-1], "+")  # that of channel 1000

    def test_spectrum_of_one_channel_is_drawn(self):
        self.assertIn("</svg>", static_plot.svg([5], (), (), self.axis))

    def test_numbers_have_the_digits_of_their_uncertainty(self):
        cases = [(12.3456, 0.5555, "12.35 ± 0.56"), (57315.3, 254.2, "57315 ± 254"),
                 (5.0, None, "5"), (float("nan"), 1.0, "-"), (1.5, float("inf"), "1.5")]  # fmt: skip
        for value, uncertainty, text in cases:
            self.assertEqual(tables.with_uncertainty(value, uncertainty), text)


class TestDamage(TestCase):
    def setUp(self):
        super().setUp()
        shutil.copy("a.qar", "holed.qar")
        with contextlib.closing(sqlite3.connect("holed.qar")) as database:
            database.execute("DELETE FROM item WHERE key >> 48 = 0x2002 AND key & 0xFFFF = 1")
            database.commit()

    def test_check_reports_each_file(self):
        data = (self.folder / "a.qar").read_bytes()
        self.write("empty/cut.qar", data[: len(data) // 2])
        ran = support.run("check", "a.qar", "holed.qar", "none.qar", "empty")
        self.assertEqual((ran.code, ran.out), (1, "a.qar: sound\n"))
        self.assertEqual(len(ran.err), 4)
        self.assertEqual(ran.err[-1], "qar: 4 files: 1 sound, 3 not")
        failures = json.loads(support.run("check", "a.qar", "holed.qar", "--json").out)
        self.assertEqual([bool(entry["failure"]) for entry in failures], [False, True])

    def test_salvage_copies_what_is_sound_and_reports_the_rest(self):
        ran = support.run("salvage", "holed.qar", "saved.qar")
        self.assertEqual((ran.code, len(ran.err)), (1, 1), ran)
        self.assertIn("lost: QAR_CLS_CALIBRATION", ran.err[0])
        self.run_well("check", "saved.qar")
        with qar.open("a.qar") as first, qar.open("saved.qar") as second:
            self.assertEqual(first.spectrum(), second.spectrum())
            self.assertEqual(first["QAR_C_MEASNAME"], second["QAR_C_MEASNAME"])

    def test_salvage_replaces_damaged_first_page(self):
        content = pathlib.Path("a.qar").read_bytes()
        for offset, length in ((3, 1), (69, 2), (17, 60), (100, 3000), (3900, 196)):
            holes = content[:offset] + b"\xa5" * length + content[offset + length :]
            pathlib.Path("holed.qar").write_bytes(holes)
            ran = support.run("salvage", "holed.qar", "saved.qar", "--force")
            self.assertEqual((ran.code, ran.err), (0, []), (offset, ran))
            with qar.open("a.qar") as first, qar.open("saved.qar") as second:
                self.assertEqual(first.spectrum(), second.spectrum())
        pathlib.Path("holed.qar").write_bytes(content[:4096] + b"\xa5" * (len(content) - 4096))
        ran = support.run("salvage", "holed.qar", "none.qar")
        self.assertEqual((ran.code, os.path.exists("none.qar")), (2, False))
        self.assertIn("damaged", ran.err[0])

    def test_salvage_reports_numbers_of_lost_records(self):
        with qar.open("a.qar", "r+") as source:
            for record in range(1, 8):
                source["QAR_C_NUCLNAME", record] = f"N-{record}"
        for damage, lost in (
            ("UPDATE item SET checksum = 0", "records 2 to 4, 6; the other 3 are saved"),
            ("DELETE FROM item", "values of unknown records; all 7 are saved"),
        ):
            shutil.copy("a.qar", "holed.qar")
            with contextlib.closing(sqlite3.connect("holed.qar")) as database:
                records = "key >> 32 = 0x20040001 AND key >> 16 & 65535 IN (2, 3, 4, 6)"
                database.execute(f"{damage} WHERE {records}")
                database.commit()
            ran = support.run("salvage", "holed.qar", "saved.qar", "--force")
            line = f"qar: holed.qar: lost: QAR_CLS_NUCLIDE: {lost} but may lack values"
            self.assertEqual((ran.code, ran.err), (1, [line]))
            with qar.open("saved.qar") as source:
                names = source.records("QAR_CLS_NUCLIDE")
            whole = [f"N-{record}" for record in (1, 5, 7)]
            self.assertEqual([n["QAR_C_NUCLNAME"] for n in names if n], whole)


class TestNuclideLibrary(TestCase):
    def test_library_is_read_and_written_unchanged(self):
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

    def test_wrong_library_is_refused_with_its_line(self):
        for content, message in WRONG_LIBRARIES:
            ran = support.run("analyse", "a.qar", "-l", self.write("w.csv", content))
            self.assertEqual((ran.code, len(ran.err)), (2, 1), ran.err)
            self.assertIn(message, ran.err[0])
