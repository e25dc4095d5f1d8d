"""The metadata directory of an installed package or a wheel."""

import base64
import hashlib
import os
from pathlib import Path

from project_file import NAME, PROJECT, VALUES, VERSION, section
from requirements import external_requirements, wheel_tag

FOLDER = f"{NAME}-{VERSION}.dist-info"


def metadata(external=()):
    """Return the text of METADATA.

    external: the libraries of the system that the compiled files need.
    """
    header = [
        "Metadata-Version: 2.4",
        f"Name: {NAME}",
        f"Version: {VERSION}",
        f"Summary: {VALUES['project', 'description']}",
        f"License-Expression: {VALUES['project', 'license']}",
        *(f"License-File: {name}" for name in license_files()),
        f"Requires-Python: {VALUES['project', 'requires-python']}",
        *(f"Requires-External: {library}" for library in external),
    ]
    for extra, packages in section("project.optional-dependencies").items():
        header.append(f"Provides-Extra: {extra}")
        header += [f'Requires-Dist: {package}; extra == "{extra}"' for package in packages]
    header.append("Description-Content-Type: text/markdown")
    readme = (PROJECT / VALUES["project", "readme"]).read_text(encoding="utf-8")
    return "\n".join(header) + "\n\n" + readme


def license_files():
    """Return the paths of the licences in the project, sorted."""
    patterns = VALUES["project", "license-files"]
    found = {path.relative_to(PROJECT).as_posix() for p in patterns for path in PROJECT.glob(p)}
    return sorted(found)


def entry_points():
    """Return the text of entry_points.txt."""
    commands = section("project.scripts").items()
    return "[console_scripts]\n" + "".join(f"{name} = {value}\n" for name, value in commands)


def write(folder, files, compiled=None):
    """Write the metadata directory of the files installed in a folder.

    files: the paths of the files relative to the folder, which an uninstallation removes.
    compiled: the directory of the compiled files; default: the folder.
    Return the paths of the files in the metadata directory, relative to the folder.
    """
    compiled = compiled or folder
    tag = wheel_tag(compiled)
    wheel = f"Wheel-Version: 1.0\nGenerator: {NAME}\nRoot-Is-Purelib: false\nTag: {tag}\n"
    texts = {
        "METADATA": metadata(external_requirements(compiled)),
        "WHEEL": wheel,
        "entry_points.txt": entry_points(),
        **{f"licenses/{n}": (PROJECT / n).read_text(encoding="utf-8") for n in license_files()},
    }
    for name, text in texts.items():
        path = Path(folder, FOLDER, name)
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(text.encode("utf-8"))
    own = [f"{FOLDER}/{name}" for name in texts]
    lines = [record_line(folder, file) for file in sorted([*files, *own])]
    record = f"{FOLDER}/RECORD"
    Path(folder, record).write_bytes("".join([*lines, f"{record},,\n"]).encode("utf-8"))
    return [*own, record]


def record_line(folder, file):
    content = Path(os.path.normpath(Path(folder, file))).read_bytes()
    digest = base64.urlsafe_b64encode(hashlib.sha256(content).digest()).rstrip(b"=").decode()
    return f"{file},sha256={digest},{len(content)}\n"
