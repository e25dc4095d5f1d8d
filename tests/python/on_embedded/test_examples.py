"""The examples run as a user runs them: each in a process of its own, one after another."""

import os
import subprocess
import sys

import embedded


class Examples(embedded.TestCase):
    def shows(self, name, argument, *texts):
        command = [sys.executable, "-B", str(embedded.EXAMPLES / name), argument]
        environment = {**os.environ, "PYTHONIOENCODING": "utf-8"}
        pipe = subprocess.PIPE
        result = subprocess.run(
            command, env=environment, stdout=pipe, stderr=pipe, encoding="utf-8", timeout=120
        )
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertLessEqual(max(map(len, result.stdout.splitlines())), 110)
        for text in texts:
            self.assertIn(text, result.stdout)

    def test_a_measurement_is_recorded_shown_and_analysed(self):
        path = self.path("mixed.qar")
        self.shows("measurement.py", path, "4,096 channels")
        texts = ("J. Müller", "300 µm", "0.12, 0.4985", "keV", "█")
        self.shows("show_measurement.py", path, *texts)
        texts = ("12 peaks", "6 nuclides", "Cs-137", "detection limits", "I-131")
        self.shows("nuclide_analysis.py", path, *texts)

    def test_an_analysis_sequence_is_copied(self):
        self.shows("analysis_sequence.py", str(self.folder), "0.12, 0.4985", "Soil survey")
