"""Records and entries: counted, inserted, deleted, copied and found, also after reopening."""

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

    def assert_library(self, names, lines=None, handle=None):
        """The names of all records, and the line energies of some by their record."""
        handle = handle or self.source
        self.assertEqual(self.column(handle, "QAR_C_NUCLNAME"), names)
        for record, energies in (lines or {}).items():
            self.assertEqual(self.column(handle, "QAR_D_LINEENERGY", record), energies)

    def reopen(self):
        self.source = self.reopened(self.source)

    def test_counts(self):
        for class_argument in (NUCLIDES, NUCLIDES << 16, code_of("QAR_D_HALFLIFE")):
            self.assertEqual(self.ok(pyORV3.count(self.source, class_argument, 0)), len(LIBRARY))
            self.assertEqual(self.ok(pyORV3.count(self.source, class_argument, 3)), 3)
        self.fails(embedded.UNKNOWN_CLASS, pyORV3.count(self.source, 0x1234, 0))
        for record in (6, 65535):
            self.fails(embedded.NO_SUCH_RECORD, pyORV3.count(self.source, NUCLIDES, record))

    def test_deleting_closes_the_gap(self):
        self.ok(pyORV3.delete(self.source, NUCLIDES, 2, 0))
        self.ok(pyORV3.delete(self.source, NUCLIDES, 2, 2))  # a line of Ba-133, now record 2
        for record in (5, 0, 65535, -1):
            self.fails(embedded.NO_SUCH_RECORD, pyORV3.delete(self.source, NUCLIDES, record, 0))
        self.fails(embedded.NO_SUCH_ENTRY, pyORV3.delete(self.source, NUCLIDES, 1, 3))
        for _ in ("before", "after reopening"):
            lines = {1: [1173.228, 1332.492], 2: [80.998, 356.013]}
            self.assert_library(["Co-60", "Ba-133", "Ba-133m", "K-40"], lines)
            self.reopen()

    def test_inserting_moves_what_is_behind(self):
        self.ok(pyORV3.insert(self.source, NUCLIDES, 2, 0))
        self.ok(pyORV3.insert(self.source, NUCLIDES, 4, 2))  # into the lines of Ba-133
        self.ok(pyORV3.insert(self.source, NUCLIDES, 7, -1))  # behind the last record
        for record in (0, 9, 65535, -4):
            self.fails(embedded.NO_SUCH_RECORD, pyORV3.insert(self.source, NUCLIDES, record, 0))
        self.fails(embedded.NO_SUCH_ENTRY, pyORV3.insert(self.source, NUCLIDES, 1, 4))
        for _ in ("before", "after reopening"):
            for name, record, entry in [
                ("QAR_C_NUCLNAME", 2, 1),
                ("QAR_D_LINEENERGY", 4, 2),
                ("QAR_C_NUCLNAME", 7, 1),
            ]:
                answer = pyORV3.getParameter(self.source, code_of(name), record, entry)
                self.fails(embedded.NOT_SET, answer)
            self.reopen()
        self.set(self.source, "QAR_C_NUCLNAME", "new", 2)
        self.set(self.source, "QAR_C_NUCLNAME", "last", 7)
        self.set(self.source, "QAR_D_LINEENERGY", 100.0, 4, 2)
        self.assert_library(
            ["Co-60", "new", *NAMES[1:], "last"], {4: [80.998, 100.0, 302.851, 356.013]}
        )

    def test_deleting_a_block_deletes_its_records_alone(self):
        self.set(self.source, "QAR_C_PEAKNUCL", "Co-60")
        self.ok(pyORV3.deleteBlock(self.source, NUCLIDES))
        self.reopen()
        self.assert_library([])
        self.assertEqual(self.column(self.source, "QAR_C_PEAKNUCL"), ["Co-60"])

    def test_deleting_a_level_deletes_its_results_and_the_later_ones(self):
        for level, peaks, results in [(0, 1, 1), (3, 1, 1), (2, 1, 0), (1, 0, 0)]:
            self.set(self.source, "QAR_C_PEAKNUCL", "Co-60")
            self.set(self.source, "QAR_C_RESNUCLIDE", "Co-60")
            status = 0 if level in (1, 2) else embedded.UNKNOWN_ITEM
            self.fails(status, pyORV3.deleteLevel(self.source, level))
            for name, count in [("QAR_C_PEAKNUCL", peaks), ("QAR_C_RESNUCLIDE", results)]:
                self.assertEqual(pyORV3.count(self.source, code_of(name), 0)[1], count)
        self.assert_library(NAMES)

    def test_copies_replace_the_class_or_the_whole_source(self):
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
                self.set(copy, "QAR_D_LIVETIME", 5.0)
                self.write_nuclides(copy, [("old", [1.0])] * 7)
                self.ok(pyORV3.copyTo(self.source, copy, class_argument))
                copy = self.reopened(copy, name)
                self.assert_library(NAMES, {3: LIBRARY[2][1], 5: LIBRARY[4][1]}, copy)
                self.assertEqual(self.get(copy, "QAR_C_MEASNAME"), title)
                self.assertEqual(pyORV3.getSpectrum(copy, 0, 0)[1], channels)
                live = pyORV3.getParameter(copy, code_of("QAR_D_LIVETIME"), 1, 1)
                self.fails(0 if class_argument else embedded.NOT_SET, live)
        again = self.open(embedded.READ | embedded.WRITE)
        for class_argument in (NUCLIDES, 0):
            self.ok(pyORV3.copyTo(self.source, again, class_argument))
        self.assert_library(NAMES)

    def test_single_records_are_copied_and_failing_copies_leave_the_destination(self):
        copy = self.create("copy.qar")
        self.fails(embedded.NO_BLOCK, pyORV3.copyTo(self.source, copy, NUCLIDES))
        self.write_nuclides(copy, LIBRARY[:2])
        for answer in [
            pyORV3.copyTo(self.source, copy, PEAKS),
            pyORV3.copyTo(12345, copy, NUCLIDES),
            pyORV3.copyTo(12345, copy, 0),
            pyORV3.copyTo(self.source, 0, NUCLIDES),
            *(pyORV3.moveRecordsTo(self.source, copy, NUCLIDES, n, 1) for n in (0, 6)),
            *(pyORV3.moveRecordsTo(self.source, copy, NUCLIDES, 1, n) for n in (0, 4)),
        ]:
            self.assertNotEqual(answer, 0)
        copy = self.reopened(copy, "copy.qar")
        self.assert_library(NAMES[:2], handle=copy)
        self.ok(pyORV3.moveRecordsTo(self.source, copy, NUCLIDES, 3, 1))
        self.ok(pyORV3.moveRecordsTo(self.source, copy, NUCLIDES, 5, 3))
        copy = self.reopened(copy, "copy.qar", embedded.READ)
        self.assert_library(["Ba-133", "Cs-137", "K-40"], {1: LIBRARY[2][1]}, copy)
        self.assert_library(NAMES)  # the source keeps its record
        self.fails(embedded.READ_ONLY, pyORV3.copyTo(self.source, copy, NUCLIDES))

    def test_searches(self):
        self.set(self.source, "QAR_C_NUCLNAME", "Ba", 6)
        self.set(self.source, "QAR_D_LINEENERGY", 661.657, 6)
        by_name, by_energy = pyORV3.findNuclideByName, pyORV3.findNuclideByEnergy
        cases = [
            (by_name, ("k-40", 1), 5), (by_name, ("Ba-133", 0), 3), (by_name, ("Ba", 0), 6),
            (by_name, ("Ba", 2), 3), (by_name, ("Ba", after(3, 2)), 4),
            (by_name, ("Ba-133", after(3, 0)), 4), (by_name, ("Ba-13", 1), 0),
            (by_name, ("", 1), 0), (by_energy, (1332.5, 1.0, 0), 1),
            (by_energy, (289.5, 50.0, 0), 3), (by_energy, (289.0, 50.0, 0), 4),
            (by_energy, (289.0, 50.0, 1), 3), (by_energy, (661.657, 0.5, 0), 2),
            (by_energy, (661.657, 0.5, after(2)), 6), (by_energy, (661.657, 0.5, after(6)), 0),
        ]
        for _ in ("before", "after reopening"):
            for find, key, record in cases:
                with self.subTest(key=key):
                    answer = find(self.source, *key)
                    self.fails(0 if record else embedded.NOT_FOUND, answer)
                    self.assertEqual(answer[1], record)
            self.reopen()
        for find, status, *keys in [
            (by_name, embedded.NOT_FOUND, ("x" * 10000, 0)),
            (by_name, embedded.UNKNOWN_ITEM, ("Co", 3), ("Co", 256)),
            (by_energy, embedded.UNKNOWN_ITEM, (661.657, 0.5, 2)),
            (by_energy, embedded.KEY_REFUSED, (661.657, -1.0, 0), (-1.0, 5.0, 0)),
            (by_energy, embedded.KEY_REFUSED, (float("nan"), 1.0, 0), (1.0, float("inf"), 0)),
        ]:
            for key in keys:
                self.fails(status, find(self.source, *key))
        self.ok(pyORV3.delete(self.source, NUCLIDES, 1, 0))
        self.assertEqual(by_energy(self.source, 661.657, 0.5, 0)[1], 1)
        self.set(self.source, "QAR_D_LINEENERGY", 700.0)
        self.assertEqual(by_energy(self.source, 661.657, 0.5, 0)[1], 5)
        self.ok(pyORV3.copyTo(self.create("empty.qar"), self.source, 0))
        self.fails(embedded.NOT_FOUND, by_energy(self.source, 661.657, 0.5, 0))
