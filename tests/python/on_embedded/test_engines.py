"""Engines: the peaks of a simulated spectrum are found, and other threads go on meanwhile."""

import functools
import sys
import threading
import unittest

import embedded
import pyORV3

sys.path.insert(0, str(embedded.EXAMPLES))

import measurement  # noqa: E402
import nuclide_analysis  # noqa: E402
import qar  # noqa: E402
import simulation  # noqa: E402

ENGINE = (nuclide_analysis.ENGINE, nuclide_analysis.ENTRY_POINT)


def measure(path, seed=417):
    """A measurement that is ready for its analysis."""
    measurement.record_measurement(path, seed)
    with qar.DataSource(path, qar.READ | qar.WRITE) as source:
        nuclide_analysis.prepare(source)


class Engine(embedded.TestCase):
    def analyse(self, handle):
        self.ok(pyORV3.executeNativeEngine(*ENGINE, handle, 0))

    def found_peaks(self, handle):
        names = ("QAR_D_PEAKENERGY", "QAR_D_PEAKAREA", "QAR_D_PEAKAREAU")
        return list(zip(*(self.column(handle, name) for name in names)))

    def test_the_peaks_of_a_measurement_are_found_and_kept(self):
        for seed in (1, 2, 3):
            with self.subTest(seed=seed):
                name = f"{seed}.qar"
                measure(self.path(name), seed)
                handle = self.open(embedded.READ | embedded.WRITE, name)
                self.analyse(handle)
                self.analyse(handle)  # replaces the results of the first run
                handle = self.reopened(handle, name)
                found, expected = self.found_peaks(handle), sorted(simulation.peaks())
                self.assertEqual(len(found), len(expected))
                for (energy, area, uncertainty), (true_energy, true_area) in zip(found, expected):
                    self.assertAlmostEqual(energy, true_energy, delta=0.35)
                    self.assertLess(abs(area - true_area), 5 * uncertainty)
                    self.assertLess(uncertainty, 0.2 * area)
                identified = self.column(handle, "QAR_C_RESNUCLIDE")
                self.assertEqual(sorted(identified), sorted(simulation.ACTIVITIES))

    def test_what_cannot_run_has_a_status(self):
        handle = self.create()
        for engine, entry_point, status in [
            ("no_such_engine", ENGINE[1], 0xE000007E),
            ("x" * 300, ENGINE[1], embedded.BAD_ARGUMENTS),
            (ENGINE[0], "noSuchEntryPoint", 0xE000007F),
        ]:
            with self.subTest(engine=engine[:20], entry_point=entry_point):
                self.fails(status, pyORV3.executeNativeEngine(engine, entry_point, handle, 0))
        for argument in (handle, 0, -1, 987654):  # a source without a spectrum, and none
            status = embedded.status_of(pyORV3.executeNativeEngine(*ENGINE, argument, 0))
            self.assertEqual(status >> 16, 0xE061)

    def test_other_threads_go_on_meanwhile(self):
        measure(self.path())
        handle = self.open(embedded.READ | embedded.WRITE)
        start, ran = threading.Lock(), threading.Event()

        def read_meanwhile():
            with start:
                self.get(handle, "QAR_L_CHANNELS")
                ran.set()

        # No thread is interrupted, so the other one runs only where this one lets it.
        self.addCleanup(sys.setswitchinterval, sys.getswitchinterval())
        sys.setswitchinterval(1000)
        for _ in range(20):
            start.acquire()
            ran.clear()
            thread = threading.Thread(target=read_meanwhile)
            thread.start()
            start.release()
            self.analyse(handle)
            went_on = ran.is_set()
            thread.join()
            if went_on:
                return
        self.fail("the other thread did not run during any of the engine's runs")

    def test_threads_work_on_their_own_and_on_shared_sources(self):
        count, turns, failures = 8, 3, []
        shared = self.create("shared.qar")
        self.write_nuclides(shared, [("", [0.0])] * count)

        def work(number):
            name = f"{number}.qar"
            measure(self.path(name), number)
            own = self.open(embedded.READ | embedded.WRITE, name)
            channels = self.ok(pyORV3.getSpectrum(own, 0, 0))
            for turn in range(turns):
                self.analyse(own)
                self.set(shared, "QAR_C_NUCLNAME", f"{number}.{turn}", number + 1)
                self.set(shared, "QAR_D_LINEENERGY", number + 0.25, number + 1)
                self.ok(pyORV3.flush(shared if number % 2 else own))
                found = self.ok(pyORV3.findNuclideByEnergy(shared, number + 0.25, 0.1, 0))
                self.assertEqual(found, number + 1)
                self.assertEqual(self.ok(pyORV3.getSpectrum(own, 0, 0)), channels)
                self.assertGreaterEqual(len(self.found_peaks(own)), len(simulation.peaks()) - 2)

        def guarded(number):
            try:
                work(number)
            except BaseException as failure:  # pylint: disable=broad-except
                failures.append(failure)

        threads = [threading.Thread(target=functools.partial(guarded, n)) for n in range(count)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(failures, [])
        shared = self.reopened(shared, "shared.qar")
        names = [f"{number}.{turns - 1}" for number in range(count)]
        self.assertEqual(self.column(shared, "QAR_C_NUCLNAME"), names)


if __name__ == "__main__":
    unittest.main()
