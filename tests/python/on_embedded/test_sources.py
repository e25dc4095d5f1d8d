"""Opening and sharing data sources: wrong handles and files, two processes, killed writers."""

import inspect
import os
import random
import signal
import unittest

import embedded
import pyORV3
from embedded import CREATE, READ, WRITE, code_of

# What each method takes behind the handle.
HANDLE_METHODS = {
    "close": (0,),
    "flush": (),
    "createBlock": (embedded.NUCLIDES, 0),
    "deleteBlock": (embedded.NUCLIDES,),
    "delete": (embedded.NUCLIDES, 1, 0),
    "deleteLevel": (1,),
    "insert": (embedded.NUCLIDES, 1, 0),
    "count": (embedded.NUCLIDES, 0),
    "copyTo": (0, 0),
    "moveRecordsTo": (0, embedded.NUCLIDES, 1, 1),
    "findNuclideByEnergy": (661.7, 1.0, 0),
    "findNuclideByName": ("K-40", 0),
    "getParameter": (0x20000007, 1, 1),
    "setParameter": (0x20000007, 256, 1, 1),
    "getSpectrum": (0, 0),
    "setSpectrum": ((1, 2), 0, 0),
    "control": (1, 0),
    "getStatus": (),
    "copyAnalysisSequenceTo": (0,),
    "reverify": (),
}


class Handles(embedded.TestCase):
    def test_wrong_handles_give_a_status(self):
        closed = self.create()
        self.ok(pyORV3.close(closed, 0))
        alive = self.open()
        for handle in (
            0,
            -1,
            closed,
            2**31 - 1,
            -(2**31),
            *random.Random(1).sample(range(9999, 10**9), 5),
        ):
            for name, arguments in HANDLE_METHODS.items():
                with self.subTest(method=name, handle=handle):
                    self.assertNotEqual(
                        embedded.status_of(getattr(pyORV3, name)(handle, *arguments)), 0
                    )
        self.ok(pyORV3.getStatus(alive))

    def test_the_stub_lists_the_methods_in_their_order(self):
        stub = os.path.join(os.path.dirname(pyORV3.__file__), "pyORV3.pyi")
        with open(stub, encoding="utf-8") as file:
            listed = [line[4:].split("(")[0] for line in file if line.startswith("def ")]
        methods = [name for name, value in vars(pyORV3).items() if inspect.isbuiltin(value)]
        self.assertEqual([name for name in methods if not name.startswith("_")], listed)


class Files(embedded.TestCase):
    def test_what_is_no_data_source_is_refused_and_kept(self):
        self.set(self.create("whole.qar"), "QAR_C_COMMENT", "x" * 255)
        self.reopened(self.open(READ, "whole.qar"), "whole.qar")
        whole = (self.folder / "whole.qar").read_bytes()
        (self.folder / "folder.qar").mkdir()
        contents = {
            "empty.qar": b"",
            "text.qar": b"not a measurement\n" * 100,
            "foreign.qar": whole[:68] + b"else" + whole[72:],  # another application's database
            "half.qar": whole[: len(whole) // 2],
            "short.qar": whole[:50],
        }
        for name, content in contents.items():
            (self.folder / name).write_bytes(content)
        for name in [*contents, "folder.qar", "missing.qar", "x" * 5000, ""]:
            for mode in (READ, READ | WRITE):
                with self.subTest(name=name[:20], mode=mode):
                    status, handle = pyORV3.open(self.path(name), mode, 1, "")
                    self.assertNotEqual(status, 0)
                    self.assertNotEqual(pyORV3.close(handle, 0), 0)
        for name, content in contents.items():
            self.assertEqual((self.folder / name).read_bytes(), content)
        for name, status in [
            ("empty.qar", embedded.NO_DATA_SOURCE),
            ("text.qar", embedded.NO_DATA_SOURCE),
            ("folder.qar", embedded.NO_DATA_SOURCE),
            ("half.qar", embedded.DAMAGED),
            ("missing.qar", embedded.FILE_NOT_FOUND),
        ]:
            with self.subTest(name=name):
                self.fails(status, pyORV3.open(self.path(name), READ, 1, ""))

    def test_creation_never_overwrites(self):
        self.set(self.create(), "QAR_C_COMMENT", "first")
        status, handle = pyORV3.open(self.path(), CREATE, 1, "")
        self.fails(embedded.FILE_EXISTS, status)
        self.addCleanup(pyORV3.close, handle, 0)
        self.assertEqual(self.get(self.open(), "QAR_C_COMMENT"), "first")
        status, handle = pyORV3.open(self.path("no/folder.qar"), CREATE, 1, "")
        self.addCleanup(pyORV3.close, handle, 0)
        self.assertNotEqual(status, 0)
        self.assertEqual(sorted(os.listdir(self.folder)), ["measurement.qar"])

    def test_names_outside_the_code_page_are_file_names_all_the_same(self):
        for name in ("Größe µ.qar", "测量.qar"):
            self.set(self.create(name), "QAR_C_COMMENT", name[0])
            self.assertTrue((self.folder / name).is_file())

    def test_all_handles_of_a_process_see_a_change_at_once(self):
        writer, reader = self.create(), self.open()
        self.set(writer, "QAR_C_COMMENT", "now")
        self.assertEqual(self.get(reader, "QAR_C_COMMENT"), "now")


OPEN_AND_READ = """if True:
    import sys, pyORV3
    status, handle = pyORV3.open(sys.argv[1], int(sys.argv[2]), 1, "")
    print(status & 0xFFFFFFFF, pyORV3.getParameter(handle, int(sys.argv[3]), 1, 1)[1])
"""

WRITE_AND_FLUSH = """if True:
    import sys, pyORV3
    handle = pyORV3.open(sys.argv[1], 3, 1, "")[1]
    for turn in range(1, 100000):
        assert pyORV3.setParameter(handle, int(sys.argv[2]), turn, 1, 1) == 0
        assert pyORV3.setSpectrum(handle, (turn,) * 4096, 0, 0) == 0
        assert pyORV3.flush(handle) == 0
        print(turn, flush=True)
"""


class Processes(embedded.TestCase):
    def open_elsewhere(self, mode):
        """(status, comment) of opening the source in another process."""
        process = embedded.child(OPEN_AND_READ, self.path(), mode, code_of("QAR_C_COMMENT"))
        status, comment = embedded.output_of(process).split(" ", 1)
        return int(status), comment

    def test_one_process_writes_and_all_read(self):
        handle = self.create()
        self.set(handle, "QAR_C_COMMENT", "flushed")
        self.ok(pyORV3.flush(handle))
        self.set(handle, "QAR_C_COMMENT", "not yet")
        self.assertEqual(self.open_elsewhere(READ), (0, "flushed"))
        self.assertEqual(self.open_elsewhere(READ | WRITE)[0], embedded.IN_USE)
        self.ok(pyORV3.close(handle, 0))
        self.assertEqual(self.open_elsewhere(READ | WRITE), (0, "not yet"))

    def test_a_killed_writer_loses_at_most_what_it_had_not_flushed(self):
        handle = self.create()
        self.set(handle, "QAR_L_CHANNELS", 4096)
        self.ok(pyORV3.close(handle, 0))
        turn_code = code_of("QAR_L_LOWERDISC")
        generator = random.Random()
        for _ in range(6):
            process = embedded.child(WRITE_AND_FLUSH, self.path(), turn_code)
            with process:
                for _ in range(generator.randint(1, 20)):
                    flushed = int(process.stdout.readline())
                sum(range(generator.randint(0, 200000)))  # so that each kill hits another moment
                process.send_signal(signal.SIGKILL)
            handle = self.ok(pyORV3.open(self.path(), READ, 1, ""))
            turn = self.get(handle, "QAR_L_LOWERDISC")
            self.assertGreaterEqual(turn, flushed)
            self.assertEqual(self.ok(pyORV3.getSpectrum(handle, 0, 0)), (turn,) * 4096)
            self.ok(pyORV3.reverify(handle))
            self.ok(pyORV3.close(handle, 0))

    def test_a_script_that_ends_without_closing_loses_nothing(self):
        script = """if True:
            import sys, pyORV3
            handle = pyORV3.open(sys.argv[1], 0x400, 1, "")[1]
            assert pyORV3.setParameter(handle, int(sys.argv[2]), "kept", 1, 1) == 0
        """
        embedded.output_of(embedded.child(script, self.path(), code_of("QAR_C_COMMENT")))
        self.assertEqual(self.get(self.open(), "QAR_C_COMMENT"), "kept")


if __name__ == "__main__":
    unittest.main()
