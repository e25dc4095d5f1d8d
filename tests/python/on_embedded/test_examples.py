"""The examples, each in a separate process."""

import embedded


class TestExamples(embedded.TestCase):
    def shows(self, name, argument, *texts):
        output = self.python(embedded.EXAMPLES / name, argument)
        # The message about a missing package names the interpreter, whose path may be long.
        lines = [line for line in output.splitlines() if "is not installed" not in line]
        self.assertLessEqual(max(map(len, lines)), 110)
        for text in texts:
            self.assertIn(text, output)

    def test_measurement_is_recorded_shown_and_analysed(self):
        path = self.path("mixed.qar")
        self.shows("measurement.py", path, "4,096 channels")
        texts = ("J. Müller", "300 µm", "0.12, 0.4985", "keV", "█")
        self.shows("show_measurement.py", path, *texts)
        texts = ("12 peaks", "6 nuclides", "Cs-137", "detection", "I-131")
        self.shows("nuclide_analysis.py", path, *texts)

    def test_analysis_sequence_is_copied(self):
        self.shows("analysis_sequence.py", str(self.folder), "0.12, 0.4985", "Soil survey")
