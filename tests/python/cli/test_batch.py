"""Batches: the same table however it is made, and whatever fails or is killed meanwhile."""

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
import tempfile
import time
import unittest

import qar.cli.workers
import support
from qar import formats, optional_imports
from qar.cli import batch, file_analysis, journal
from qar.cli.file_analysis import COLUMNS, Options

FILES = 8
HELD_BATCH = """
import sys, time
from qar.cli import main, progress
def step(self, path):
    self._done += 1
    if self._done == 2:
        time.sleep(300)
progress.Progress.step = step
sys.exit(main.main())
"""  # waits for a signal when two files are done


def process(*arguments, **options):
    """A process of this Python."""
    command = [sys.executable, "-B", *arguments]
    return subprocess.Popen(
        command, stderr=subprocess.DEVNULL, stdout=subprocess.DEVNULL, **options
    )


@contextlib.contextmanager
def started(*arguments, **options):
    """A process of this Python that is killed in the end."""
    running = process(*arguments, **options)
    try:
        yield running
    finally:
        running.kill()
        running.wait()


class Unpickled:
    """Calls a function when it is unpickled."""

    def __init__(self, function, *arguments):
        self._call = function, arguments

    def __reduce__(self):
        return self._call


class TestCase(support.TestCase):
    def setUp(self):
        super().setUp()
        os.mkdir("in")
        self.write("library.csv", support.LIBRARY)
        for number in range(FILES):
            path = support.make_spectrum(f"in/{number}.qar", 500 * (number + 1))
            if number % 2:  # half of them in another format
                formats.write(f"in/{number}.n42", formats.read(path)[0])
                os.remove(path)
        shutil.copy("in/4.qar", "in/damaged.qar")
        os.truncate("in/damaged.qar", 5000)

    def analyse(self, table, *options, code=1):
        """The table; one file of the folder is damaged, which gives code 1 and a line."""
        ran = support.run("analyse", "in", "-l", "library.csv", "-o", table, *options)
        self.assertEqual(ran.code, code, ran.err)
        lines = [line for line in ran.err if line.startswith("qar: ")]
        if code == 1:
            self.assertIn("damaged.qar", lines[0])
            self.assertIn(f"{FILES + 1} files: {FILES} analysed, 1 failed", lines[-1])
        return self.read(table) if code == 1 else lines[0]

    def waited_for(self, look):
        """The first true result of look; it may fail until then."""
        deadline = time.monotonic() + 60
        while time.monotonic() < deadline:
            with contextlib.suppress(OSError, ValueError):
                result = look()
                if result:
                    return result
            time.sleep(0.01)
        raise AssertionError("nothing came")

    def done(self, table="b.csv"):
        """True when some files of a running batch are in its journal."""
        return self.read(table + journal.SUFFIX).count('"rows"') >= 2

    def run_until_killed(self, *options, number=signal.SIGKILL, table="b.csv", **environment):
        """Start a batch and send it a signal when some files are done; its exit status."""
        command = ("-c", HELD_BATCH, "analyse", "in", "-l", "library.csv", "-o", table, *options)
        with tempfile.TemporaryDirectory() as scratch, started(
            *command, env={**os.environ, "TMPDIR": scratch, **environment}
        ) as running:
            self.waited_for(lambda: self.done(table))
            running.send_signal(number)
            return running.wait(60)


class TestTable(TestCase):
    def test_rows_follow_the_files_and_have_every_digit(self):
        rows = list(csv.DictReader(io.StringIO(self.analyse("a.csv"))))
        files = sorted(glob.glob(str(self.folder / "in" / "[0-9]*")))
        self.assertEqual([row["file"] for row in rows], [file for file in files for _ in range(4)])
        (first,) = file_analysis.analyse("in/0.qar", Options()).analysed
        areas = [repr(peak.area) for peak in first.analysis.peaks]
        self.assertEqual([row["net area"] for row in rows[:2]], areas)

    def test_several_processes_give_the_same_table_and_leave_nothing_else(self):
        self.assertEqual(self.analyse("b.csv", "--jobs", "2"), self.analyse("a.csv"))
        self.assertEqual(self.names(), ["a.csv", "b.csv", "in", "library.csv"])

    def test_existing_table_is_refused_and_the_message_names_force(self):
        self.write("a.csv", "mine")
        self.assertRegex(self.analyse("a.csv", code=2), "a.csv: .*--force")
        self.assertEqual(self.read("a.csv"), "mine")

    def test_no_cell_is_a_formula(self):
        row = ["=1+1", "-A", "peak", "@x", "-5.0", *[""] * (len(COLUMNS) - 5)]
        cells = next(csv.reader([batch.text_of([row]).splitlines()[1]]))
        self.assertEqual(cells[:5], ["'=1+1", "'-A", "peak", "'@x", "-5.0"])

    @unittest.skipUnless(optional_imports.optional("distributed"), "Dask is not installed")
    def test_cluster_gives_the_same_table(self):
        table = self.analyse("a.csv")
        with self.assertRaisesRegex(OSError, "no Dask scheduler"):
            batch.run(["in/0.qar"], Options(), "b.csv", batch.Executors(dask="no://where"))
        self.assertNotIn("b.csv.partial", self.names())
        cluster, file = "distributed.cli.dask_", ("--scheduler-file", "scheduler.json")
        local = ("--host", "127.0.0.1", "--port", "0", "--no-dashboard")
        worker = (
            "-m",
            f"{cluster}worker",
            "--nthreads",
            "1",
            "--no-nanny",
            "--no-dashboard",
            *file,
        )
        with started("-m", f"{cluster}scheduler", *local, *file), started(*worker), started(
            *worker
        ):
            address = self.waited_for(lambda: json.loads(self.read("scheduler.json"))["address"])
            self.assertEqual(self.analyse("b.csv", "--dask", address), table)


class TestJournal(TestCase):
    def test_killed_batch_continues_and_gives_the_same_table(self):
        table = self.analyse("a.csv")
        self.run_until_killed("-j", "2")
        self.assertFalse(os.path.exists("b.csv"))
        with open("b.csv.partial", "a") as partial:
            partial.write('{"file": "in/0')  # part of a line, as a kill leaves it
        self.assertIn("other settings", self.analyse("b.csv", "--limit", "7", code=2))
        self.assertEqual(self.analyse("b.csv", "--jobs", "2"), table)
        self.assertFalse(os.path.exists("b.csv.partial"))

    def test_resumed_batch_replaces_only_the_files_that_it_created(self):
        self.run_until_killed("--into", "out", "--report", "out")
        done = sorted(os.listdir("out"))
        own, user = [name for name in done if name.endswith(".html")][:2]
        free = next(f"{n}.qar" for n in range(FILES) if f"{n}.html" not in done)
        for name in (user, free):  # the user replaces one output and creates another
            with open(f"out/{name}.new", "w") as file:
                file.write("mine")
            os.replace(f"out/{name}.new", f"out/{name}")
        for number in range(FILES):  # every input has changed, so that all are analysed again
            os.utime(glob.glob(f"in/{number}.*")[0], ns=(5, 5))
        ran = support.run(
            *("analyse", "in", "-l", "library.csv", "-o", "b.csv", "--into", "out"),
            *("--report", "out"),
        )
        self.assertEqual(ran.code, 1)
        self.assertEqual([self.read(f"out/{name}") for name in (user, free)], ["mine"] * 2)
        taken = [line for line in ran.err if "use --force" in line]
        self.assertEqual(len(taken), 2, ran.err)
        self.assertNotIn(f"out/{own}", "".join(taken))
        self.assertEqual([name for name in os.listdir("out") if name[0] == "."], [])

    def test_file_is_analysed_again_only_if_it_changed(self):
        path = str(self.folder / "in" / "0.qar")
        rows = [["done"] * len(COLUMNS)]
        for changed in (False, True):
            os.utime(path, ns=(5, 5))
            entries = journal.Journal("t.csv", Options())
            entries.add(path, rows)
            entries.close()
            os.utime(path, ns=(5, 5 + changed))
            result = batch.run([path], Options(), "t.csv").rows
            self.assertEqual(result == rows, not changed)
            os.remove("t.csv")

    def test_second_batch_with_the_same_table_is_refused(self):
        first = journal.Journal("b.csv", Options())
        self.assertIn("b.csv: another batch", self.analyse("b.csv", code=2))
        first.close()
        self.analyse("b.csv")

    def test_file_that_is_no_journal_is_left_alone(self):
        self.write("b.csv.partial", "mine")
        self.assertIn("b.csv.partial", self.analyse("b.csv", code=2))
        self.assertEqual(self.read("b.csv.partial"), "mine")


class TestWorkers(TestCase):
    def outcome(self, pool, path="in/0.qar"):
        return pool.submit(path).result().failure

    def test_dead_worker_costs_only_its_file(self):
        with qar.cli.workers.Pool(1, Options()) as pool:
            self.assertEqual(self.outcome(pool), "")
            os.kill(pool._workers[0]._process.pid, signal.SIGKILL)
            self.assertIn("died (signal 9)", self.outcome(pool, "in/2.qar"))
            self.assertEqual(self.outcome(pool, "in/2.qar"), "")

    def test_stopped_worker_costs_only_its_file(self):
        with qar.cli.workers.Pool(1, Options()) as pool:
            self.assertEqual(self.outcome(pool), "")
            os.kill(pool._workers[0]._process.pid, signal.SIGSTOP)
            pool._timeout = 0.5
            self.assertIn("stopped after 0.5 s", self.outcome(pool, "in/2.qar"))
            pool._timeout = None
            self.assertEqual(self.outcome(pool, "in/2.qar"), "")

    def test_worker_output_does_not_reach_the_pipe(self):
        with qar.cli.workers.Pool(1, Options(template=Unpickled(os.system, "echo noise"))) as pool:
            self.assertEqual(self.outcome(pool), "")

    def test_modules_of_the_current_directory_are_not_imported(self):
        for module in ("pickle", "subprocess", "sitecustomize", "numpy"):
            self.write(f"{module}.py", "open('imported', 'a').close()\nraise ImportError")
        os.makedirs("elsewhere")
        self.write("elsewhere/qar", "import sys\nfrom qar.cli.main import main\nsys.exit(main())")
        program = [sys.executable, "-B", self.folder / "elsewhere" / "qar"]
        self.run_program(*program, "analyse", "in/0.qar", "in/2.qar", "--jobs", "2")
        self.assertFalse(os.path.exists("imported"))

    def test_signals_leave_no_unfinished_file(self):
        os.mkdir("temporary")
        for number in (signal.SIGTERM, signal.SIGHUP):
            for jobs in ("1", "2"):
                options = ("--into", "out", "--report", "out", "-j", jobs)
                folder = str(self.folder / "temporary")
                ended = self.run_until_killed(*options, number=number, TMPDIR=folder)
                self.assertEqual(ended, -number)
                self.assertEqual(os.listdir("temporary"), [])
                self.assertEqual([name for name in os.listdir("out") if name[0] == "."], [])
                self.assertEqual([name for name in os.listdir("in") if "journal" in name], [])
                shutil.rmtree("out")
                os.remove("b.csv.partial")


class TestOutputs(TestCase):
    def test_inputs_are_unchanged_if_results_go_to_a_directory(self):
        before = (self.folder / "in" / "0.qar").read_bytes()
        out = self.run_well(
            "analyse", "in/0.qar", "--into", "out", "--report", "out", "-o", "a.csv"
        )
        self.assertEqual(out.split(), ["out/0.qar", "out/0.html", "a.csv"])
        self.assertEqual((self.folder / "in" / "0.qar").read_bytes(), before)
        self.assertRegex(
            " ".join(sorted(os.listdir("out"))), r"^0.html 0.qar( qar-report-\w+.js)?$"
        )
        self.assertIn("0.qar: 1,024 channels", self.read("out/0.html"))

    def test_existing_output_is_replaced_only_with_force(self):
        command = ("analyse", "in/0.qar", "--into", "out")
        for options, code in (((), 0), ((), 2), (("--force",), 0)):
            ran = support.run(*command, *options)
            self.assertEqual(ran.code, code)
            if code:
                self.assertRegex(ran.err[0], "out/0.qar: .*--force")

    def test_inputs_of_the_same_name_are_refused(self):
        ran = support.run("analyse", "in/0.qar", "x/0.n42", "--into", "out")
        self.assertEqual((ran.code, "the same name" in ran.err[0]), (2, True))
        self.assertNotIn("out", self.names())

    def test_template_gives_settings_and_missing_calibrations(self):
        support.make_spectrum("template.qar")
        with qar.open("template.qar", "r+") as template:
            template["QAR_D_PEAKLIMIT"] = 100.0
            template.set_calibration((0.0, 1.0))
        formats.write("bare.csv", formats.Measurement(formats.read("in/0.qar")[0].counts))
        ran = support.run("analyse", "bare.csv", "--template", "template.qar", "--json")
        self.assertEqual((ran.code, '"peaks": []' in ran.out), (0, True), ran)
        ran = support.run("analyse", "in/0.qar", "--template", "template.qar", "--into", "out")
        self.assertEqual((ran.code, "0 peaks" in ran.out), (0, True), ran)
        self.assertEqual(formats.read("out/0.qar")[0].energy, formats.read("in/0.qar")[0].energy)
