"""The generated tables of qar."""

import json
import os

import qar
import support


class TestTables(support.TestCase):
    def test_generated_files_are_up_to_date(self):
        self.python(support.PROJECT / "scripts" / "generate", "--check")

    def test_each_status_is_listed_once(self):
        listed = [status.code for status in qar.status.TABLE]
        self.assertEqual(len(listed), len(set(listed)))

    def test_any_number_is_described(self):
        cases = [
            (-320234115, 0xECE99D7D, "badArguments", "bad argument"), (0, 0, "success", ""),
            (0xEBE88106, 0xEBE88106, "fileNotFound", "not found"), (5, 5, "unknown", "library"),
            (0xE061FFFF, 0xE061FFFF, "engineFailure", "engine"),
            (0xEBE80010, 0xEBE80010, "libraryFailure", "library"),
            (0xE0000005, 0xE0000005, "systemFailure", "system"), (-1, 0xFFFFFFFF, "unknown", "library"),
        ]  # fmt: skip
        for number, code, name, family in cases:
            status = qar.status.describe(number)
            self.assertEqual((status.code, status.name, status.family), (code, name, family))
            self.assertEqual(status.signed & 0xFFFFFFFF, code)
            self.assertIn(f"0x{code:08X}", str(status))
        text = self.run_well("status", "-320234115", "0xEBE88106")
        self.assertRegex(text, "0xECE99D7D.*bad argument\n?.*\n.*-337084154")
        self.assertEqual(json.loads(self.run_well("status", "0", "--json"))[0]["code"], 0)

    def test_enumerations_agree_with_the_library(self):
        with qar.open("options.qar", "x") as source:
            for name, energy in (("Cs-137m", 100.0), ("cs-137", 105.0), ("Cs-13", 103.0)):
                source.append({"QAR_C_NUCLNAME": name, "QAR_D_LINEENERGY": [energy]})
            search = qar.NameSearch
            by_name = [(search.EXACT_THEN_BEGINNING, 2), (search.EXACT, 2), (search.BEGINNING, 1)]
            for option, record in by_name:
                self.assertEqual(source.find_nuclide("CS-137", option), record)
            for energy_option, record in (
                (qar.EnergySearch.NEAREST, 3),
                (qar.EnergySearch.FIRST, 1),
            ):
                self.assertEqual(source.find_nuclide_at(103, 5, energy_option), record)
            self.assertEqual(source.state, qar.SourceState.OPEN | qar.SourceState.CHANGED)
            source.set_spectrum(range(32768))
            source.flush()
            source.delete("QAR_CLS_SPECTRUM", 1)
            source.flush()
            source.verify()
            self.assertEqual(source.state, qar.SourceState.OPEN)
            size = os.path.getsize("options.qar")
            source.compact()
            self.assertLess(os.path.getsize("options.qar"), size)
            source.append({"QAR_D_PEAKENERGY": 1.0})
            source.append({"QAR_C_RESNUCLIDE": "Cs-137"})
            source.delete_results(qar.ResultLevel.NUCLIDES)
            counts = [source.record_count(c) for c in ("QAR_CLS_PEAK", "QAR_CLS_RESULT")]
            self.assertEqual(counts, [1, 0])
