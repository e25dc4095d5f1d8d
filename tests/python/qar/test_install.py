"""The wheel in a new virtual environment."""

import os
import re
import unittest.mock
import zipfile

import support

SCRIPT = """
import os, sys
import pyORV3, qar
with qar.open("first.qar", "x") as source:
    source.set_spectrum([5] * 200 + [50, 200, 400, 200, 50] + [5] * 300)
    source.set_calibration((0, 1), (4, 0.001))
    print(len(source.analyse().peaks), "peak")
print(os.path.dirname(pyORV3.__file__).startswith(sys.prefix), qar.library_folder()[-11:])
print(os.path.exists(os.path.join(qar.include_folder(), "orv.h")))
if sys.version_info >= (3, 8):
    import importlib.metadata
    assert importlib.metadata.version("pyORV3") == sys.argv[1]
"""


class TestWheel(support.TestCase):
    def files(self, environment):
        """Return the content of an environment, without the compiled files of pip.

        Directories below share/ are left out: pip does not remove them.
        """
        paths = [path.relative_to(environment) for path in environment.rglob("*")]
        return {
            str(path)
            for path in paths
            if ("__pycache__" not in path.parts or "qar" in path.parts)
            and not (path.parts[0] == "share" and (environment / path).is_dir())
        }

    # Without any path to the build tree.
    @unittest.mock.patch.dict(os.environ, LD_LIBRARY_PATH="", PYTHONPATH="")
    def test_wheel_is_installed_used_and_removed_completely(self):
        backend = support.PROJECT / "python" / "packaging" / "wheel_backend.py"
        wheel = self.python(backend, "wheel", support.PRODUCT.parent, self.folder).strip()
        version = re.search(
            r"pyORV3 VERSION ([0-9.]+)", (support.PROJECT / "CMakeLists.txt").read_text()
        ).group(1)
        self.assertRegex(os.path.basename(wheel), rf"^pyORV3-{version}-cp36-abi3-linux_\w+\.whl$")
        with zipfile.ZipFile(wheel) as archive:
            names = archive.namelist()
            self.assertTrue(all(entry.external_attr >> 16 & 0o444 for entry in archive.infolist()))
        folders = [f"pyORV3-{version}.{kind}" for kind in ("dist-info", "data")]
        top = {"pyORV3.abi3.so", "pyORV3-stubs", "pyORV3.libs", "qar", *folders}
        self.assertEqual({name.split("/")[0] for name in names}, top)
        libraries = {name for name in names if name.startswith("pyORV3.libs/")}
        self.assertEqual(
            libraries, {f"pyORV3.libs/{n}.so" for n in ("libORV", "pqar", "peak_search")}
        )

        environment = self.folder / "environment"
        self.python("-m", "venv", environment)
        before = self.files(environment)
        python, pip = environment / "bin" / "python", ("-m", "pip", "--disable-pip-version-check")
        self.run_program(python, *pip, "install", "--no-index", wheel)
        self.write("script.py", SCRIPT)
        os.mkdir("elsewhere")
        output = self.run_program(python, "../script.py", version, folder="elsewhere")
        self.assertEqual(output, "1 peak\nTrue pyORV3.libs\nTrue\n")
        program = environment / "bin" / "qar"
        self.assertIn("inUse", self.run_program(program, "status", "0xEBE88105"))
        self.assertEqual(self.run_program(program, "--version"), f"qar {version}\n")
        manual = (environment / "share/man/man1/qar.1").read_text(encoding="utf-8")
        self.assertIn(f'"qar {version}"', manual)
        self.assertTrue((environment / "share/bash-completion/completions/qar").exists())
        self.write("elsewhere/pickle.py", "open('imported', 'x')\nraise ImportError")
        self.run_program(program, "analyse", ".", "--jobs", "2", folder="elsewhere")
        self.assertEqual(sorted(os.listdir("elsewhere")), ["first.qar", "pickle.py"])
        self.run_program(python, *pip, "uninstall", "-y", "pyORV3")
        self.assertEqual(self.files(environment) - before, set())
