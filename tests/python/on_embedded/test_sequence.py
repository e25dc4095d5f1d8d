"""The analysis sequence: what a measurement takes over from a template and what it keeps."""

import sys
import unittest

import embedded
import pyORV3

sys.path.insert(0, str(embedded.EXAMPLES))

import analysis_sequence  # noqa: E402

CALIBRATION, TEMPLATE = "calibration.qar", "template.qar"


class Sequence(embedded.TestCase):
    def setUp(self):
        super().setUp()
        energy = {"QAR_D_ENERGYCAL": (0.1, 0.5, 1e-7)}
        analysis_sequence.make(self.path(CALIBRATION), analysis_sequence.CALIBRATION, energy)
        analysis_sequence.make(self.path(), analysis_sequence.MEASUREMENT)

    def copied(self, **changes):
        """The measurement after the copy, read from the file."""
        parameters = (
            analysis_sequence.TEMPLATE | {"QAR_C_CALFILE": self.path(CALIBRATION)} | changes
        )
        analysis_sequence.make(self.path(TEMPLATE), parameters)
        template, handle = self.open(name=TEMPLATE), self.open(embedded.READ | embedded.WRITE)
        self.ok(pyORV3.copyAnalysisSequenceTo(template, handle))
        return self.reopened(handle)

    def assert_values(self, handle, parameters):
        self.assertEqual({name: self.get(handle, name) for name in parameters}, parameters)

    def test_settings_are_taken_over_and_own_ones_kept(self):
        handle = self.copied()
        taken = {
            name: value
            for name, value in analysis_sequence.TEMPLATE.items()
            if name not in analysis_sequence.MEASUREMENT | analysis_sequence.CALIBRATION
        }
        self.assert_values(handle, taken | analysis_sequence.MEASUREMENT)
        self.assert_values(handle, analysis_sequence.CALIBRATION)
        self.assertEqual(self.column(handle, "QAR_D_ENERGYCAL", 1), [0.1, 0.5, 1e-7])

    def test_without_the_calibration_file_the_rest_is_copied(self):
        own = {"QAR_F_CALTEMPER": 18.5, "QAR_D_PEAKLIMIT": 4.5}
        for change in ({"QAR_B_USECALFILE": False}, {"QAR_C_CALFILE": self.path("missing.qar")}):
            with self.subTest(**change):
                handle = self.copied(**own | change)
                self.assert_values(handle, own | change)
                answer = pyORV3.getParameter(handle, embedded.code_of("QAR_T_CALDATE"), 1, 1)
                self.fails(embedded.NOT_SET, answer)
                self.ok(pyORV3.close(handle, 0))
                (self.folder / TEMPLATE).unlink()

    def test_failing_copies_leave_files_that_open(self):
        analysis_sequence.make(self.path(TEMPLATE), {"QAR_C_ANSEQUENCE": "refused"})
        template, handle = self.open(name=TEMPLATE), self.open(embedded.READ)
        for source, destination in [
            (0, handle),
            (template, 0),
            (template, 99999),
            (template, handle),
        ]:
            self.assertNotEqual(pyORV3.copyAnalysisSequenceTo(source, destination), 0)
        handle = self.reopened(handle)
        self.assert_values(handle, analysis_sequence.MEASUREMENT)


if __name__ == "__main__":
    unittest.main()
