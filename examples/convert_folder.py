#!/usr/bin/env python3
"""Convert all spectra in a folder to QAR files, whatever their format.

    convert_folder.py FOLDER DESTINATION

Existing files are not changed, so you can run it again when there are new spectra. A file that
cannot be converted does not stop the others. Data that a QAR file cannot store are printed.
"""

import os
import sys
from typing import Iterator, List, Tuple

from qar import QarError, formats


def convert(path: str, destination: str) -> Iterator[Tuple[str, List[str]]]:
    """Create a QAR file for each spectrum in a file; yield its name and the notes."""
    stem = os.path.splitext(os.path.basename(path))[0]
    target = os.path.join(destination, stem + ".qar")
    for measurement, name in formats.file_names(formats.read(path), target):
        if os.path.exists(name):
            yield name, ["exists already"]
        else:
            yield name, [*measurement.notes, *formats.write(name, measurement)]


def main(folder: str, destination: str) -> int:
    os.makedirs(destination, exist_ok=True)
    failures = 0
    for file_name in sorted(os.listdir(folder)):
        path = os.path.join(folder, file_name)
        if os.path.splitext(file_name)[1].lower() not in formats.SUFFIXES:
            continue
        try:
            for name, notes in convert(path, destination):
                print(f"{file_name} -> {os.path.basename(name)}")
                print("".join(f"    {note}\n" for note in notes), end="")
        except (QarError, formats.FormatError, OSError) as error:
            print(f"{file_name} failed: {error}")
            failures += 1
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]) if len(sys.argv) == 3 else __doc__)
