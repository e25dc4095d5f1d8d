"""Shared code of the tests: a folder for each test, programs, the command line, spectra."""

import contextlib
import io
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest
from collections import namedtuple
from datetime import datetime, timezone

import pyORV3
import qar
from qar.cli import main
from qar.formats import Measurement

PROJECT = pathlib.Path(__file__).resolve().parents[2]
PRODUCT = pathlib.Path(pyORV3.__file__).resolve().parent
SPECTRA = os.environ.get("PYORV3_SPECTRA")

FULL = Measurement(
    counts=(0, 0, 5, 7, 0, 2147483647, 0, 0, 1),
    live_time=629.17,
    real_time=639.92,
    start=datetime(2010, 4, 17, 17, 33, 19, 409000, tzinfo=timezone.utc),
    title='Boden <A> & "B"',
    detector="Ge 40 %",
    instrument="No. 7",
    remarks="first line\nsecond; 300 µm",
    energy=(-0.04727570207732, 0.18742200415464, -2.07732e-09),
    shape=(1.221, 0.001793),
)
"""A measurement that every format stores, except for the shape in channels."""

LIBRARY = """\
nuclide, half_life, energy, photons, key
# one line for each gamma line
Cs-137, 30.05 y, 661.657, 0.8499, 1
Co-60, 5.2711 y, 1173.228, 0.9985
"""

Ran = namedtuple("Ran", "code out err")


def run(*arguments):
    """Run a command; return exit code, output and the lines on standard error."""
    out, err = io.StringIO(), io.StringIO()
    with contextlib.redirect_stdout(out), contextlib.redirect_stderr(err):
        try:
            code = main.main(list(map(str, arguments)))
        except SystemExit as end:
            code = end.code
    return Ran(code, out.getvalue(), err.getvalue().splitlines())


class TestCase(unittest.TestCase):
    """A test in a separate folder, which is its current folder."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(folder.name)
        self.folder = pathlib.Path(folder.name)

    def write(self, name, content):
        data = content if isinstance(content, bytes) else content.encode("utf-8")
        (self.folder / name).write_bytes(data)
        return name

    def read(self, name):
        return (self.folder / name).read_text(encoding="utf-8")

    def names(self):
        return sorted(path.name for path in self.folder.iterdir())

    def run_well(self, *arguments):
        """Return the output of a command that must succeed without messages."""
        ran = run(*arguments)
        self.assertEqual((ran.code, ran.err), (0, []), arguments)
        return ran.out

    def run_program(self, *command, code=0, folder=None, **environment):
        """Return the output, with errors, of a program that must end with an exit code."""
        result = subprocess.run(
            list(map(str, command)),
            cwd=str(folder or self.folder),
            env={**os.environ, "PYTHONIOENCODING": "utf-8", **environment},
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            encoding="utf-8",
            timeout=250,
        )
        self.assertEqual(result.returncode, code, result.stdout)
        return result.stdout

    def python(self, *arguments, **options):
        """Return the output of this Python, as `run_program` does."""
        return self.run_program(sys.executable, "-B", *arguments, **options)


def make_spectrum(path, peak_height=2000, title="sample"):
    """Create a QAR file with a calibration and peaks of Cs-137 and Co-60 on a continuum."""
    counts = [20 + channel % 3 for channel in range(1024)]
    for centre in (440, 782):
        for channel in range(centre - 12, centre + 13):
            counts[channel - 1] += round(peak_height * 2.0 ** -(((channel - centre) / 1.6) ** 2))
    with qar.open(path, "x") as source:
        source.set_spectrum(counts)
        source.set_calibration((3.4961, 1.49582), (9.0, 0.02))
        source.update(
            {"QAR_C_MEASNAME": title, "QAR_D_LIVETIME": 100.0, "QAR_F_DEADTIME": float("inf")}
        )
    return path
