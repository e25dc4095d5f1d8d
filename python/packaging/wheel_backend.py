"""Build the wheel, as the build backend of pip, and write the metadata for `cmake --install`.

    wheel_backend.py dist-info FOLDER TAG    # reads the installed files from standard input
    wheel_backend.py wheel BUILD FOLDER      # packs the files that `cmake --install BUILD` installs
"""

import base64
import hashlib
import os
import re
import shutil
import subprocess
import sys
import sysconfig
import tempfile
import zipfile
from pathlib import Path

PROJECT = Path(__file__).resolve().parent.parent.parent
NAME = "pyORV3"
EXTRAS = {"analysis": ("matplotlib", "numpy", "pandas"), "batch": ("dask", "distributed", "tqdm")}
TOOLS = ("cmake", "ninja", "g++")
TERMINAL_FILES = {  # below the prefix of an installation, with the command that prints each
    "share/bash-completion/completions/qar": ("completion", "bash"),
    "share/fish/vendor_completions.d/qar.fish": ("completion", "fish"),
    "share/man/man1/qar.1": ("manual",),
    "share/zsh/site-functions/_qar": ("completion", "zsh"),
}


def version():
    project = (PROJECT / "CMakeLists.txt").read_text(encoding="utf-8")
    return re.search(r"project\(pyORV3 VERSION ([0-9.]+)", project).group(1)


def needed_packages():
    scripts = (PROJECT / "scripts" / "common.sh").read_text(encoding="utf-8")
    names = re.search(r"^build_packages=\(([^)]*)\)", scripts, re.MULTILINE).group(1)
    return " ".join(names.split())


def metadata():
    extras = [
        f'Provides-Extra: {extra}\nRequires-Dist: {package}; extra == "{extra}"'
        for extra, packages in EXTRAS.items()
        for package in packages
    ]
    header = [
        "Metadata-Version: 2.1",
        f"Name: {NAME}",
        f"Version: {version()}",
        "Summary: Work on QAR files, the spectrum data files of a measurement suite",
        "License: MIT",
        "Requires-Python: >=3.6",
        "Requires-External: libsqlite3 (elsewhere than on Windows)",
        "Requires-External: libstdc++ of GCC 12 or later (elsewhere than on Windows)",
        *dict.fromkeys("\n".join(extras).splitlines()),
        "Description-Content-Type: text/markdown",
    ]
    readme = (PROJECT / "README.md").read_text(encoding="utf-8")
    return "\n".join(header) + "\n\n" + readme


def write_dist_info(folder, files, tag):
    """Write the metadata of the files installed in a folder; return the metadata folder's name.

    files: the relative paths of the files, which an uninstallation removes.
    """
    name = f"{NAME}-{version()}.dist-info"
    place = Path(folder, name)
    place.mkdir(exist_ok=True)
    wheel = f"Wheel-Version: 1.0\nGenerator: {NAME}\nRoot-Is-Purelib: false\nTag: {tag}\n"
    texts = {
        "METADATA": metadata(),
        "WHEEL": wheel,
        "entry_points.txt": "[console_scripts]\nqar = qar.__main__:main\n",
        "LICENSE": (PROJECT / "LICENSE").read_text(encoding="utf-8"),
    }
    for file, text in texts.items():
        (place / file).write_bytes(text.encode("utf-8"))
    listed = [*files, *(f"{name}/{file}" for file in texts)]
    lines = [record_line(folder, file) for file in sorted(listed)] + [f"{name}/RECORD,,"]
    (place / "RECORD").write_text("\n".join(lines) + "\n", encoding="utf-8")
    return name


def record_line(folder, file):
    content = Path(folder, file).read_bytes()
    digest = base64.urlsafe_b64encode(hashlib.sha256(content).digest()).rstrip(b"=").decode()
    return f"{file},sha256={digest},{len(content)}"


def platform_tag():
    """Return the tag of a wheel for this platform and every CPython from 3.6 on."""
    platform = re.sub("[-.]", "_", sysconfig.get_platform())
    return f"cp36-abi3-{platform}"


def pack(build, wheel_directory):
    """Pack the files that `cmake --install` of a build installs; return the wheel's name."""
    with tempfile.TemporaryDirectory() as tree:
        run("cmake", "--install", build, "--prefix", tree, "--strip")
        information = next(Path(tree).glob("*.dist-info/WHEEL"))
        tag = re.search("Tag: (.*)", information.read_text(encoding="utf-8")).group(1)
        if "win32" not in tag:
            add_terminal_files(Path(tree), tag)
        name = f"{NAME}-{version()}-{tag}.whl"
        Path(wheel_directory).mkdir(parents=True, exist_ok=True)
        with zipfile.ZipFile(Path(wheel_directory, name), "w", zipfile.ZIP_DEFLATED) as wheel:
            for path in sorted(Path(tree).rglob("*")):
                if path.is_file():
                    entry = zipfile.ZipInfo(path.relative_to(tree).as_posix())  # dated 1980
                    entry.compress_type = zipfile.ZIP_DEFLATED
                    entry.external_attr = (path.stat().st_mode & 0xFFFF) << 16
                    wheel.writestr(entry, path.read_bytes())
    return name


def add_terminal_files(tree, tag):
    """Add the manual page and the completions, which the installed program itself prints."""
    data = tree / f"{NAME}-{version()}.data" / "data"
    environment = {**os.environ, "PYTHONPATH": str(tree), "PYTHONIOENCODING": "utf-8"}
    for name, command in TERMINAL_FILES.items():
        text = run(sys.executable, "-B", "-m", "qar", *command, env=environment)
        (data / name).parent.mkdir(parents=True)
        (data / name).write_bytes(text.encode("utf-8"))
    files = (path.relative_to(tree) for path in tree.rglob("*") if path.is_file())
    write_dist_info(tree, [f.as_posix() for f in files if ".dist-info" not in f.parts[0]], tag)


def run(*command, **options):
    """Run a command and return its output; exit with the output if it fails."""
    result = subprocess.run(
        list(map(str, command)),
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        encoding="utf-8",
        **options,
    )
    if result.returncode != 0:
        raise SystemExit(
            f"{result.stdout}\n{' '.join(map(str, command))}: failed; the build needs these"
            f" packages of Debian or equivalent ones: {needed_packages()}"
        )
    return result.stdout


def compile_into(build):
    missing = [tool for tool in TOOLS if shutil.which(tool) is None]
    if missing:
        raise SystemExit(
            f"{NAME} is compiled when it is installed from its sources; missing:"
            f" {', '.join(missing)}. On Debian and Ubuntu: sudo apt-get install {needed_packages()}"
        )
    headers = Path(sysconfig.get_paths()["include"], "Python.h")
    python = sys.executable if headers.exists() else "/usr/bin/python3"
    options = ("-DCMAKE_BUILD_TYPE=Release", "-DPYORV3_BUILD_TESTS=OFF", f"-DPYTHON={python}")
    run("cmake", "-G", "Ninja", "-S", PROJECT, "-B", build, *options)
    run("cmake", "--build", build)


# ---- What pip calls ------------------------------------------------------------------------------


def get_requires_for_build_wheel(config_settings=None):
    return []


def prepare_metadata_for_build_wheel(metadata_directory, config_settings=None):
    return write_dist_info(metadata_directory, [], platform_tag())


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    """Compile in the folder BUILD_DIR, or in a temporary one if it is not set, and pack."""
    if os.environ.get("BUILD_DIR"):
        build = Path(os.environ["BUILD_DIR"], "wheel")
        compile_into(build)
        return pack(build, wheel_directory)
    with tempfile.TemporaryDirectory() as build:
        compile_into(build)
        return pack(build, wheel_directory)


if __name__ == "__main__":
    if len(sys.argv) == 4 and sys.argv[1] == "dist-info":
        write_dist_info(sys.argv[2], sys.stdin.read().splitlines(), sys.argv[3])
    elif len(sys.argv) == 4 and sys.argv[1] == "wheel":
        print(Path(sys.argv[3], pack(sys.argv[2], sys.argv[3])))
    else:
        sys.exit(__doc__)
