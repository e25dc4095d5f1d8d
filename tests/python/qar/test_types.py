"""The types of the stubs, of qar and of the examples, checked with mypy."""

import os
import re
import shutil
import unittest

import support
from qar import optional_imports

mypy = optional_imports.optional("mypy.api")

RIGHT = """\
import pathlib
import pyORV3
import qar
from qar.constants import QAR_D_LIVETIME
status, handle = pyORV3.open("sample.qar", 0x1, 1, "")
status, channels = pyORV3.getSpectrum(handle, 0, 0)
total: int = sum(channels)
source = qar.open(pathlib.Path("sample.qar"), "r+")
live_time: float = source["QAR_D_LIVETIME"] + source[QAR_D_LIVETIME, 1, 1]
source.set_spectrum(range(5))
area: float = source.analyse(QAR_D_PEAKLIMIT=4.0).peaks[0].area
energy: float = source.calibration().energy_at(5)
text: str = qar.status.describe(status).text
"""
WRONG = """\
pyORV3.open("sample.qar", 0x1, 1)
pyORV3.open(pathlib.Path("sample.qar"), 0x1, 1, "")
pyORV3.open(sourceName="sample.qar", accessMode=1, typeSelector=1, auxiliaryText="")
handle = pyORV3.open("sample.qar", 0x1, 1, "")
pyORV3.setSpectrum(1, [1, 2], 0, 0)
pyORV3.setSpectrum(1, (1.5,), 0, 0)
pyORV3.getParameter(1, "QAR_D_LIVETIME", 1, 1)
pyORV3.setParameter(1, 5, None, 1, 1)
pyORV3.getspectrum(1, 0, 0)
closed: str = pyORV3.close(1, 0)
pyORV3.findNuclideByEnergy(1, "661.7", 1.0, 0)
qar.open(5)
qar.open("sample.qar", mode=None)
source.set_spectrum(5)
source.set_spectrum("contents")[0]
source.live_time
source["QAR_D_LIVETIME", 1, 1, 1]
source.calibrate([661.7, 1327])
source.calibration().energy_at("5")
peaks: list = source.results().peak
count: str = source.record_count("QAR_CLS_PEAK")
source.set_nuclide_library([("Cs-137", 9.5e8)])
qar.Nuclide("Cs-137", "30 a")
qar.status.describe("-320234115")
"""


@unittest.skipUnless(mypy, "mypy is not installed")
class TestTypes(support.TestCase):
    def test_each_wrong_use_is_an_error_and_nothing_else(self):
        product, project = support.PRODUCT, support.PROJECT
        for folder in (product / "qar", product / "pyORV3-stubs", project / "examples"):
            shutil.copytree(str(folder), str(self.folder / folder.name))
        self.write("uses.py", RIGHT + WRONG)
        configuration = ("--config-file", project / "pyproject.toml")
        options = ("--strict", "--cache-dir", os.devnull, *configuration)
        checked = ("qar", "pyORV3-stubs", "examples", "uses.py")
        output = self.python("-m", "mypy", *options, *checked, code=1, MYPYPATH=str(self.folder))
        self.assertRegex(output, r"Found \d+ error")
        errors = re.findall(r"(\w+)\.pyi?:(\d+): error", output)
        self.assertEqual({file for file, _ in errors}, {"uses"}, output)
        first = RIGHT.count("\n") + 1
        wrong = [str(line) for line in range(first, first + WRONG.count("\n"))]
        self.assertEqual(sorted({line for _, line in errors}, key=int), wrong, output)

    def test_stubs_agree_with_the_module(self):
        stub = support.PRODUCT / "pyORV3-stubs" / "__init__.pyi"
        shutil.copy(str(stub), "pyORV3.pyi")  # the path that stubtest expects
        self.python("-m", "mypy.stubtest", "pyORV3", MYPYPATH=str(self.folder))
