"""A folder at once: the same table however it is made, whatever fails or is killed meanwhile."""

import contextlib
import csv
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

import qar.cli.workers
import support
from qar import formats, optional_imports
from qar.cli import batch, file_analysis
from qar.cli.file_analysis import COLUMNS, Options
from qar.transfer import conversion

FILES = 8


@contextlib.contextmanager
def started(*arguments):
    """A process of this Python that is killed in the end."""
    process = subprocess.Popen(
        [sys.executable, "-B", "-m", *arguments],
        stderr=subprocess.DEVNULL,
        stdout=subprocess.DEVNULL,
    )
    try:
        yield
    finally:
        process.kill()
        process.wait()


class Noise:
    """Writes to standard output where it is unpickled."""

    def __reduce__(self):
        return os.system, ("echo noise",)


class Batch(support.TestCase):
    def setUp(self):
        super().setUp()
        os.mkdir("in")
        self.write("library.csv", support.LIBRARY)
        for number in range(FILES):
            path = support.make_spectrum(f"in/{number}.qar", 500 * (number + 1))
            if number % 2:  # half of them in another format
                formats.write(f"in/{number}.n42", conversion.load(path))
                os.remove(path)
        shutil.copy("in/4.qar", "in/damaged.qar")
        os.truncate("in/damaged.qar", 5000)

    def analyse(self, table, *options, code=1):
        """The table; one file of the folder is damaged, which gives code 1 and a line."""
        ran = support.run("analyse", "in", "-l", "library.csv", "-o", table, *options)
        self.assertEqual(ran.code, code, ran.err)
        (failure,) = (line for line in ran.err if line.startswith("qar: "))
        if code == 1:
            self.assertIn("damaged.qar", failure)
        return self.read(table) if code == 1 else failure

    def waited_for(self, look):
        """What look gives in the end, where there is nothing to be seen yet in between."""
        deadline = time.monotonic() + 60
        while time.monotonic() < deadline:
            with contextlib.suppress(OSError, ValueError):
                found = look()
                if found:
                    return found
            time.sleep(0.01)
        raise AssertionError("nothing came")

    def test_gives_the_same_table_in_one_process_and_in_several(self):
        table = self.analyse("a.csv")
        rows = list(csv.DictReader(io.StringIO(table)))
        files = sorted(glob.glob(str(self.folder / "in" / "[0-9]*")))
        self.assertEqual([row["file"] for row in rows], [file for file in files for _ in range(4)])
        (first,) = file_analysis.analyse("in/0.qar", Options())
        self.assertEqual(
            [row["net area"] for row in rows[:2]], [repr(p.area) for p in first.analysis.peaks]
        )
        self.assertEqual(self.analyse("b.csv", "--jobs", "2"), table)
        self.assertEqual([name for name in self.names() if "partial" in name or name[0] == "."], [])
        self.assertIn("File exists", self.analyse("a.csv", code=2))

    def test_goes_on_after_a_kill(self):
        table = self.analyse("a.csv")

        def done():
            return self.read("b.csv.partial").count('"rows"') >= 2

        with started("qar", "analyse", "in", "-l", "library.csv", "-o", "b.csv", "-j", "2"):
            self.waited_for(done)
        self.assertFalse(os.path.exists("b.csv"))
        with open("b.csv.partial", "a") as journal:
            journal.write('{"file": "in/0')  # what a kill in the middle of a line leaves
        self.assertIn("other settings", self.analyse("b.csv", "--limit", "7", code=2))
        self.assertEqual(self.analyse("b.csv", "--jobs", "2"), table)
        self.assertFalse(os.path.exists("b.csv.partial"))

    def test_a_worker_that_dies_costs_its_file_and_one_that_prints_nothing(self):
        with qar.cli.workers.Pool(1, Options(template=Noise())) as pool:
            self.assertEqual(pool.submit("in/0.qar").result().failure, "")
            os.kill(pool._workers[0]._process.pid, signal.SIGKILL)
            self.assertIn("died (signal 9)", pool.submit("in/2.qar").result().failure)
            self.assertEqual(pool.submit("in/2.qar").result().failure, "")

    def test_inputs_stay_as_they_are_with_a_folder_for_results(self):
        before = (self.folder / "in" / "0.qar").read_bytes()
        command = ("analyse", "in/0.qar", "in/1.n42", "--into", "out")
        self.assertEqual(support.run(*command, "-o", "a.csv", "--report", "out").code, 0)
        self.assertEqual((self.folder / "in" / "0.qar").read_bytes(), before)
        ran = support.run(*command)
        self.assertEqual(
            (ran.code, [line[-12:] for line in ran.err[-2:]]), (1, [" File exists"] * 2)
        )
        self.assertEqual(sorted(os.listdir("out")), ["0.html", "0.qar", "1.html", "1.qar"])
        self.assertIn("0.qar: 1,024 channels", self.read("out/0.html"))
        for options, code in ((("--force",), 0), ((), 2)):
            self.assertEqual(
                support.run("analyse", "in/1.n42", "--into", "out", *options).code, code
            )
        same = support.run("analyse", "in/0.qar", "x/0.n42", "--into", "out", "-o", "b.csv")
        self.assertEqual((same.code, "the same name" in same.err[0]), (2, True))

    def test_a_template_gives_settings_and_missing_calibrations(self):
        support.make_spectrum("template.qar")
        with qar.open("template.qar", "r+") as template:
            template["QAR_D_PEAKLIMIT"] = 100.0
            template.set_calibration((0.0, 1.0))
        formats.write("bare.csv", formats.Measurement(conversion.load("in/0.qar").counts))
        ran = support.run("analyse", "bare.csv", "--template", "template.qar", "--json")
        self.assertEqual((ran.code, '"peaks": []' in ran.out), (0, True), ran)
        self.assertEqual(support.run("analyse", "bare.csv").code, 2)
        ran = support.run("analyse", "in/0.qar", "--template", "template.qar", "--into", "out")
        self.assertEqual((ran.code, "0 peaks" in ran.out), (0, True), ran)
        self.assertEqual(conversion.load("out/0.qar").energy, conversion.load("in/0.qar").energy)

    def test_what_is_done_is_not_done_again_unless_the_file_has_changed(self):
        path = str(self.folder / "in" / "0.qar")
        rows = [["done"] * len(COLUMNS)]
        for changed in (False, True):
            os.utime(path, ns=(5, 5))
            journal = batch.Journal("t.csv", Options())
            journal.add(path, rows)
            journal.close()
            os.utime(path, ns=(5, 5 + changed))
            found = batch.run([path], Options(), "t.csv", stream=io.StringIO()).rows
            self.assertEqual(found == rows, not changed)

    @unittest.skipUnless(optional_imports.optional("distributed"), "Dask is not installed")
    def test_gives_the_same_table_on_a_cluster(self):
        table = self.analyse("a.csv")
        with self.assertRaisesRegex(OSError, "no Dask scheduler"):
            batch.run(["in/0.qar"], Options(), "b.csv", dask="no://where")
        self.assertNotIn("b.csv.partial", self.names())
        cluster, file = "distributed.cli.dask_", ("--scheduler-file", "scheduler.json")
        local = ("--host", "127.0.0.1", "--port", "0", "--no-dashboard")
        worker = (f"{cluster}worker", "--nthreads", "1", "--no-nanny", "--no-dashboard", *file)
        with started(f"{cluster}scheduler", *local, *file), started(*worker), started(*worker):
            address = self.waited_for(lambda: json.loads(self.read("scheduler.json"))["address"])
            self.assertEqual(self.analyse("b.csv", "--dask", address), table)
