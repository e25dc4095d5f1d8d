"""The examples of exchange and acquisition run as a user runs them."""

import os
import subprocess
import sys
import unittest

import qar
import support
from qar import formats


class Examples(support.TestCase):
    def example(self, name, *arguments):
        """What a script printed that had to end well."""
        result = subprocess.run(
            [sys.executable, "-B", str(support.PROJECT / "examples" / name), *arguments],
            env={**os.environ, "PYTHONIOENCODING": "utf-8"},
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            encoding="utf-8",
            timeout=120,
        )
        self.assertEqual(result.returncode, 0, result.stdout)
        return result.stdout

    def test_a_folder_is_converted_and_again_when_more_have_come(self):
        os.mkdir("in")
        formats.write("in/a.spe", support.FULL)
        self.assertIn("a.spe -> a.qar", self.example("convert_folder.py", "in", "out"))
        formats.write("in/b.n42", support.FULL)
        again = self.example("convert_folder.py", "in", "out")
        self.assertRegex(again, "a.qar\n    is there already\nb.n42 -> b.qar")
        self.assertEqual(qar.exchange.load("out/b.qar").counts, support.FULL.counts)

    def test_an_acquisition_saves_what_it_shows(self):
        output = self.example("acquisition.py", "a.qar", "0.3", "0.1")
        self.assertRegex(output, r"\.{10} .* counts(.|\n)*#{30} .* counts")
        with qar.open("a.qar") as source:
            self.assertEqual(sum(source.spectrum()), source["QAR_Q_TOTALCOUNT"])
            self.assertGreaterEqual(source["QAR_D_REALTIME"], 0.3)
            self.assertIs(source["QAR_B_ACQACTIVE"], False)

    def test_a_report_is_made_of_a_spectrum_of_any_format(self):
        formats.write("a.n42", qar.exchange.load(support.make_spectrum("a.qar")))
        output = self.example(
            "peak_report.py", "a.n42", self.write("l.csv", support.LIBRARY), "out"
        )
        self.assertRegex(output, r"2 peaks(.|\n)*Cs-137")
        self.assertLessEqual({"a.html", "a.qar"}, set(os.listdir("out")))


if __name__ == "__main__":
    unittest.main()
