"""The examples run as a user runs them: each in a process of its own, one after another."""

import os
import subprocess
import sys
import tempfile
import unittest

import embedded


class Examples(unittest.TestCase):
    def run_example(self, name, argument):
        command = [sys.executable, "-B", str(embedded.EXAMPLES / name), argument]
        environment = os.environ | {"PYTHONIOENCODING": "utf-8"}
        result = subprocess.run(
            command,
            env=environment,
            capture_output=True,
            encoding="utf-8",
            timeout=120,
            check=False,
        )
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertLessEqual(max(map(len, result.stdout.splitlines())), 100)
        return result.stdout

    def test_a_measurement_is_recorded_shown_and_analysed(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "mixed.qar")
            self.assertIn("4,096 channels", self.run_example("measurement.py", path))
            shown = self.run_example("show_measurement.py", path)
            for text in ("J. Müller", "300 µm", "0.12, 0.4985", "keV", "█"):
                self.assertIn(text, shown)
            report = self.run_example("nuclide_analysis.py", path)
            for text in ("12 peaks", "6 nuclides identified", "Cs-137", "2 of 2"):
                self.assertIn(text, report)

    def test_an_analysis_sequence_is_copied(self):
        with tempfile.TemporaryDirectory() as folder:
            shown = self.run_example("analysis_sequence.py", folder)
            self.assertIn("0.12, 0.4985", shown)
            self.assertIn("Soil survey", shown)


if __name__ == "__main__":
    unittest.main()
