"""Records, entries and searches in a nuclide library."""

import pyORV3

import embedded
from embedded import NUCLIDES, code_of

LIBRARY = [
    ("Co-60", [1173.228, 1332.492]),
    ("Cs-137", [661.657]),
    ("Ba-133", [80.998, 302.851, 356.013]),
    ("Ba-133m", [275.925]),
    ("K-40", [1460.822]),
]
NAMES = [name for name, _ in LIBRARY]


def after(record, option=0):
    """Return the option of a search that begins after a record."""
    return record << 16 | option


class TestLibrary(embedded.TestCase):
    def setUp(self):
        super().setUp()
        self.source = self.create()
        self.write_nuclides(self.source, LIBRARY)

    def test_class_is_given_by_its_number_or_by_a_code(self):
        for class_argument in (NUCLIDES, NUCLIDES << 16, code_of("QAR_D_HALFLIFE")):
            with self.subTest(class_argument=hex(class_argument)):
                self.assertEqual(self.ok(pyORV3.count(self.source, class_argument, 0)), 5)
                self.assertEqual(self.ok(pyORV3.count(self.source, class_argument, 3)), 3)
                copy = self.create(f"{class_argument}.qar")
                self.fails(embedded.NO_BLOCK, pyORV3.copyTo(self.source, copy, class_argument))
                self.write_nuclides(copy, [("old", [1.0])] * 7)
                self.ok(pyORV3.copyTo(self.source, copy, class_argument))
                self.assertEqual(self.column(copy, "QAR_C_NUCLNAME"), NAMES)
        self.fails(embedded.UNKNOWN_CLASS, pyORV3.count(self.source, 0x1234, 0))

    def test_missing_record_or_entry_is_refused(self):
        self.ok(pyORV3.insert(self.source, NUCLIDES, 6, -1))  # an entry below 1 means the record
        self.set(self.source, "QAR_C_NUCLNAME", "last", 6)
        copy = self.create("copy.qar")
        self.write_nuclides(copy, LIBRARY[:2])
        for record in (0, 8, 65535, -1):
            for answer in [
                pyORV3.delete(self.source, NUCLIDES, record, 0),
                pyORV3.insert(self.source, NUCLIDES, record, 0),
                pyORV3.moveRecordsTo(self.source, copy, NUCLIDES, record, 1),
                pyORV3.moveRecordsTo(self.source, copy, NUCLIDES, 1, record),
            ]:
                self.fails(embedded.NO_SUCH_RECORD, answer)
        for record in (7, 65535):
            self.fails(embedded.NO_SUCH_RECORD, pyORV3.count(self.source, NUCLIDES, record))
        self.fails(embedded.NO_SUCH_ENTRY, pyORV3.delete(self.source, NUCLIDES, 1, 3))
        self.fails(embedded.NO_SUCH_ENTRY, pyORV3.insert(self.source, NUCLIDES, 1, 4))
        for level in (0, 3):
            self.fails(embedded.UNKNOWN_ITEM, pyORV3.deleteLevel(self.source, level))
        self.assertEqual(self.column(self.source, "QAR_C_NUCLNAME"), [*NAMES, "last"])

    def test_searches_find_the_expected_records(self):
        self.set(self.source, "QAR_C_NUCLNAME", "Ba", 6)
        self.set(self.source, "QAR_D_LINEENERGY", 661.657, 6)
        self.set(self.source, "QAR_D_LINEENERGY", 99.5, 6, 2)
        by_name, by_energy = pyORV3.findNuclideByName, pyORV3.findNuclideByEnergy
        cases = [
            (by_name, ("k-40", 1), 5),
            (by_name, ("Ba-133", 0), 3),
            (by_name, ("Ba", 0), 6),
            (by_name, ("Ba", 2), 3),
            (by_name, ("Ba", after(3, 2)), 4),
            (by_name, ("Ba-133", after(3, 0)), 4),
            (by_name, ("Ba-13", 1), 0),
            (by_name, ("", 0), 0),
            (by_energy, (1332.5, 1.0, 0), 1),
            (by_energy, (289.5, 50.0, 0), 3),
            (by_energy, (289.0, 50.0, 0), 4),
            (by_energy, (289.0, 50.0, 1), 3),
            (by_energy, (661.657, 0.5, 0), 2),
            (by_energy, (661.657, 0.5, after(2)), 6),
            (by_energy, (661.657, 0.5, after(6)), 0),
            (by_energy, (99.0, 0.5, 0), 6),
            (by_energy, (99.0, 0.4375, 0), 0),
        ]
        for _ in ("before", "after reopening"):
            for find, key, record in cases:
                with self.subTest(key=key):
                    answer = find(self.source, *key)
                    self.fails(0 if record else embedded.NOT_FOUND, answer)
                    self.assertEqual(answer[1], record)
            self.source = self.reopened(self.source)
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
