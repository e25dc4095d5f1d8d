"""Build wheels and source distributions, as the build backend of pip.

    wheel_backend.py wheel BUILD FOLDER    # pack the files that `cmake --install BUILD` installs
    wheel_backend.py sdist FOLDER          # pack the sources

Options for CMake come from the variable CMAKE_ARGS and from the setting "cmake-args" (pip
install --config-settings cmake-args=-DNAME=VALUE). CC and CXX name the compilers. BUILD_DIR is the
directory of the build; default: a temporary one.
"""

import contextlib
import os
import shlex
import shutil
import subprocess
import sys
import sysconfig
import tempfile
from pathlib import Path

import archives
import dist_info
from project_file import BUILD_PACKAGES, NAME, PROJECT, SDIST_PACKAGES, TOOLS, VERSION
from requirements import wheel_tag


def pack(build, folder):
    """Pack the files that `cmake --install` of a build installs; return the wheel's name."""
    with tempfile.TemporaryDirectory() as tree:
        run("cmake", "--install", build, "--prefix", tree, "--strip")
        packages = next(Path(tree).rglob(dist_info.FOLDER)).parent
        if Path(tree, "share").exists():
            data = packages / f"{NAME}-{VERSION}.data" / "data"
            data.mkdir(parents=True)
            shutil.move(str(Path(tree, "share")), str(data))
        files = (path for path in packages.rglob("*") if path.is_file())
        names = (path.relative_to(packages).as_posix() for path in files)
        # Without the command, which pip writes.
        dist_info.write(packages, [n for n in names if not n.startswith(dist_info.FOLDER)])
        return archives.write_wheel(packages, folder, wheel_tag(packages))


def run(*command, packages=BUILD_PACKAGES):
    """Run a command; exit with its output and the packages that it needs if it fails."""
    result = subprocess.run(
        list(map(str, command)),
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        encoding="utf-8",
        errors="replace",
    )
    if result.returncode != 0:
        name = " ".join(map(str, command))
        raise SystemExit(f"{result.stdout}\n{name}: failed; {installation_advice(packages)}")


def installation_advice(packages):
    return f"on Debian and Ubuntu, sudo apt-get install {' '.join(packages)}"


def check_tools(tools, packages):
    """Exit with the names of the packages if a program is missing."""
    missing = [tool for tool in tools if shutil.which(tool) is None]
    if missing:
        raise SystemExit(
            f"a build of {NAME} needs programs that are missing: {', '.join(missing)};"
            f" {installation_advice(packages)}"
        )


def compilers(options):
    """Return the compiler that CMake will run, as a list; empty if the options select it."""
    if any(option.startswith(("-DCMAKE_CXX_COMPILER=", "-DCMAKE_TOOLCHAIN")) for option in options):
        return []
    return shlex.split(os.environ.get("CXX", "g++"))[:1]


def cmake_options(settings):
    """Return the options for CMake from the environment and from pip's settings."""
    values = (settings or {}).get("cmake-args", [])
    texts = [os.environ.get("CMAKE_ARGS", ""), *([values] if isinstance(values, str) else values)]
    return [option for text in texts for option in shlex.split(text)]


def compile_into(build, settings, *options):
    options = (*options, *cmake_options(settings))
    check_tools([*TOOLS, *compilers(options)], BUILD_PACKAGES)
    headers = Path(sysconfig.get_paths()["include"], "Python.h")
    python = sys.executable if headers.exists() else "/usr/bin/python3"
    options = ("-DCMAKE_BUILD_TYPE=Release", "-DPYORV3_BUILD_TESTS=OFF", *options)
    os.environ["PYTHON"] = python
    run("cmake", "-G", "Ninja", "-S", PROJECT, "-B", build, *options)
    run("cmake", "--build", build)


@contextlib.contextmanager
def build_directory(name):
    if os.environ.get("BUILD_DIR"):
        yield Path(os.environ["BUILD_DIR"], name)
    else:
        with tempfile.TemporaryDirectory() as build:
            yield build


# ---- What pip calls ------------------------------------------------------------------------------


def get_requires_for_build_wheel(config_settings=None):
    return []


def get_requires_for_build_sdist(config_settings=None):
    return []


def get_requires_for_build_editable(config_settings=None):
    return []


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    with build_directory("wheel") as build:
        compile_into(build, config_settings)
        return pack(build, wheel_directory)


def build_sdist(sdist_directory, config_settings=None):
    with tempfile.TemporaryDirectory() as fetched:
        bundled = PROJECT / "bundled"  # in a source distribution
        if not bundled.exists():
            bundled = Path(fetched)
            script = PROJECT / "cmake" / "charting_library.cmake"
            check_tools(SDIST_PACKAGES, SDIST_PACKAGES)
            run("cmake", "-D", f"uplot_dir={fetched}", "-P", script, packages=SDIST_PACKAGES)
        return archives.write_sdist(
            sdist_directory, dist_info.metadata(), sorted(bundled.glob("*.tgz"))
        )


def build_editable(wheel_directory, config_settings=None, metadata_directory=None):
    """Build in build/editable, with links to the Python files of the sources, and refer to it."""
    build = Path(os.environ.get("BUILD_DIR", PROJECT / "build"), "editable").resolve()
    compile_into(build, config_settings, "-DPYORV3_EDITABLE=ON")
    product = build / "product"
    with tempfile.TemporaryDirectory() as tree:
        path = Path(tree, f"{NAME}.pth")
        path.write_text(f"{product}\n", encoding="utf-8")
        dist_info.write(tree, [path.name], product)
        return archives.write_wheel(tree, wheel_directory, wheel_tag(product))


if __name__ == "__main__":
    if len(sys.argv) == 4 and sys.argv[1] == "wheel":
        print(Path(sys.argv[3], pack(sys.argv[2], sys.argv[3])))
    elif len(sys.argv) == 3 and sys.argv[1] == "sdist":
        print(Path(sys.argv[2], build_sdist(sys.argv[2])))
    else:
        sys.exit(__doc__)
