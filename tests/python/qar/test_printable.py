"""Strings of a file in terminals, tables and pages."""

import csv
import unittest

import qar
import support
from qar.display import report, tables
from qar.display.printable import csv_cell, printable, quoted, value_text
from qar.formats import nuclide_csv

HOSTILE = "\x1b[2J\x9b\u202e<b>\udce9\n=1"


class TestPrintable(unittest.TestCase):
    def test_control_characters_are_replaced(self):
        self.assertEqual(printable(HOSTILE), "?[2J??<b>? =1")
        self.assertEqual(printable("300 µm\t\xa0π"), "300 µm  π")
        self.assertEqual(quoted("a\x1b" * 30), '"' + "a?" * 20 + '..."')
        self.assertEqual(value_text(["a\x1b", True, 0.1, 5]), "a?, yes, 0.1, 5")

    def test_csv_cell_is_never_a_formula(self):
        for text in ("=1+1", " =1", "+1+1", "-1-1", "@A1", "\t=1", "\r-x", "=\x1b1"):
            self.assertEqual(csv_cell(text)[0], "'", text)
        for text in ("-1.5", "+1e-05", "Cs-137", "", "1=1"):
            self.assertEqual(csv_cell(text), text)


class TestResults(support.TestCase):
    def test_names_from_a_file_are_printable_in_tables_report_and_csv(self):
        nuclide = qar.IdentifiedNuclide(HOSTILE, detection_limit=1.0)
        analysis = qar.Analysis((qar.Peak(5.0, nuclide=HOSTILE),), (nuclide,), (nuclide,))
        with qar.open(support.make_spectrum("a.qar", title=HOSTILE[:4]), "r+") as source:
            page = report.page(source, analysis)
        for text in (*tables.results(analysis), *page.splitlines()):
            self.assertTrue(text.isprintable(), text)
        library = (qar.Nuclide('=a,"', 1.0, (qar.GammaLine(-5.0, 0.5),)),)
        rows = list(csv.reader(nuclide_csv.text_of(library).splitlines()))
        self.assertEqual((rows[1][0], rows[1][2]), ("'=a,\"", "-5.0"))
