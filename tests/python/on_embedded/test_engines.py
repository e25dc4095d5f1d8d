"""Engines in several threads, on separate measurements and on a shared source."""

import concurrent.futures
import sys

import pyORV3

import embedded

sys.path.insert(0, str(embedded.EXAMPLES))

import measurement  # noqa: E402
import nuclide_analysis  # noqa: E402
import qar  # noqa: E402
import simulation  # noqa: E402

ENGINE = ("peak_search", "searchPeaks")
THREADS, TURNS = 8, 3


class TestThreads(embedded.TestCase):
    def work(self, shared, number):
        path = self.path(f"{number}.qar")
        measurement.record_measurement(path, number)
        with qar.open(path, "r+") as source:
            source.set_nuclide_library(nuclide_analysis.library())
            source.update(nuclide_analysis.SETTINGS)
        own = self.open(embedded.READ | embedded.WRITE, path)
        channels = self.ok(pyORV3.getSpectrum(own, 0, 0))
        for turn in range(TURNS):  # each turn replaces the results
            self.ok(pyORV3.executeNativeEngine(*ENGINE, own, 0))
            self.set(shared, "QAR_C_NUCLNAME", f"{number}.{turn}", number + 1)
            self.set(shared, "QAR_D_LINEENERGY", number + 0.25, number + 1)
            self.ok(pyORV3.flush(shared if number % 2 else own))
            record = self.ok(pyORV3.findNuclideByEnergy(shared, number + 0.25, 0.1, 0))
            self.assertEqual(record, number + 1)
            self.assertEqual(self.ok(pyORV3.getSpectrum(own, 0, 0)), channels)
        own = self.reopened(own, path)
        energies = self.column(own, "QAR_D_PEAKENERGY")
        self.assertGreaterEqual(len(energies), len(simulation.peaks()) - 2)
        for energy in energies:
            self.assertLess(min(abs(energy - true) for true, _ in simulation.peaks()), 0.5)

    def test_results_in_separate_and_shared_sources_are_complete(self):
        shared = self.create("shared.qar")
        self.write_nuclides(shared, [("", [0.0])] * THREADS)
        with concurrent.futures.ThreadPoolExecutor(THREADS) as executor:
            list(executor.map(self.work, [shared] * THREADS, range(THREADS)))
        shared = self.reopened(shared, "shared.qar")
        names = [f"{number}.{TURNS - 1}" for number in range(THREADS)]
        self.assertEqual(self.column(shared, "QAR_C_NUCLNAME"), names)
