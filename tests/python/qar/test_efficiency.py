"""Efficiency calibrations with certified sources, and true coincidence summing."""

import math
import random
import sys
from datetime import datetime, timedelta, timezone

import qar
import support
from qar.analysis import certified_source, efficiency, peak_to_total, summing
from qar.analysis.certified_source import Acquisition, CertifiedActivity
from qar.analysis.efficiency import EfficiencyCurve
from qar.analysis.least_squares import PolynomialFit
from qar.analysis.summing import CoincidentPair, TotalEfficiency
from qar.nuclides import builtin_library, coincidences, efficiency_calibration
from qar.nuclides.efficiency_calibration import Method

sys.path.insert(0, str(support.PROJECT / "benchmarks"))

import efficiency_results as benchmark  # noqa: E402

NO_SUMMING = TotalEfficiency((45.0, 3000.0), (1e-9, 1e-9))
LIBRARY = builtin_library.load(short_lived=True)


def flat_total(value):
    return TotalEfficiency((45.0, 3000.0), (value, value))


def lines_of(name):
    return builtin_library.named(name)[0].nuclide.lines


class TestLeastSquares(support.TestCase):
    def test_mean_of_correlated_points_has_the_variance_of_theory(self):
        own, common = (0.03, 0.04), 0.05
        covariance = [[common**2 + (i == j) * own[i] ** 2 for j in (0, 1)] for i in (0, 1)]
        fit = PolynomialFit([4.0, 6.0], [0.0, 1.0], covariance, 0)
        # Weights 1/9 : 1/16; the common part stays.
        self.assertAlmostEqual(float(fit.coefficients()[0]), 9 / 25)
        variance = 1 / (own[0] ** -2 + own[1] ** -2) + common**2
        self.assertAlmostEqual(float(fit.covariance()[0][0]), variance)
        self.assertAlmostEqual(fit.chi_square, 1 / (own[0] ** 2 + own[1] ** 2))
        self.assertAlmostEqual(fit.deletion_residuals()[1] ** 2, fit.chi_square)

    def test_coefficients_and_covariance_are_those_of_the_uncentred_variable(self):
        xs = [4.1, 5.0, 5.9, 6.4, 7.5]
        ys = [1 - 0.5 * x + 0.25 * x**2 for x in xs]
        variances = [[(i == j) * 0.01 for j in range(5)] for i in range(5)]
        fit = PolynomialFit(xs, ys, variances, 2)
        for found, true in zip(fit.coefficients(), (1, -0.5, 0.25)):
            self.assertAlmostEqual(float(found), true, places=9)
        # The trace of the hat matrix: the variances of the fitted points add up to 3 x 0.01.
        covariance = [[float(item) for item in row] for row in fit.covariance()]
        total = sum(covariance[i][j] * x ** (i + j) for x in xs for i in range(3) for j in range(3))
        self.assertAlmostEqual(total, 0.03, places=7)


class TestCurve(support.TestCase):
    def test_uncertainty_contains_the_spread_of_the_averaged_degrees(self):
        energies = [60.0, 90.0, 150.0, 300.0, 600.0, 1000.0, 1800.0]
        xs = list(map(math.log, energies))
        ys = [-1.0 * x - 0.03 * (x - 6) ** 2 + 0.01 * (-1) ** i for i, x in enumerate(xs)]
        variances = [[(i == j) * 0.02**2 for j in range(7)] for i in range(7)]
        fitted = efficiency.fit_curve(energies, list(map(math.exp, ys)), variances)
        self.assertGreater(len(fitted.weights), 1)
        self.assertEqual(fitted.scatter, 0)
        x, parts = math.log(220), []
        for degree, weight in fitted.weights.items():
            one = PolynomialFit(xs, ys, variances, degree)
            own = [[float(item) for item in row] for row in one.covariance()]
            size = range(degree + 1)
            variance = sum(own[i][j] * x ** (i + j) for i in size for j in size)
            parts.append((weight, one.value_at(x), variance))
        mean = sum(weight * value for weight, value, _ in parts)
        total = sum(weight * (own + (value - mean) ** 2) for weight, value, own in parts)
        self.assertAlmostEqual(math.log(fitted.curve.value_at(220)), mean, places=9)
        self.assertAlmostEqual(fitted.curve.uncertainty_at(220), math.sqrt(total), places=7)


class TestSumming(support.TestCase):
    def peak_efficiency(self, total):
        return lambda energy: total * 0.35 * (energy / 60) ** -0.6

    def test_factors_of_two_photons_are_those_of_the_level_scheme(self):
        # A line of the second level is fed by the other line in a part of the decays.
        cases = (("Co-60", 1173.228, 1.0), ("Co-60", 1332.492, 0.9985 / 0.99983),
                 ("Y-88", 898.042, 1.0), ("Y-88", 1836.063, 0.937 / 0.9935))  # fmt: skip
        for value in (0.01, 0.05, 0.15):
            for name, energy, share in cases:
                lines = lines_of(name)
                factors = summing.factors(lines, coincidences.pairs()[name], flat_total(value))
                (factor,) = [f.factor for line, f in zip(lines, factors) if line.energy == energy]
                self.assertLess(abs(factor / (1 - share * value) - 1), 0.01, (name, energy, value))
            lines, peak = lines_of("Y-88"), self.peak_efficiency(value)
            factors = summing.factors(lines, coincidences.pairs()["Y-88"], flat_total(value), peak)
            (sum_line,) = [(li, f) for li, f in zip(lines, factors) if abs(li.energy - 2734) < 0.5]
            both = 0.937 * peak(898) * peak(1836) / (sum_line[0].photons * peak(2734))
            self.assertLess(abs(sum_line[1].factor / (1 + both) - 1), 0.01)

    def test_factors_agree_with_a_monte_carlo_of_the_listed_pairs(self):
        generator = random.Random(3)
        for name in ("Eu-152", "Ba-133"):
            lines, pairs = lines_of(name), coincidences.pairs()[name]
            for value in (0.01, 0.05):
                total, peak = flat_total(value), self.peak_efficiency(value)
                simulated = self.monte_carlo(lines, pairs, total, peak, generator)
                factors = summing.factors(lines, pairs, total, peak)
                for line, expected, found in zip(lines, simulated, factors):
                    ratio = found.factor / expected
                    self.assertLess(abs(ratio - 1), 0.03, (name, value, line.energy))

    def monte_carlo(self, lines, pairs, total, peak, generator, events=1500):
        """Draw the other photon of each pair; the rest of each yield has no coincidence."""

        def number_of(energy):
            near = [i for i, line in enumerate(lines) if abs(line.energy - energy) < 0.5]
            return min(near, key=lambda i: abs(lines[i].energy - energy), default=None)

        alone, counts = [line.photons for line in lines], [0.0] * (len(lines) + 1)
        for pair in pairs:
            for own, other in (pair.energies, pair.energies[::-1]):
                number, added = number_of(own), number_of(own + other)
                if number is not None:
                    alone[number] -= pair.probability
                weight = pair.probability * peak(own) / events
                for _ in range(events):
                    deposit = generator.random()
                    if deposit >= total.value_at(other):
                        counts[-1 if number is None else number] += weight
                    elif deposit < peak(other):
                        counts[-1 if added is None else added] += weight / 2
        return [
            (count / peak(line.energy) + rest) / line.photons
            for line, rest, count in zip(lines, alone, counts)
        ]

    def test_uncertainty_is_the_effect_of_a_shift_of_the_total_efficiency(self):
        for name in ("Cs-134", "Na-22"):
            lines, pairs = lines_of(name), coincidences.pairs()[name]
            usual, shifted = (
                summing.factors(lines, pairs, flat_total(value)) for value in (0.1, 0.1001)
            )
            for before, after in zip(usual, shifted):
                slope = (after.factor / before.factor - 1) / 0.001
                self.assertAlmostEqual(before.uncertainty, 0.1 * slope, places=4)

    def test_annihilation_counts_twice_and_extremes_stay_positive(self):
        lines, pairs = lines_of("Na-22"), coincidences.pairs()["Na-22"]
        _, gamma = summing.factors(lines, pairs, flat_total(0.1))
        self.assertAlmostEqual(gamma.factor, 1 - 1.7987 * 0.1, places=3)
        for factor in summing.factors(lines, pairs, flat_total(1.0)):
            self.assertGreater(factor.factor, 0)
        unusable = [qar.GammaLine(511.0), qar.GammaLine()]
        self.assertEqual(summing.factors(unusable, pairs, flat_total(0.1))[0].factor, 1)

    def test_two_partners_count_together_only_if_they_are_coincident(self):
        lines = [qar.GammaLine(energy, 1.0) for energy in (100.0, 200.0, 400.0)]
        pairs = [CoincidentPair((100.0, e), 0.5) for e in (200.0, 400.0)]
        (first, *_) = summing.factors(lines, pairs, flat_total(0.2))
        self.assertAlmostEqual(first.factor, 1 - 0.2)
        pairs.append(CoincidentPair((200.0004, 400.0), 0.5))  # the same energy, rounded otherwise
        (first, *_) = summing.factors(lines, pairs, flat_total(0.2))
        self.assertAlmostEqual(first.factor, 1 - 0.2 + 0.01)

    def test_total_efficiency_ends_below_the_table_and_goes_on_above(self):
        total = TotalEfficiency((50.0, 200.0), (0.04, 0.01))
        values = [total.value_at(energy) for energy in (49.9, 50, 100, 200, 900)]
        for found, expected in zip(values, (0, 0.04, 0.02, 0.01, 0.01)):
            self.assertAlmostEqual(found, expected)

    def test_peak_to_total_extends_the_continuum_and_subtracts_the_background(self):
        counts, calibration = [110] * 700 + [0] * 300, qar.Calibration((0.0, 1.0))
        counts[661:663] = [5110, 5110]
        peaks = [qar.Peak(662.0, 662.0, 2.0, 10000.0, significance=90.0)]
        background = peak_to_total.Background([20] * 1000, 0.5)
        counts[:30] = [9999] * 30  # noise
        energy, ratio = peak_to_total.total_to_peak(counts, calibration, peaks, background)
        self.assertEqual(energy, 662.0)
        self.assertAlmostEqual(ratio, 1 + 665 * 100 / 10000, delta=0.03)


class TestCertifiedSource(support.TestCase):
    START = datetime(2024, 6, 1, tzinfo=timezone.utc)

    def lines(self, certificate, start=START, real_time=100.0):
        entries = [CertifiedActivity(name, 1000.0, 20.0, self.START) for name in certificate]
        acquisition = Acquisition(start, real_time, 90.0)
        return certified_source.source_lines(entries, LIBRARY, acquisition)

    def test_activity_decays_before_and_during_the_measurement(self):
        half_life = builtin_library.named("Cd-109")[0].nuclide.half_life
        start = self.START + timedelta(seconds=half_life)
        (line,) = [x for x in self.lines(["cd109"], start, half_life) if x.number == 0]
        photons = lines_of("Cd-109")[0].photons
        self.assertAlmostEqual(line.photons, 90 * photons * 1000 * 0.25 / math.log(2), delta=1)
        self.assertGreater(line.activity_uncertainty, 0.02)  # with that of the half-life

    def test_daughter_decays_with_its_certified_parent_only(self):
        start = self.START + timedelta(days=20)
        with self.assertRaisesRegex(ValueError, "Pb-212: the reference date is more than 20 half"):
            self.lines(["Pb-212"], start)
        lines = self.lines(["Th-228", "Pb-212"], start)
        left = max(x.photons for x in lines if x.nuclide == "Pb-212") / 90 / 0.436 / 1000
        self.assertAlmostEqual(left, 0.9804, places=2)


class TestCalibration(support.TestCase):
    def setUp(self):
        super().setUp()
        self.activities = benchmark.SOURCES["mixed"]

    def source(self, total=NO_SUMMING, seed=6):
        self.certificate = benchmark.write_source(
            "source.qar", self.activities, random.Random(seed), total
        )
        return qar.open("source.qar", "r+")

    def calibrate(self, source, **method):
        return efficiency_calibration.calibrate(source, self.certificate, LIBRARY, Method(**method))

    def test_efficiency_is_within_four_percent_and_survives_in_the_file(self):
        with self.source() as source:
            calibration = self.calibrate(source)
            efficiency_calibration.write(source, calibration)
            for energy in benchmark.ENERGIES:
                true = benchmark.true_efficiency(energy)
                self.assertLess(abs(calibration.curve.value_at(energy) / true - 1), 0.04, energy)
                self.assertLess(0.004, calibration.curve.uncertainty_at(energy))
                self.assertLess(calibration.curve.uncertainty_at(energy), 0.04)
            self.assertEqual(efficiency.read_curve(source), calibration.curve)
            self.assertGreater(source["QAR_D_EFFICUNC"], 0.01)
            self.assertAlmostEqual(source["QAR_D_EFFICMAX"], 1836.06, places=1)
            self.assertTrue(source["QAR_T_EFFICTIME"])
            # Covariance of two energies: at least the common certificate parts.
            self.assertGreater(calibration.curve.covariance(898, 1836), 0.005**2)
            source.set_calibration(efficiency=(-3.0, -0.5))
            self.assertEqual(
                efficiency.read_curve(source).uncertainty_at(300), source["QAR_D_EFFICUNC"]
            )

    def test_known_total_efficiency_corrects_and_an_unknown_one_widens(self):
        with self.source(flat_total(0.06)) as source:
            known = self.calibrate(source, total=flat_total(0.06))
            unknown = self.calibrate(source)
        deviation = known.curve.value_at(1250) / benchmark.true_efficiency(1250) - 1
        self.assertLess(abs(deviation), 0.03)
        marked = {point.nuclides for point in unknown.points if point.has_summing}
        self.assertLessEqual({"Y-88", "Co-60"}, marked)
        self.assertNotIn("Cs-137", marked)
        point, same = (
            next(p for p in result.points if p.nuclides == "Co-60") for result in (known, unknown)
        )
        self.assertAlmostEqual(point.efficiency * point.factor.factor, same.efficiency)
        self.assertGreater(same.uncertainty, 1.1 * point.uncertainty)

    def test_disturbed_and_excluded_peaks_are_listed_and_not_used(self):
        self.activities = {**self.activities, "Na-22": (2000, 0.01)}
        with self.source() as source:
            wrong = [
                entry._replace(activity=2 * entry.activity) if entry.nuclide == "Sr-85" else entry
                for entry in self.certificate
            ]
            self.certificate = wrong
            calibration = self.calibrate(source, leave_out=("co60",), degree=4)
        reasons = {round(p.energy): p.reason for p in calibration.points if p.reason}
        expected = {22: "below 40 keV", 511: "annihilation", 1173: "left out"}
        expected[514] = "far from the curve"
        self.assertEqual({energy: reasons.get(energy) for energy in expected}, expected)
        self.assertEqual((calibration.fit.degree, len(calibration.curve.coefficients)), (4, 5))

    def test_analysis_gets_the_factors_of_a_total_efficiency(self):
        with self.source() as source:
            efficiency_calibration.write(source, self.calibrate(source))
            library = [builtin_library.named(name)[0].nuclide for name in ("Co-60", "Cs-137")]
            source.set_nuclide_library(library)
            source.analyse(total_efficiency=flat_total(0.1))
            cobalt, caesium = source.nuclide_library()
            self.assertAlmostEqual(cobalt.lines[0].summing_factor, 0.9, places=3)
            self.assertLess(cobalt.lines[0].summing_uncertainty, -0.01)
            self.assertIsNone(caesium.lines[0].summing_factor)
            self.assertEqual(efficiency.read_total(source), flat_total(0.1))
            source.set_column("QAR_D_TOTALENERGY", (45.0,))
            self.assertEqual(efficiency.read_total(source).energies, (45.0,))

    def test_curve_without_a_covariance_has_the_scalar_uncertainty(self):
        with qar.open("old.qar", "x") as source:
            self.assertIsNone(efficiency.read_curve(source))
            source.set_calibration(efficiency=(-3.0, -0.5))
            source["QAR_D_EFFICUNC"] = 0.03
            curve = efficiency.read_curve(source)
        self.assertAlmostEqual(curve.uncertainty_at(1000), 0.03)
        self.assertEqual(curve.value_within(9e9), curve.value_at(9e9))
        limited = EfficiencyCurve((0.0, -1.0), (), 50.0, 100.0)
        values = [limited.value_within(energy) for energy in (20, 80, 300)]
        for found, expected in zip(values, (1 / 50, 1 / 80, 1 / 100)):
            self.assertAlmostEqual(found, expected)
