"""The directories of an installation by `cmake --install`, and its metadata and command.

    install.py default-prefix     # print the prefix for packages that the interpreter finds
    install.py packages PREFIX    # print the package directory, relative to the prefix
    install.py finish PREFIX      # write the rest; read the installed paths from standard input
    install.py uninstall PREFIX   # delete the files that the metadata lists

`finish` prints the paths of the files that it wrote. The environment variable DESTDIR is observed.
PYORV3_NATIVE_PRODUCT is a product directory for this machine, if the installed one is for another.
"""

import os
import sys
import sysconfig
from pathlib import Path

import dist_info
import terminal_files
from project_file import section

COMMAND = """#!{python}
import sys

from {module} import {function}

sys.exit({function}())
"""

# The directories of a system that an uninstallation leaves even if they are empty.
SYSTEM_PREFIXES = ("/usr", "/usr/local")
SYSTEM_DIRECTORIES = ("bin", "share", "share/man")


def default_prefix():
    """Return the prefix of the interpreter; on Debian the one for local administrators."""
    has_local = "posix_local" in sysconfig.get_scheme_names() and sys.prefix == "/usr"
    return "/usr/local" if has_local else sys.prefix


def package_directory(prefix):
    """Return the package directory of the interpreter's layout, relative to a prefix.

    Debian has layouts of its own for /usr and /usr/local.
    """
    schemes = {"/usr": ("deb_system", "/usr"), "/usr/local": ("posix_local", "/usr")}
    scheme, base = schemes.get(prefix, ("posix_prefix", prefix))
    if scheme not in sysconfig.get_scheme_names():
        scheme, base = "posix_prefix", prefix
    path = sysconfig.get_path("platlib", scheme, vars={"base": base, "platbase": base})
    return os.path.relpath(path, prefix)


def finish(prefix, installed):
    """Write commands, manual page, completions and metadata; return the paths, without DESTDIR.

    installed: the paths of the files of the package, without DESTDIR.
    """
    root = os.environ.get("DESTDIR", "")
    packages = os.path.join(prefix, package_directory(prefix))
    written = []
    for name, function in section("project.scripts").items():
        written.append(os.path.join(prefix, "bin", name))
        write_command(Path(root + written[-1]), function)
    if not list(Path(root + packages).glob("*.pyd")):
        native = os.environ.get("PYORV3_NATIVE_PRODUCT", root + packages)
        names = terminal_files.write(root + prefix, native)
        written += [os.path.join(prefix, name) for name in names]
    files = [os.path.relpath(path, packages) for path in [*installed, *written]]
    own = dist_info.write(root + packages, files)
    return [*written, *(os.path.join(packages, file) for file in own)]


def uninstall(prefix):
    """Delete the files of RECORD, their compiled forms, and directories that are then empty."""
    root = Path(os.environ.get("DESTDIR", "") + prefix)
    packages = root / package_directory(prefix)
    record = packages / dist_info.FOLDER / "RECORD"
    if not record.exists():
        sys.exit(f"{record}: file not found; expected the layout of {sys.executable}")
    lines = record.read_text(encoding="utf-8").splitlines()
    files = [Path(os.path.normpath(packages / line.rsplit(",", 2)[0])) for line in lines]
    for file in files:
        compiled = (
            file.parent.glob(f"__pycache__/{file.stem}.*.pyc") if file.suffix == ".py" else ()
        )
        for path in [file, *compiled]:
            if path.exists():
                path.unlink()
    folders = {
        folder for file in files for folder in file.parents if root in (folder / "_").parents
    }
    folders |= {folder / "__pycache__" for folder in folders}
    if prefix in SYSTEM_PREFIXES:
        folders -= {packages, *packages.parents, *(root / name for name in SYSTEM_DIRECTORIES)}
    for folder in sorted(folders, reverse=True):  # directories after their own
        if folder.is_dir() and not any(folder.iterdir()):
            folder.rmdir()


def write_command(path, function):
    module, _, name = function.partition(":")
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(COMMAND.format(python=sys.executable, module=module, function=name))
    path.chmod(0o755)


if __name__ == "__main__":
    arguments = sys.argv[1:]
    if arguments == ["default-prefix"]:
        print(default_prefix())
    elif len(arguments) == 2 and arguments[0] == "packages":
        print(package_directory(arguments[1]))
    elif len(arguments) == 2 and arguments[0] == "finish":
        print("\n".join(finish(arguments[1], sys.stdin.read().splitlines())))
    elif len(arguments) == 2 and arguments[0] == "uninstall":
        uninstall(arguments[1])
    else:
        sys.exit(__doc__)
