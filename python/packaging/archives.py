"""Wheels and source distributions, with the same bytes for the same files."""

import gzip
import io
import os
import tarfile
import zipfile
from pathlib import Path

from project_file import NAME, PROJECT, SOURCES, VERSION

FIRST_DATE = 315532800  # 1980-01-01, the first date in a zip file


def mode_of(path):
    return 0o755 if os.access(path, os.X_OK) else 0o644


def write_wheel(tree, folder, tag):
    """Pack a directory as a wheel into a folder; return the wheel's name."""
    name = f"{NAME}-{VERSION}-{tag}.whl"
    Path(folder).mkdir(parents=True, exist_ok=True)
    paths = {path.relative_to(tree).as_posix(): path for path in Path(tree).rglob("*")}
    with zipfile.ZipFile(str(Path(folder, name)), "w", zipfile.ZIP_DEFLATED) as wheel:
        for entry_name, path in sorted(paths.items()):
            if path.is_file():
                entry = zipfile.ZipInfo(entry_name)  # dated 1980
                entry.compress_type = zipfile.ZIP_DEFLATED
                entry.create_system = 3  # the modes are those of Unix
                entry.external_attr = (0o100000 | mode_of(path)) << 16
                wheel.writestr(entry, path.read_bytes())
    return name


def source_files():
    """Return the paths of the files of a source distribution, relative to the project, sorted."""
    result = set()
    for source in SOURCES:
        path = PROJECT / source
        files = path.rglob("*") if path.is_dir() else [path]
        result |= {file for file in files if file.is_file() and "__pycache__" not in file.parts}
    return sorted(file.relative_to(PROJECT).as_posix() for file in result)


def write_sdist(folder, metadata, bundled):
    """Pack the sources into a folder; return the name of the archive.

    bundled: the paths of files of others that a build needs.
    """
    root = f"{NAME}-{VERSION}"
    contents = {name: PROJECT / name for name in source_files()}
    contents.update((f"bundled/{path.name}", path) for path in bundled)
    date = int(os.environ.get("SOURCE_DATE_EPOCH", FIRST_DATE))
    buffer = io.BytesIO()
    with tarfile.open(fileobj=buffer, mode="w", format=tarfile.PAX_FORMAT) as archive:
        for name, path in contents.items():
            add(archive, f"{root}/{name}", path.read_bytes(), mode_of(path), date)
        add(archive, f"{root}/PKG-INFO", metadata.encode("utf-8"), 0o644, date)
    Path(folder).mkdir(parents=True, exist_ok=True)
    with open(Path(folder, f"{root}.tar.gz"), "wb") as file:
        with gzip.GzipFile("", "wb", fileobj=file, mtime=date) as compressed:
            compressed.write(buffer.getvalue())
    return f"{root}.tar.gz"


def add(archive, name, content, mode, date):
    entry = tarfile.TarInfo(name)
    entry.size, entry.mode, entry.mtime = len(content), mode, date
    archive.addfile(entry, io.BytesIO(content))
