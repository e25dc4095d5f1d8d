"""The wheel in a new virtual environment, installation by CMake, and the build backend."""

import os
import re
import sys
import unittest.mock
import zipfile

import qar
import support

PACKAGING = support.PROJECT / "python" / "packaging"
BACKEND = PACKAGING / "wheel_backend.py"
BUILD = support.PRODUCT.parent

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

    def pack(self, folder="."):
        return self.python(BACKEND, "wheel", BUILD, self.folder / folder).strip()

    # Without any path to the build tree.
    @unittest.mock.patch.dict(os.environ, LD_LIBRARY_PATH="", PYTHONPATH="")
    def test_wheel_is_installed_used_and_removed_completely(self):
        wheel = self.pack()
        version = qar.__version__
        tag = r"cp36-abi3-manylinux_2_\d+_\w+"
        self.assertRegex(os.path.basename(wheel), rf"^pyORV3-{version}-{tag}\.whl$")
        with zipfile.ZipFile(wheel) as archive:
            names = archive.namelist()
        folders = [f"pyORV3-{version}.{kind}" for kind in ("dist-info", "data")]
        top = {"pyORV3.abi3.so", "pyORV3-stubs", "pyORV3.libs", "qar", *folders}
        self.assertEqual({name.split("/")[0] for name in names}, top)
        libraries = {name for name in names if name.startswith("pyORV3.libs/")}
        self.assertEqual(
            libraries, {f"pyORV3.libs/{n}.so" for n in ("libORV", "pqar", "peak_search")}
        )
        licenses = {os.path.basename(name) for name in names if "/licenses/" in name}
        libraries = "Eigen SQLite libstdc++ mingw-w64 nlohmann-json uPlot xxHash".split()
        self.assertEqual(licenses, {"LICENSE", *(f"{library}.txt" for library in libraries)})

        environment = self.folder / "environment"
        self.python("-m", "venv", environment)
        before = self.files(environment)
        python, pip = environment / "bin" / "python", ("-m", "pip", "--disable-pip-version-check")
        pip_version = self.run_program(python, "-m", "pip", "--version").split()[1]
        if tuple(map(int, pip_version.split(".")[:2])) < (20, 3):
            self.skipTest(f"pip {pip_version} does not know the tag; 20.3 does")
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

    def test_wheel_of_a_build_is_the_same_under_another_umask(self):
        first = self.pack("first")
        self.addCleanup(os.umask, os.umask(0o077))
        second = self.pack("second")
        with open(first, "rb") as one, open(second, "rb") as other:
            self.assertEqual(one.read(), other.read())


class TestImport(support.TestCase):
    def test_system_that_is_too_old_is_named_in_one_sentence(self):
        for version in ("GLIBC_2.38", "GLIBCXX_3.4.30", "CXXABI_1.3.15"):
            failure = f"/lib/libc.so.6: version `{version}' not found (required by pyORV3.abi3.so)"
            self.write("pyORV3.py", f"raise ImportError({failure!r})")
            path = os.pathsep.join([str(self.folder), str(support.PRODUCT)])
            output = self.python("-c", "import qar", code=1, PYTHONPATH=path)
            self.assertNotIn("During handling", output)
            self.assertEqual(
                output.splitlines()[-1],
                f"ImportError: {failure}; this build of pyORV3 is for newer systems: install its"
                " portable wheel, or build it on this system with pip install .",
            )

    @unittest.skipIf(sys.version_info < (3, 7), "its concurrent.futures imports _socket")
    def test_modules_that_small_pythons_lack_are_not_imported_with_the_command(self):
        script = "import sys; sys.modules.update(_socket=None, pyexpat=None); import qar.cli.main"
        self.assertEqual(self.python("-c", script), "")

    @unittest.skipIf(sys.version_info < (3, 7), "its concurrent.futures imports _socket")
    def test_command_names_the_module_that_a_small_python_lacks(self):
        script = "import sys; sys.modules[sys.argv.pop(1)] = None; from qar.cli import main"
        script += "; sys.exit(main.main())"
        for module, command in (("_socket", "view"), ("pyexpat", "show")):
            sample = str(support.PROJECT / "examples/sample.n42")
            output = self.python("-c", script, module, command, sample, code=2)
            self.assertRegex(output, r"^qar: .*needs .*, which this Python lacks.*\n$")


class TestInstallation(support.TestCase):
    def setUp(self):
        super().setUp()
        cache = (BUILD / "CMakeCache.txt").read_text(encoding="utf-8")
        interpreter = re.search("^PYTHON:FILEPATH=(.*)$", cache, re.MULTILINE).group(1)
        self.install = (interpreter, "-B", PACKAGING / "install.py")
        self.root = {"DESTDIR": str(self.folder / "root")}

    def test_system_prefix_has_the_layout_of_the_interpreter_and_is_removed_completely(self):
        os.makedirs("root/opt")
        for prefix, kept in (("/usr", ["bin", "share/man"]), ("/opt/qar", [])):
            layout = self.run_program(*self.install, "packages", prefix).strip()
            packages = self.folder / f"root{prefix}" / layout
            self.assertIn(packages.name, ("site-packages", "dist-packages"))
            for folder in [*kept, layout] if kept else []:
                os.makedirs(f"root{prefix}/{folder}")
            before = set(self.folder.rglob("*"))
            self.run_program("cmake", "--install", BUILD, "--prefix", prefix, **self.root)
            script = "import qar, pyORV3; print(qar.__version__, pyORV3.__file__)"
            output = self.run_program(self.install[0], "-c", script, PYTHONPATH=str(packages))
            self.assertEqual(output.split(), [qar.__version__, f"{packages}/pyORV3.abi3.so"])
            program = self.folder / f"root{prefix}" / "bin" / "qar"
            version = self.run_program(program, "--version", PYTHONPATH=str(packages))
            self.assertEqual(version, f"qar {qar.__version__}\n")

            self.run_program(*self.install, "uninstall", prefix, **self.root)
            self.assertEqual(set(self.folder.rglob("*")), before)

    def test_uninstallation_of_nothing_is_reported(self):
        output = self.run_program(*self.install, "uninstall", "/usr", code=1, **self.root)
        self.assertRegex(output, r"^\S+RECORD: file not found; expected the layout of \S+\n$")


class TestBackend(support.TestCase):
    def test_version_is_that_of_the_project_file(self):
        text = (support.PROJECT / "pyproject.toml").read_text(encoding="utf-8")
        self.assertEqual(re.findall('^version = "(.*)"$', text, re.MULTILINE), [qar.__version__])
        self.assertEqual(support.run("--version").out, f"qar {qar.__version__}\n")

    def build_wheel(self, **environment):
        script = f"import wheel_backend; wheel_backend.build_wheel({str(self.folder)!r})"
        return self.python("-c", script, code=1, PYTHONPATH=str(PACKAGING), **environment)

    def test_missing_tool_ends_with_the_packages_to_install(self):
        self.assertRegex(
            self.build_wheel(PATH=str(self.folder)),
            "missing: cmake, ninja, readelf, g\\+\\+; .*sudo apt-get install g\\+\\+ cmake ninja",
        )
        self.assertIn("missing: other-c++;", self.build_wheel(CXX="other-c++"))
        option = "-DCMAKE_CXX_COMPILER=/other-c++"  # not searched for
        output = self.build_wheel(CXX="missing-c++", CMAKE_ARGS=option)
        self.assertRegex(output, "(?s)/other-c\\+\\+.*sudo apt-get install g")
        if not (support.PROJECT / "bundled").exists():
            output = self.python(BACKEND, "sdist", self.folder, code=1, PATH=str(self.folder))
            self.assertRegex(output, "missing: cmake, npm; .* install cmake npm\n$")

    def test_failing_compiler_ends_with_its_output_and_the_packages(self):
        self.write("compiler", "#!/bin/sh\necho the compiler is broken >&2\nexit 1\n")
        os.chmod("compiler", 0o755)
        output = self.build_wheel(CXX=str(self.folder / "compiler"))
        self.assertRegex(output, "(?s)the compiler is broken.*sudo apt-get install")
        self.assertNotIn("Traceback", output)

    def test_options_come_from_the_environment_and_from_the_settings(self):
        script = "import wheel_backend; print(wheel_backend.cmake_options({'cmake-args': '-DB=\"x y\"'}))"
        output = self.python("-c", script, PYTHONPATH=str(PACKAGING), CMAKE_ARGS="-DA=1 -DC=2")
        self.assertEqual(output, "['-DA=1', '-DC=2', '-DB=x y']\n")

    def test_source_distribution_has_every_versioned_file(self):
        if not (support.PROJECT / ".git").exists():
            self.skipTest("the project is not a clone")
        archive = self.python(BACKEND, "sdist", self.folder).strip()
        listed = self.run_program("tar", "-tzf", archive).splitlines()
        names = {name.split("/", 1)[1] for name in listed}
        versioned = set(self.run_program("git", "ls-files", folder=support.PROJECT).splitlines())
        self.assertEqual(versioned - names, {".editorconfig", ".gitignore"})
