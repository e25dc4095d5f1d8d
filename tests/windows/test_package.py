"""The package qar on Windows; each script runs in a copy of the interpreter without libraries."""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest

LIBRARIES = os.path.dirname(sys.executable)


class TestPackage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        for name in os.listdir(LIBRARIES):
            if name.startswith("python") and name.endswith((".exe", ".dll")):
                shutil.copy(os.path.join(LIBRARIES, name), cls.folder.name)

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def run_script(self, script, path=LIBRARIES, directory=None):
        """Return the status and the output of a script, with a value of PATH."""
        modules = os.pathsep.join(map(os.path.abspath, sys.path))
        process = subprocess.run(
            [os.path.join(self.folder.name, "python.exe"), "-B", "-c", script],
            input=b"", stdout=subprocess.PIPE, stderr=subprocess.STDOUT, cwd=directory,
            env={**os.environ, "PATH": path, "PYTHONPATH": modules, "PYTHONHOME": LIBRARIES},
        )  # fmt: skip
        return process.returncode, process.stdout

    def test_library_is_found_in_absolute_folders_of_path_only(self):
        found = os.pathsep.join(["", "missing", LIBRARIES])
        self.assertEqual(self.run_script("import qar", found), (0, b""))
        status, output = self.run_script("import qar", os.pathsep.join(["", "."]), LIBRARIES)
        self.assertEqual(status, 1)
        self.assertRegex(
            output.splitlines()[-1],
            rb"^ImportError: DLL load failed while importing pyORV3: [^;]*[^.]; pyORV3 needs a"
            rb" 32-bit Python, and ORV\.dll of the measurement suite in a folder of PATH$",
        )

    def test_names_of_files_are_printed_in_the_code_page(self):
        script = (
            "from qar import formats; from qar.cli import main;"
            "formats.write('Ma\xdf.csv', formats.Measurement((5, 6), 1.5, 2.0, energy=(0.5, 0.25)));"
            "print(main.main(['convert', 'Ma\xdf.csv', 'Gr\xf6\xdfe \u2192.spe']))"
        )
        with tempfile.TemporaryDirectory() as directory:
            output = self.run_script(script, directory=directory)[1]
            self.assertEqual(output, "Größe \\u2192.spe\r\n0\r\n".encode("cp1252"))
            self.assertEqual(set(os.listdir(directory)), {"Maß.csv", "Größe →.spe"})

    def test_scratch_files_are_in_the_temporary_folder(self):
        script = "import os, tempfile; from qar import scratch; folder = scratch.scratch_folder()"
        script += "; print(os.path.dirname(folder.name) == tempfile.gettempdir())"
        self.assertEqual(self.run_script(script), (0, b"True\r\n"))


if __name__ == "__main__":
    unittest.main()
