"""Activities with their characteristic limits: the example of the page, blanks and settings."""

import math
import re
import unittest

import qar
import support
from qar import GammaLine, Nuclide

PAGE = support.PROJECT / "docs/activity.md"


def page_part(kind):
    return re.search(f"```{kind}\n(.*?)```", PAGE.read_text(encoding="utf-8"), re.DOTALL).group(1)


class TestWorkedExample(support.TestCase):
    def test_printed_values_are_those_of_the_page(self):
        self.assertEqual(self.python("-c", page_part("python")), page_part("text"))

    def test_values_by_hand_are_those_of_the_page(self):
        given = dict(line.split(" ", 1) for line in page_part("text").splitlines())
        areas = (
            "area",
            "area_uncertainty",
            "subtracted",
            "subtracted_uncertainty",
            "null_uncertainty",
        )
        area, u, blank, u_blank, u_null = (float(given[name]) for name in areas)
        decay = math.log(2) / 9.4e8
        during = -math.expm1(-decay * 20000) / (decay * 20000)
        counts = 0.85 * 0.02 * 20000 * math.exp(-decay * 365 * 86400) * during * 0.5
        activity = (area - blank) / counts
        rise = (u**2 - u_null**2) / area
        half_life = decay * (365 * 86400 + 10000) * 0.01

        def uncertainty(true):
            variance = u_null**2 + rise * (blank + true * counts) + u_blank**2
            parts = (0.03, 0.01, 0.01, half_life)
            return math.hypot(
                math.sqrt(variance) / counts, true * math.sqrt(sum(part**2 for part in parts))
            )

        threshold = 1.644854 * uncertainty(0)
        limit = threshold
        for _ in range(50):
            limit = threshold + 1.644854 * uncertainty(limit)
        for name, value in (
            ("activity", activity),
            ("decision_threshold", threshold),
            ("detection_limit", limit),
            ("efficiency_uncertainty", 0.03 * activity),
            ("yield_uncertainty", 0.01 * activity),
            ("quantity_uncertainty", 0.01 * activity),
            ("half_life_uncertainty", half_life * activity),
            ("counts_uncertainty", u / counts),
            ("blank_uncertainty", u_blank / counts),
            ("blank", blank / counts),
            ("upper_limit", activity + 1.959964 * uncertainty(activity)),
        ):
            self.assertEqual(given[name], f"{value:.5g}", name)


class TestActivities(support.TestCase):
    def setUp(self):
        super().setUp()
        support.make_spectrum("a.qar")
        self.source = qar.open("a.qar", "r+")
        self.addCleanup(self.source.close)
        self.source.set_nuclide_library(
            [
                Nuclide("Cs-137", 9.5e8, (GammaLine(661.66, 0.85),)),
                Nuclide("X-1", 9.5e8, (GammaLine(500.0, 0.5),)),
            ]
        )

    def all(self, **arguments):
        analysis = self.source.analyse(**arguments)
        return {one.name: one for one in (*analysis.nuclides, *analysis.not_found)}

    def test_missing_values_have_a_reason(self):
        self.assertEqual(self.all()["Cs-137"].activity_reason, "no efficiency calibration")
        found = self.all(QAR_D_EFFICCAL=[math.log(0.01)], QAR_D_EFFICMIN=600.0)
        self.assertEqual(found["X-1"].activity_reason, "no efficiency at 500.0 keV")
        self.assertIsNone(found["X-1"].activity)
        self.assertEqual(found["Cs-137"].activity_reason, "")

    def test_blank_is_used_once_and_recorded(self):
        self.source.set_calibration(efficiency=[math.log(0.01)])
        plain = self.all()["Cs-137"].activity
        blank = qar.blank_of(self.source)._replace(name="empty", live_time=1e3)
        factor = self.source["QAR_D_LIVETIME"] / 1e3
        subtracted = self.all(blank=blank)["Cs-137"]
        self.assertAlmostEqual(subtracted.activity / plain, 1 - factor, delta=1e-3)
        self.assertAlmostEqual(subtracted.blank / plain, factor, delta=1e-3)
        self.assertEqual(self.source.results().provenance.blank, "empty")
        self.assertEqual(self.source.record_count("QAR_D_BLANKLIVE"), 0)
        self.assertAlmostEqual(self.all()["Cs-137"].activity / plain, 1, delta=1e-9)
        self.assertEqual(self.source.results().provenance.blank, "")

    def test_unusable_input_changes_nothing(self):
        self.source.flush()
        blank = qar.blank_of(self.source)
        start = {"QAR_T_ACQSTART": "2024-01-01T00:00:00Z", "QAR_D_EFFICCAL": [-4.0]}
        cases = (
            ("no efficiency", {"blank": blank}),
            ("in the future", {**start, "QAR_T_SAMPLETIME": "2037-01-01T00:00:00Z"}),
            ("QAR_D_COVERAGE", {"QAR_D_COVERAGE": 1.0}),
        )
        for reason, arguments in cases:
            with self.assertRaisesRegex(qar.BadArgumentError, reason):
                self.source.analyse(**arguments)
            self.assertFalse(self.source.state & qar.SourceState.CHANGED, reason)


if __name__ == "__main__":
    unittest.main()
