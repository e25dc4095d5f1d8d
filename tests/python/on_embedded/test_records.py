"""Records and entries: counted, inserted, deleted, copied and found, also after reopening."""

import unittest

import embedded
import pyORV3
from embedded import NUCLIDES, PEAKS, code_of

LIBRARY = [
    ("Co-60", [1173.228, 1332.492]),
    ("Cs-137", [661.657]),
    ("Ba-133", [80.998, 302.851, 356.013]),
    ("Ba-133m", [275.925]),
    ("K-40", [1460.822]),
]
NAMES = [name for name, _ in LIBRARY]


def after(record, option=0):
    """A search option: begin behind this record."""
    return record << 16 | option


class Library(embedded.TestCase):
    """A file with the nuclide library; each change is looked at before and after reopening."""

    def setUp(self):
        super().setUp()
        self.source = self.create()
        self.write_nuclides(self.source, LIBRARY)

    def assert_names(self, names, handle=None):
        self.assertEqual(self.column(handle or self.source, "QAR_C_NUCLNAME"), names)

    def assert_energies(self, record, energies):
        self.assertEqual(self.column(self.source, "QAR_D_LINEENERGY", record), energies)

    def reopen(self):
        self.source = self.reopened(self.source)

    def unset(self, handle, name, record, entry=1):
        answer = pyORV3.getParameter(handle, code_of(name), record, entry)
        self.fails(embedded.NOT_SET, answer)

    def test_counts(self):
        for class_argument in (NUCLIDES, NUCLIDES << 16, code_of("QAR_D_HALFLIFE")):
            self.assertEqual(self.ok(pyORV3.count(self.source, class_argument, 0)), len(LIBRARY))
            self.assertEqual(self.ok(pyORV3.count(self.source, class_argument, 3)), 3)
        for class_argument, record, status in [
            (0x1234, 0, embedded.UNKNOWN_CLASS),
            (NUCLIDES, 6, embedded.NO_SUCH_RECORD),
            (NUCLIDES, 65535, embedded.NO_SUCH_RECORD),
        ]:
            with self.subTest(class_argument=hex(class_argument), record=record):
                self.fails(status, pyORV3.count(self.source, class_argument, record))

    def test_deleting_closes_the_gap(self):
        self.ok(pyORV3.delete(self.source, NUCLIDES, 2, 0))
        self.ok(pyORV3.delete(self.source, NUCLIDES, 2, 2))  # a line of Ba-133, now record 2
        for record, entry in [(5, 0), (0, 0), (65535, 0), (1, 3), (-1, 0)]:
            self.assertNotEqual(pyORV3.delete(self.source, NUCLIDES, record, entry), 0)
        for _ in ("before", "after reopening"):
            self.assert_names(["Co-60", "Ba-133", "Ba-133m", "K-40"])
            self.assert_energies(1, [1173.228, 1332.492])
            self.assert_energies(2, [80.998, 356.013])
            self.reopen()

    def test_inserting_moves_what_is_behind(self):
        self.ok(pyORV3.insert(self.source, NUCLIDES, 2, 0))
        self.ok(pyORV3.insert(self.source, NUCLIDES, 4, 2))  # into the lines of Ba-133
        self.ok(pyORV3.insert(self.source, NUCLIDES, 7, -1))  # behind the last record
        self.set(self.source, "QAR_C_NUCLNAME", "Mn-54", 7)
        for record, entry in [(9, 0), (65535, 0), (1, 4)]:
            self.assertNotEqual(pyORV3.insert(self.source, NUCLIDES, record, entry), 0)
        for _ in ("before", "after reopening"):
            self.unset(self.source, "QAR_C_NUCLNAME", 2)
            self.unset(self.source, "QAR_D_LINEENERGY", 4, 2)
            self.assertEqual(self.get(self.source, "QAR_D_LINEENERGY", 4, 3), 302.851)
            self.set(self.source, "QAR_C_NUCLNAME", "new", 2)
            self.assert_names(["Co-60", "new", *NAMES[1:], "Mn-54"])
            self.ok(pyORV3.delete(self.source, NUCLIDES, 2, 0))
            self.ok(pyORV3.insert(self.source, NUCLIDES, 2, 0))
            self.reopen()

    def test_deleting_a_block_deletes_its_records_alone(self):
        self.set(self.source, "QAR_C_PEAKNUCL", "Co-60")
        self.ok(pyORV3.deleteBlock(self.source, NUCLIDES))
        self.reopen()
        self.assert_names([])
        self.assertEqual(self.column(self.source, "QAR_C_PEAKNUCL"), ["Co-60"])

    def test_deleting_a_level_deletes_its_results_and_the_later_ones(self):
        for level, peaks, results in [(2, 1, 0), (1, 0, 0)]:
            self.set(self.source, "QAR_C_PEAKNUCL", "Co-60")
            self.set(self.source, "QAR_C_RESNUCLIDE", "Co-60")
            self.ok(pyORV3.deleteLevel(self.source, level))
            for name, count in [("QAR_C_PEAKNUCL", peaks), ("QAR_C_RESNUCLIDE", results)]:
                self.assertEqual(pyORV3.count(self.source, code_of(name), 0)[1], count)
        self.fails(embedded.UNKNOWN_ITEM, pyORV3.deleteLevel(self.source, 77))
        self.assert_names(NAMES)

    def test_copies(self):
        self.set(self.source, "QAR_C_MEASNAME", "source")
        self.set(self.source, "QAR_L_CHANNELS", 256)
        self.ok(pyORV3.setSpectrum(self.source, tuple(range(256)), 0, 0))
        for class_argument, title, channels in [
            (NUCLIDES, "destination", (0,)),
            (code_of("QAR_C_NUCLNAME"), "destination", (0,)),
            (0, "source", tuple(range(256))),
        ]:
            name = f"{class_argument}.qar"
            with self.subTest(class_argument=hex(class_argument)):
                copy = self.create(name)
                self.set(copy, "QAR_C_MEASNAME", "destination")
                self.ok(pyORV3.createBlock(copy, NUCLIDES, 0))
                self.ok(pyORV3.copyTo(self.source, copy, class_argument))
                copy = self.reopened(copy, name)
                self.assert_names(NAMES, copy)
                self.assertEqual(self.column(copy, "QAR_D_LINEENERGY", 3), LIBRARY[2][1])
                self.assertEqual(self.get(copy, "QAR_C_MEASNAME"), title)
                self.assertEqual(pyORV3.getSpectrum(copy, 0, 0)[1], channels)
        self.assert_names(NAMES)

    def test_failing_copies_leave_the_destination(self):
        copy = self.create("copy.qar")
        self.write_nuclides(copy, LIBRARY[:2])
        for answer in [
            pyORV3.copyTo(self.source, copy, PEAKS),
            pyORV3.copyTo(12345, copy, NUCLIDES),
            pyORV3.copyTo(12345, copy, 0),
            pyORV3.copyTo(self.source, 0, NUCLIDES),
            pyORV3.moveRecordsTo(self.source, copy, NUCLIDES, 6, 1),
            pyORV3.moveRecordsTo(self.source, copy, NUCLIDES, 1, 4),
        ]:
            self.assertNotEqual(answer, 0)
        self.assert_names(NAMES[:2], self.reopened(copy, "copy.qar"))
        read_only = self.open(embedded.READ, "copy.qar")
        self.fails(embedded.READ_ONLY, pyORV3.copyTo(self.source, read_only, NUCLIDES))

    def test_single_records_are_copied(self):
        copy = self.create("copy.qar")
        self.write_nuclides(copy, LIBRARY[:2])
        self.ok(pyORV3.moveRecordsTo(self.source, copy, NUCLIDES, 3, 1))
        self.ok(pyORV3.moveRecordsTo(self.source, copy, NUCLIDES, 5, 3))
        copy = self.reopened(copy, "copy.qar")
        self.assert_names(["Ba-133", "Cs-137", "K-40"], copy)
        self.assertEqual(self.column(copy, "QAR_D_LINEENERGY", 1), LIBRARY[2][1])
        self.assert_names(NAMES)  # the source keeps its record

    def test_searches(self):
        self.set(self.source, "QAR_C_NUCLNAME", "Ba", 6)
        self.set(self.source, "QAR_D_LINEENERGY", 661.657, 6)
        by_name, by_energy = pyORV3.findNuclideByName, pyORV3.findNuclideByEnergy
        cases = [
            (by_name, ("K-40", 0), 5),
            (by_name, ("k-40", 1), 5),
            (by_name, ("Ba-133", 0), 3),
            (by_name, ("Ba", 0), 6),
            (by_name, ("Ba", 2), 3),
            (by_name, ("Ba", after(3, 2)), 4),
            (by_name, ("Ba-133", after(3, 0)), 4),
            (by_name, ("Ba-13", 1), 0),
            (by_name, ("Fe-59", 0), 0),
            (by_name, ("", 1), 0),
            (by_energy, (1332.5, 1.0, 0), 1),
            (by_energy, (300.0, 50.0, 0), 3),
            (by_energy, (289.5, 50.0, 0), 3),
            (by_energy, (289.0, 50.0, 0), 4),
            (by_energy, (289.0, 50.0, 1), 3),
            (by_energy, (661.657, 0.5, 0), 2),
            (by_energy, (661.657, 0.5, after(2)), 6),
            (by_energy, (661.657, 0.5, after(6)), 0),
            (by_energy, (1000.0, 1.0, 0), 0),
            (by_energy, (float("nan"), 1.0, 0), 0),
            (by_energy, (661.657, -1.0, 0), 0),
        ]
        for _ in ("before", "after reopening"):
            for find, key, record in cases:
                with self.subTest(key=key):
                    status, found = find(self.source, *key)
                    self.assertEqual((status == 0, found), (record > 0, record))
            self.fails(embedded.NOT_FOUND, by_name(self.source, "Fe-59", 0))
            self.fails(embedded.NOT_FOUND, by_energy(self.source, 1000.0, 1.0, 0))
            self.reopen()


if __name__ == "__main__":
    unittest.main()
