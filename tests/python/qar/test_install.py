"""The wheel in a fresh virtual environment of this Python, used from another folder."""

import os
import re
import sys
import unittest.mock
import zipfile

import support

SCRIPT = '''
import os, sys
import pyORV3, qar
with qar.open("first.qar", "x") as source:
    source.set_spectrum([5] * 200 + [50, 200, 400, 200, 50] + [5] * 300)
    source.set_calibration((0, 1), (4, 0.001))
    print(len(source.analyse().peaks), "peak")
print(os.path.dirname(pyORV3.__file__).startswith(sys.prefix), qar.library_folder()[-11:])
print(os.path.exists(os.path.join(qar.include_folder(), "orv.h")))
'''


class Wheel(support.TestCase):
    def setUp(self):
        super().setUp()
        patch = unittest.mock.patch.dict(os.environ)
        patch.start()
        self.addCleanup(patch.stop)
        for name in ("LD_LIBRARY_PATH", "PYTHONPATH"):  # nothing of the build tree may help
            os.environ.pop(name, None)
        backend = support.PROJECT / "python" / "packaging" / "wheel_backend.py"
        build = support.PRODUCT.parent
        made = self.run_program(sys.executable, "-B", backend, "wheel", build, self.folder)
        self.wheel = self.folder / os.path.basename(made.strip())

    def files(self, environment):
        """The files of an environment but those that Python compiled of pip's own."""
        return {
            str(path.relative_to(environment))
            for path in environment.rglob("*")
            if "__pycache__" not in path.parts or "qar" in path.parts
        }

    def test_holds_what_it_should_and_nothing_else_at_the_top(self):
        version = re.search(
            r"pyORV3 VERSION ([0-9.]+)", (support.PROJECT / "CMakeLists.txt").read_text()
        ).group(1)
        self.assertRegex(self.wheel.name, rf"^pyORV3-{version}-cp36-abi3-linux_\w+\.whl$")
        with zipfile.ZipFile(str(self.wheel)) as wheel:
            names = wheel.namelist()
        information = f"pyORV3-{version}.dist-info"
        top = {"pyORV3.abi3.so", "pyORV3-stubs", "pyORV3.libs", "qar", information}
        self.assertEqual({name.split("/")[0] for name in names}, top)
        libraries = {name for name in names if name.startswith("pyORV3.libs/")}
        wanted = {f"pyORV3.libs/{name}.so" for name in ("libORV", "pqar", "peak_search")}
        self.assertEqual(libraries, wanted)

    def test_is_installed_works_and_goes_without_a_trace(self):
        environment = self.folder / "environment"
        self.run_program(sys.executable, "-m", "venv", environment)
        before = self.files(environment)
        python, pip = environment / "bin" / "python", ("-m", "pip", "--disable-pip-version-check")
        self.run_program(python, *pip, "install", "--no-index", self.wheel)
        (self.folder / "script.py").write_text(SCRIPT, encoding="utf-8")
        elsewhere = self.folder / "elsewhere"
        elsewhere.mkdir()
        said = self.run_program(python, "../script.py", folder=elsewhere)
        self.assertEqual(said, "1 peak\nTrue pyORV3.libs\nTrue\n")
        said = self.run_program(environment / "bin" / "qar", "status", "0xEBE88105")
        self.assertIn("inUse", said)
        if sys.version_info >= (3, 8):
            script = "import importlib.metadata as m; print(m.version('pyORV3'))"
            version = self.run_program(python, "-c", script).strip()
            self.assertIn(f"-{version}-", self.wheel.name)
        self.run_program(python, *pip, "uninstall", "-y", "pyORV3")
        self.assertEqual(self.files(environment) - before, set())
