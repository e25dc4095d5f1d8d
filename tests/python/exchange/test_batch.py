"""A folder at once: the same table however it is made, whatever fails or is killed meanwhile."""

import glob
import io
import json
import os
import shutil
import signal
import subprocess
import sys
import time
import unittest

import qar.workers
import support
from qar import analyse_file, batch, exchange, extras, formats

FILES = 8


def start(*arguments):
    return subprocess.Popen(
        [sys.executable, "-B", *arguments], stderr=subprocess.DEVNULL, stdout=subprocess.DEVNULL
    )


class Batch(support.TestCase):
    def setUp(self):
        super().setUp()
        os.mkdir("in")
        self.write("library.csv", support.LIBRARY)
        for number in range(FILES):
            path = f"in/{number}.qar"
            support.make_spectrum(path, 500 * (number + 1))
            if number % 2:  # half of them in another format
                formats.write(f"in/{number}.n42", exchange.load(path))
                os.remove(path)
        shutil.copy("in/4.qar", "in/damaged.qar")
        with open("in/damaged.qar", "r+b") as file:
            file.truncate(5000)

    def analyse(self, table, *options, code=1):
        """The table; one file of the folder is damaged, which gives code 1 and a line."""
        ran = support.run("analyse", "in", "-l", "library.csv", "-o", table, *options)
        self.assertEqual(ran.code, code, ran.err)
        failures = [line for line in ran.err if line.startswith("qar: ")]
        self.assertEqual(len(failures), 1, ran.err)
        if code == 1:
            self.assertIn("damaged.qar", failures[0])
        return (self.folder / table).read_text(encoding="utf-8") if code == 1 else failures[0]

    def test_gives_the_same_table_in_one_process_and_in_several(self):
        table = self.analyse("a.csv")
        rows = table.splitlines()
        self.assertEqual(len(rows), 1 + FILES * 4, table)
        self.assertEqual(
            [row.split(",")[0] for row in rows[1::4]],
            sorted(glob.glob(str(self.folder / "in" / "[0-9]*"))),
        )
        self.assertEqual(self.analyse("b.csv", "--jobs", "2"), table)
        self.assertEqual([name for name in self.names() if "partial" in name or name[0] == "."], [])
        self.assertIn("File exists", self.analyse("a.csv", code=2))

    def test_goes_on_after_a_kill(self):
        table = self.analyse("a.csv")
        command = ("-m", "qar", "analyse", "in", "-l", "library.csv", "-o", "b.csv", "-j", "2")
        process = start(*command)
        deadline = time.monotonic() + 60
        while self.done("b.csv") < 2 and time.monotonic() < deadline:
            time.sleep(0.01)
        process.kill()
        process.wait()
        before = self.done("b.csv")
        self.assertFalse(os.path.exists("b.csv"))
        with open("b.csv.partial", "a") as journal:
            journal.write('{"file": "in/0')  # what a kill in the middle of a line leaves
        self.assertIn("other settings", self.analyse("b.csv", "--limit", "7", code=2))
        ran = support.run("analyse", "in", "-l", "library.csv", "-o", "b.csv", "--jobs", "2")
        self.assertEqual((self.folder / "b.csv").read_text(), table, ran.err)
        self.assertGreaterEqual(before, 2)
        self.assertFalse(os.path.exists("b.csv.partial"))

    def done(self, table):
        try:
            return (self.folder / (table + ".partial")).read_text().count('"rows"')
        except OSError:
            return 0

    def test_a_worker_that_dies_costs_its_file(self):
        pool = qar.workers.Pool(1, analyse_file.Options())
        with pool:
            self.assertEqual(pool.submit("in/0.qar").result().failure, "")
            os.kill(pool._workers[0]._process.pid, signal.SIGKILL)
            self.assertIn("died (signal 9)", pool.submit("in/2.qar").result().failure)
            self.assertEqual(pool.submit("in/2.qar").result().failure, "")

    def test_inputs_stay_as_they_are_with_a_folder_for_results(self):
        before = (self.folder / "in" / "0.qar").read_bytes()
        self.write("in/two.n42", "x")
        ran = support.run("analyse", "in/0.qar", "in/1.n42", "-l", "library.csv", "-o", "a.csv",
                          "--into", "out", "--report", "out")  # fmt: skip
        self.assertEqual(ran.code, 0, ran.err)
        self.assertEqual((self.folder / "in" / "0.qar").read_bytes(), before)
        self.assertEqual(sorted(os.listdir("out")), ["0.html", "0.qar", "1.html", "1.qar"])
        ran = support.run("analyse", "in/0.qar", "in/1.n42", "--into", "out")
        self.assertEqual(
            (ran.code, [line[-12:] for line in ran.err[-2:]]), (1, [" File exists"] * 2)
        )
        self.assertEqual(sorted(os.listdir("out")), ["0.html", "0.qar", "1.html", "1.qar"])
        page = (self.folder / "out" / "0.html").read_text(encoding="utf-8")
        self.assertIn("0.qar: 1,024 channels", page)
        for options, code in ((("--force",), 0), ((), 2)):
            self.assertEqual(
                support.run("analyse", "in/1.n42", "--into", "out", *options).code, code
            )

    def test_a_template_gives_settings_and_missing_calibrations(self):
        support.make_spectrum("template.qar")
        with qar.open("template.qar", "r+") as template:
            template["QAR_D_PEAKLIMIT"] = 100.0
            template.set_calibration((0.0, 1.0))
        counts = exchange.load("in/0.qar").counts
        formats.write("bare.csv", formats.Measurement(counts))
        ran = support.run("analyse", "bare.csv", "--template", "template.qar", "--json")
        self.assertEqual((ran.code, '"peaks": []' in ran.out), (0, True), ran)
        self.assertEqual(support.run("analyse", "bare.csv").code, 2)
        ran = support.run("analyse", "in/0.qar", "--template", "template.qar", "--into", "out")
        self.assertEqual((ran.code, "0 peaks" in ran.out), (0, True), ran)
        self.assertEqual(exchange.load("out/0.qar").energy, exchange.load("in/0.qar").energy)

    def test_what_is_done_is_not_done_again_unless_the_file_has_changed(self):
        options, path = analyse_file.Options(), str(self.folder / "in" / "0.qar")
        rows = [["done"] * len(analyse_file.COLUMNS)]
        for changed in (False, True):
            journal = batch.Journal("t.csv", options)
            journal.add(path, rows)
            journal.close()
            os.utime(path, ns=(5, 5 + changed))
            if not changed:
                journal = batch.Journal("t.csv", options)
                journal.add(path, rows)
                journal.close()
            found = batch.run([path], options, "t.csv", stream=io.StringIO()).rows
            self.assertEqual(found == rows, not changed)

    @unittest.skipUnless(extras.optional("distributed"), "Dask is not installed")
    def test_gives_the_same_table_on_a_cluster(self):
        table = self.analyse("a.csv")
        address_file = str(self.folder / "scheduler.json")
        options = ("--scheduler-file", address_file, "--no-dashboard")
        processes = [
            start(
                "-m",
                "distributed.cli.dask_scheduler",
                "--host",
                "127.0.0.1",
                "--port",
                "0",
                *options,
            )
        ]
        try:
            worker = (
                "-m",
                "distributed.cli.dask_worker",
                "--nthreads",
                "1",
                "--no-nanny",
                *options,
            )
            processes += [start(*worker) for _ in range(2)]
            self.assertEqual(self.analyse("b.csv", "--dask", self.address(address_file)), table)
        finally:
            for process in processes:
                process.kill()
                process.wait()

    def address(self, path):
        deadline = time.monotonic() + 60
        while time.monotonic() < deadline:
            try:
                return json.loads((self.folder / path).read_text())["address"]
            except (OSError, ValueError):
                time.sleep(0.05)
        raise AssertionError("the scheduler did not start")


if __name__ == "__main__":
    unittest.main()
