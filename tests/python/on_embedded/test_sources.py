"""Opening and sharing of data sources: invalid files, two processes, killed writers."""

import itertools
import os
import random
import signal
import subprocess
import sys

import pyORV3

import embedded
from embedded import CREATE, READ, WRITE, code_of


class TestFiles(embedded.TestCase):
    def test_other_file_is_refused_and_unchanged(self):
        handle = self.create("whole.qar")
        self.set(handle, "QAR_C_COMMENT", "x" * 255)
        self.ok(pyORV3.close(handle, 0))
        whole = (self.folder / "whole.qar").read_bytes()
        (self.folder / "folder.qar").mkdir()
        os.mkfifo(self.path("fifo.qar"))
        foreign = whole[:68] + b"else" + whole[72:]  # another application's database
        damaged = [whole[:end] for end in (100, -4096, -4095, -2000, -1)]
        not_sources = [b"", b"SQLite format 3", b"not a measurement\n" * 500, foreign]
        contents = {f"{n}.qar": content for n, content in enumerate(damaged + not_sources)}
        for name, content in contents.items():
            (self.folder / name).write_bytes(content)
        for status, names in {
            embedded.DAMAGED: list(contents)[: len(damaged)],
            embedded.NO_DATA_SOURCE: [*list(contents)[len(damaged) :], "folder.qar", "fifo.qar"],
            embedded.FILE_NOT_FOUND: ["missing.qar", "whole.qar/inside"],
            embedded.NAME_REFUSED: ["x" * 5000],
        }.items():
            for name, mode in itertools.product(names, (READ, READ | WRITE)):
                with self.subTest(name=name[:20], mode=mode):
                    answer = pyORV3.open(self.path(name), mode, 1, "")
                    self.fails(status, answer)
                    self.assertNotEqual(pyORV3.close(answer[1], 0), 0)
        kept = {name: (self.folder / name).read_bytes() for name in contents}
        self.assertEqual(kept, contents)

    def test_failed_creation_changes_no_file(self):
        self.set(self.create(), "QAR_C_COMMENT", "first")
        for name, status in [
            ("measurement.qar", embedded.FILE_EXISTS),
            ("no/folder.qar", embedded.FILE_NOT_FOUND),
        ]:
            answer = pyORV3.open(self.path(name), CREATE, 1, "")
            self.fails(status, answer)
            self.ok(pyORV3.getStatus(answer[1]))  # the context still exists
            self.addCleanup(pyORV3.close, answer[1], 0)
        self.assertEqual(self.get(self.open(), "QAR_C_COMMENT"), "first")
        self.assertEqual(sorted(os.listdir(self.folder)), ["measurement.qar"])

    def test_file_name_outside_the_code_page_is_created(self):
        for name in ("Größe µ.qar", "测量.qar"):
            self.set(self.create(name), "QAR_C_COMMENT", name[0])
            self.assertTrue((self.folder / name).is_file())


WRITE_AND_FLUSH = """if True:
    import sys, pyORV3
    handle = pyORV3.open(sys.argv[1], 3, 1, "")[1]
    for turn in range(1, 100000):
        assert pyORV3.setParameter(handle, int(sys.argv[2]), turn, 1, 1) == 0
        assert pyORV3.setSpectrum(handle, (turn,) * 4096, 0, 0) == 0
        assert pyORV3.flush(handle) == 0
        print(turn, flush=True)
"""


class TestProcesses(embedded.TestCase):
    def test_killed_writer_loses_only_unflushed_changes(self):
        handle = self.create()
        self.set(handle, "QAR_L_CHANNELS", 4096)
        self.ok(pyORV3.close(handle, 0))
        turn_code = code_of("QAR_L_LOWERDISC")
        generator = random.Random()
        for _ in range(6):
            command = [sys.executable, "-c", WRITE_AND_FLUSH, self.path(), str(turn_code)]
            with subprocess.Popen(command, stdout=subprocess.PIPE) as process:
                for _ in range(generator.randint(1, 20)):
                    flushed = int(process.stdout.readline())
                sum(range(generator.randint(0, 200000)))  # random delay before the kill
                process.send_signal(signal.SIGKILL)
            handle = self.ok(pyORV3.open(self.path(), READ, 1, ""))
            turn = self.get(handle, "QAR_L_LOWERDISC")
            self.assertGreaterEqual(turn, flushed)
            self.assertEqual(self.ok(pyORV3.getSpectrum(handle, 0, 0)), (turn,) * 4096)
            self.ok(pyORV3.reverify(handle))
            self.ok(pyORV3.close(handle, 0))

    def test_script_without_close_saves_and_readers_see_it_after_reverify(self):
        handle = self.create()
        self.set(handle, "QAR_C_COMMENT", "old")
        handle = self.reopened(handle, mode=READ)
        self.assertEqual(self.get(handle, "QAR_C_COMMENT"), "old")
        script = """if True:
            import sys, pyORV3
            handle = pyORV3.open(sys.argv[1], 3, 1, "")[1]
            assert pyORV3.setParameter(handle, int(sys.argv[2]), "new", 1, 1) == 0
        """
        self.python("-c", script, self.path(), code_of("QAR_C_COMMENT"))
        self.assertEqual(self.get(handle, "QAR_C_COMMENT"), "old")
        self.ok(pyORV3.reverify(handle))
        self.assertEqual(self.get(handle, "QAR_C_COMMENT"), "new")
