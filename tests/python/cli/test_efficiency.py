"""The command `efficiency` as a user gives it."""

import json
import random
import sys
import unittest

import qar
import support
from qar import formats, optional_imports
from qar.analysis import efficiency
from qar.analysis.summing import TotalEfficiency

sys.path.insert(0, str(support.PROJECT / "benchmarks"))

import efficiency_results as benchmark  # noqa: E402

HEADER = "nuclide,activity,activity_uncertainty,reference_date\n"
CERTIFICATE = HEADER + "".join(
    f"{name},{activity},{activity * relative:.6g},2024-01-01\n"
    for name, (activity, relative) in benchmark.SOURCES["mixed"].items()
)
TOTAL = "energy,efficiency\n45,0.05\n3000,0.02\n"
COMMAND = "efficiency source.qar --certificate c.csv"
REFUSED = (  # name and content of a file, the command, part of the message
    ("c.csv", "nuclide,activity\nCo-60,5\n", COMMAND, "no column activity_uncertainty"),
    ("c.csv", HEADER.replace("date", "day") + "Co-60,5,1,2024-01-01\n", COMMAND, "reference_date"),
    ("c.csv", HEADER + "Co-61,500,5,2024-01-01\n", COMMAND, "'Co-61' is not in the nuclide libr"),
    ("c.csv", HEADER + "Co-60,-5,1,2024-01-01\n", COMMAND, 'c.csv: line 2: activity: "-5" is not'),
    ("c.csv", HEADER + "Co-60,500,0,2024-01-01\n", COMMAND, "line 2: activity_uncertainty"),
    ("c.csv", HEADER + "Co-60,500,,2024-01-01\n", COMMAND, "line 2: activity_uncertainty"),
    ("c.csv", HEADER + "Co-60,500,600,2024-01-01\n", COMMAND, "not below the activity"),
    ("c.csv", HEADER + "Co-60,500,5,2124-01-01\n", COMMAND, '"2124-01-01" is in the future'),
    ("c.csv", HEADER + "Co-60,500,5,1.1.2024\n", COMMAND, '"1.1.2024" is not a date'),
    ("c.csv", HEADER + "Co-60,500,5,\n", COMMAND, "line 2: reference_date"),
    ("c.csv", HEADER + "Co-60,5,1,2024-01-01\nco60,5,1,2024-01-01\n", COMMAND, "line 3.*twice"),
    ("c.csv", HEADER + ",500,5,2024-01-01\n", COMMAND, "line 2: the nuclide has no name"),
    ("c.csv", HEADER, COMMAND, "no nuclide"),
    ("c.csv", "", COMMAND, "empty"),
    ("c.csv", HEADER + "Cs-137,500,5,2024-01-01\n", COMMAND, "1 usable peaks.*at least 2"),
    ("c.csv", HEADER + "F-18,500,5,2024-01-01\n", COMMAND, "more than 20 half-lives"),
    ("t.csv", "energy,efficiency\n45,1.5\n", COMMAND + " --total-efficiency t.csv", "above 1"),
    ("t.csv", "energy,efficiency\n45,.1\n45,.1\n", COMMAND + " --total-efficiency t.csv", "line 3"),
    ("t.csv", "energy,efficiency\n", "analyse source.qar --total-efficiency t.csv", "no efficiency"),
    ("t.csv", TOTAL, COMMAND + " --leave-out Eu-152", "'Eu-152' to leave out is not in the cert"),
    ("t.csv", TOTAL, COMMAND + " --certificate none.csv", "none.csv: No such file"),
    ("t.csv", TOTAL, COMMAND + " --degree 9", "'9' is not a whole number from 1 to 6"),
    ("t.csv", TOTAL, COMMAND + " --background source.qar", "--background is for"),
    ("t.csv", TOTAL, COMMAND + " -o source.qar", "source.qar: the file exists"),
    ("t.csv", TOTAL, "efficiency a.qar --certificate c.csv", "no start of the measurement"),
    ("t.csv", TOTAL, COMMAND + " --total-efficiency t.csv --peak-to-total a.qar", "cannot be comb"),
)  # fmt: skip


class TestEfficiency(support.TestCase):
    def setUp(self):
        super().setUp()
        benchmark.write_source(
            "source.qar",
            benchmark.SOURCES["mixed"],
            random.Random(8),
            TotalEfficiency((45.0, 3000.0), (1e-9, 1e-9)),
        )
        support.make_spectrum("a.qar")
        self.write("c.csv", CERTIFICATE)
        self.write("t.csv", TOTAL)

    def test_refused_input_is_one_line_and_changes_nothing(self):
        before = (self.folder / "source.qar").read_bytes()
        for name, content, command, message in REFUSED:
            kept = self.read(name)
            self.write(name, content)
            names = self.names()
            ran = support.run(*command.split())
            self.assertEqual((ran.code, ran.out, len(ran.err)), (2, "", 1), (command, ran))
            self.assertRegex(ran.err[0], message)
            self.assertEqual(self.names(), names, command)
            self.write(name, kept)
        self.assertEqual((self.folder / "source.qar").read_bytes(), before)

    def test_missing_live_time_is_reported(self):
        with qar.open("source.qar", "r+") as source:
            source["QAR_D_LIVETIME"] = 0.0
        ran = support.run(*COMMAND.split())
        self.assertRegex(ran.err[0], "source.qar: no live time; give one with --live-time")

    def test_calibration_of_another_format_is_used_as_a_template(self):
        (measurement,) = formats.read("source.qar")
        formats.write("other.n42", measurement._replace(qar_file=""))
        ran = support.run(*"efficiency other.n42 --certificate c.csv --json".split())
        self.assertEqual((ran.code, ran.err[-1]), (0, "qar: wrote other.qar"))
        document = json.loads(ran.out)
        self.assertEqual(document["points"][3]["nuclides"], "Am-241")
        self.run_well(*"analyse a.qar --template other.qar --set QAR_D_MINCONF=0.1".split())
        with qar.open("a.qar") as source, qar.open("other.qar") as template:
            curve = efficiency.read_curve(source)
            self.assertEqual(curve, efficiency.read_curve(template))
            self.assertEqual(list(curve.coefficients), document["coefficients"])
            for name in ("QAR_T_EFFICTIME", "QAR_D_EFFICUNC"):
                self.assertEqual(source[name], template[name])
        self.run_well(*"analyse a.qar --set QAR_D_EFFICCAL=-2.45,-0.5".split())
        with qar.open("a.qar") as source:
            uncertainty = efficiency.read_curve(source).uncertainty_at(500)
            self.assertAlmostEqual(uncertainty, source["QAR_D_EFFICUNC"])

    def test_total_efficiency_from_a_file_and_from_a_source_with_one_line(self):
        out = self.run_well(*f"{COMMAND} --total-efficiency t.csv".split())
        self.assertRegex(out, r"898\.04 +Y-88 .* 0\.97\d\d .*summing\n")
        self.assertIn("coincidence summing: corrected", out)
        with qar.open("source.qar") as source:
            self.assertEqual(efficiency.read_total(source).efficiencies, (0.05, 0.02))
        again = self.run_well(*COMMAND.split())  # with the stored total efficiency
        self.assertEqual(out, again)
        with qar.open("a.qar", "r+") as single:  # one line
            counts = single.spectrum()[:700]
            single.set_spectrum(counts + (20, 21, 22) * 108)
        ran = support.run(*f"{COMMAND} -o new.qar --peak-to-total a.qar --background a.qar".split())
        self.assertRegex(ran.err[0], "a.qar: the spectrum minus the background has fewer counts")
        ran = support.run(*f"{COMMAND} -o new.qar --peak-to-total a.qar".split())
        self.assertEqual(ran.code, 0)
        with qar.open("new.qar") as source:
            total, curve = efficiency.read_total(source), efficiency.read_curve(source)
            # All counts from 50 keV to the end of the peak over the net area of the peak.
            ratio = (sum(counts[31:448]) + 21 * 50 / 1.5) / (sum(counts[427:453]) - 26 * 21)
        found = total.value_at(500) / curve.value_at(500)
        self.assertLess(abs(found / ratio - 1), 0.05)

    @unittest.skipUnless(optional_imports.optional("matplotlib"), "matplotlib is not installed")
    def test_picture_is_drawn(self):
        ran = support.run(*f"{COMMAND} --plot curve.png".split())
        self.assertEqual((ran.code, ran.err), (0, ["qar: wrote curve.png"]))
        self.assertEqual((self.folder / "curve.png").read_bytes()[:4], b"\x89PNG")
