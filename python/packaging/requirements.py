"""The requirements of compiled files: the machine, the libraries and their symbol versions."""

import re
import subprocess
from pathlib import Path

# The machine in the tag of a wheel for each number in the header of an ELF file.
MACHINES = {3: "i686", 40: "armv7l", 62: "x86_64", 183: "aarch64", 243: "riscv64"}


def compiled_files(folder):
    """Return the compiled files under a directory."""
    return [path for path in sorted(Path(folder).rglob("*")) if path.suffix in (".so", ".pyd")]


def machine(file):
    """Return the name of the machine that an ELF file was compiled for."""
    number = int.from_bytes(file.read_bytes()[18:20], "little")
    if number not in MACHINES:
        raise SystemExit(f"{file}: machine {number} of the ELF header has no wheel tag")
    return MACHINES[number]


def required_versions(files):
    """Return the newest required symbol version of each library, as {"GLIBC": (2, 31)}."""
    newest = {}
    for file in files:
        table = read_elf("--version-info", file)
        needed = table[table.find("Version needs section") :] if "Version needs" in table else ""
        for name, version in re.findall(r"Name: ([A-Z]+)_([0-9.]+)", needed):
            newest[name] = max(newest.get(name, ()), tuple(map(int, version.split("."))))
    return newest


def required_libraries(files):
    """Return the names of the libraries that files are linked with, without their own."""
    own = {file.name for file in files}
    names = re.findall(r"\(NEEDED\).*\[(.*)\]", "".join(read_elf("--dynamic", f) for f in files))
    return sorted(set(names) - own)


def wheel_tag(folder):
    """Return the tag of a wheel with the compiled files under a directory.

    On Linux it has the version of the C library that the files need.
    """
    files = compiled_files(folder)
    if any(file.suffix == ".pyd" for file in files):
        return "cp36-abi3-win32"
    glibc = required_versions(files).get("GLIBC")
    system = f"manylinux_{glibc[0]}_{glibc[1]}" if glibc else "linux"
    return f"cp36-abi3-{system}_{machine(files[0])}"


def external_requirements(folder):
    """Return the system libraries that the compiled files under a directory need, for METADATA."""
    files = [file for file in compiled_files(folder) if file.suffix == ".so"]
    if not files:
        return []
    versions = required_versions(files)
    minimums = {"libc.so.6": "GLIBC", "libstdc++.so.6": "GLIBCXX"}
    result = []
    for library in required_libraries(files):
        version = versions.get(minimums.get(library, ""))
        result.append(f"{library} (>={'.'.join(map(str, version))})" if version else library)
    return result


def read_elf(option, file):
    return subprocess.run(
        ["readelf", "--wide", option, str(file)],
        stdout=subprocess.PIPE,
        encoding="utf-8",
        check=True,
    ).stdout
