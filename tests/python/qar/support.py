"""What the tests of the package qar share: where things are, a folder for each test, processes."""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

import pyORV3

PROJECT = pathlib.Path(__file__).resolve().parents[3]
PRODUCT = pathlib.Path(pyORV3.__file__).resolve().parent


class TestCase(unittest.TestCase):
    """A test in a folder of its own."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def run_program(self, *command, folder=None, **environment):
        """What a program printed that had to end well, its errors included."""
        result = subprocess.run(
            list(map(str, command)),
            cwd=str(folder or self.folder),
            env={**os.environ, "PYTHONIOENCODING": "utf-8", **environment},
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            encoding="utf-8",
            timeout=250,
        )
        self.assertEqual(result.returncode, 0, result.stdout)
        return result.stdout

    def run_script(self, text, *arguments, folder=None):
        script = self.folder / "script.py"
        script.write_text(text, encoding="utf-8")
        return self.run_program(sys.executable, "-B", script, *arguments, folder=folder)
