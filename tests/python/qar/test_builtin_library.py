"""The built-in nuclide library: invariants of the data, selection and search."""

import csv
import unittest

import qar
import support
from qar.nuclides import builtin_library


class TestData(unittest.TestCase):
    def test_agrees_with_well_known_lines(self):
        with open(support.PROJECT / "tests/data/well_known_lines.csv", encoding="utf-8") as file:
            known = list(csv.DictReader(line for line in file if not line.startswith("#")))
        self.assertGreaterEqual(len(known), 100)
        for row in known:
            energy, photons = float(row["energy"]), float(row["photons"])
            strongest = max(
                (
                    line.photons
                    for entry, line in builtin_library.near(energy, 0.1)
                    if entry.nuclide.name == row["nuclide"]
                ),
                default=0.0,
            )
            with self.subTest(**row):
                self.assertAlmostEqual(strongest / photons, 1, delta=0.03)

    def test_entries_are_physical(self):
        names = {entry.nuclide.name for entry in builtin_library.entries()}
        self.assertEqual(len(names), len(builtin_library.entries()))
        for nuclide, groups, _ in builtin_library.entries():
            with self.subTest(nuclide.name):
                energies = [line.energy for line in nuclide.lines]
                self.assertEqual(energies, sorted(set(energies)))
                self.assertTrue(all(10 <= energy <= 5000 for energy in energies))
                self.assertTrue(all(0 < line.photons <= 4 for line in nuclide.lines))
                self.assertGreater(nuclide.half_life, 0)
                self.assertTrue(groups and set(groups) <= set(builtin_library.GROUPS))
                self.assertTrue(nuclide.parent is None or nuclide.parent in names)

    def test_x_rays_belong_to_nuclides_and_lie_below_70_kev(self):
        plain = {nuclide.name: nuclide for nuclide in builtin_library.load()}
        more = {nuclide.name: nuclide for nuclide in builtin_library.load(x_rays=True)}
        self.assertEqual(set(plain), set(more))
        added = [
            line for name in more for line in more[name].lines if line not in plain[name].lines
        ]
        self.assertGreater(len(added), 200)
        self.assertTrue(all(line.energy < 70 for line in added))


class TestSelection(unittest.TestCase):
    def names(self, **options):
        return {nuclide.name for nuclide in builtin_library.load(**options)}

    def test_short_lived_nuclides_need_a_parent_or_the_option(self):
        default, everything = self.names(), self.names(short_lived=True)
        self.assertIn("Bi-214", default)  # lives 20 minutes, follows Ra-226
        self.assertNotIn("Al-28", default)
        self.assertIn("Al-28", everything)
        self.assertEqual(len(everything), len(builtin_library.entries()))

    def test_groups_restrict_the_library(self):
        self.assertIn("K-40", self.names(groups=["natural"]))
        self.assertNotIn("Tc-99m", self.names(groups=["natural"]))
        both = self.names(groups=["natural", "medical"])
        self.assertLess({"K-40", "Tc-99m"}, both)
        self.assertNotIn("Pu-239", both)
        with self.assertRaisesRegex(ValueError, "'naturel'.*natural"):
            self.names(groups=["naturel"])


class TestSearch(unittest.TestCase):
    def test_names_match_without_case_and_hyphen(self):
        for text, expected in (
            ("cs137", ["Cs-137"]),
            ("AG-110M", ["Ag-110m"]),
            ("na-2", ["Na-22", "Na-24"]),
            ("xy", []),
        ):
            names = [entry.nuclide.name for entry in builtin_library.named(text)]
            self.assertEqual(names, expected)

    def test_energies_match_within_the_tolerance_nearest_first(self):
        lines = builtin_library.near(1460.0, 1.5)
        self.assertEqual(lines[0][0].nuclide.name, "K-40")
        distances = [abs(line.energy - 1460.0) for _, line in lines]
        self.assertEqual(distances, sorted(distances))
        self.assertLessEqual(distances[-1], 1.5)


class TestAnalysis(support.TestCase):
    def test_file_without_nuclides_is_analysed_with_the_library_and_does_not_store_it(self):
        support.make_spectrum("a.qar")
        with qar.open("a.qar", "r+") as source:
            analysis = source.analyse(groups=["calibration"])
            self.assertEqual(source.record_count("QAR_C_NUCLNAME"), 0)
            used = source["QAR_C_ANLIBRARY"]
        self.assertIn("Cs-137", {nuclide.name for nuclide in analysis.nuclides})
        self.assertEqual(used, f"qar {builtin_library.version()} calibration")

    def test_nuclides_of_the_file_take_precedence(self):
        support.make_spectrum("a.qar")
        line = qar.GammaLine(661.657, 0.85)
        with qar.open("a.qar", "r+") as source:
            source.analyse(groups=["calibration"])
            source.set_nuclide_library([qar.Nuclide("X-1", 3.0e9, (line,))])
            analysis = source.analyse()
            self.assertEqual([nuclide.name for nuclide in analysis.nuclides], ["X-1"])
            self.assertEqual(source.record_count("QAR_C_NUCLNAME"), 1)
            self.assertEqual(source["QAR_C_ANLIBRARY"], "")

    def test_unknown_group_leaves_the_file_unchanged(self):
        support.make_spectrum("a.qar")
        with qar.open("a.qar", "r+") as source:
            self.assertRaises(ValueError, source.analyse, groups=["naturel"])
            self.assertEqual(source.results().peaks, ())
            self.assertNotIn("QAR_C_ANLIBRARY", source)

    def test_command_lists_nuclides_and_lines(self):
        for arguments, expected in (
            (["Cs-137"], r"half-life 30\.05 y.*\n.*\n.*\n.*\n +661\.657 +0\.8499 \*"),
            (["1460.8"], r"1460\.820 +0\.1055 +K-40"),
            (["eu-15", "--groups", "fission"], r"Eu-154 .*\nEu-155 .*\nEu-156"),
        ):
            self.assertRegex(self.run_well("nuclides", *arguments), expected)


if __name__ == "__main__":
    unittest.main()
