#!/usr/bin/env python3
"""Makes QAR files of all spectra in a folder, whatever their format.

    convert_folder.py FOLDER DESTINATION

Files that are there already are left alone, so that it can be run again when more have come. A
file that fails stops nobody; what was lost on the way is told.
"""

import os
import sys
from typing import Iterator, List, Tuple

from qar import QarError, formats
from qar.transfer import conversion


def convert(path: str, destination: str) -> Iterator[Tuple[str, List[str]]]:
    """One QAR file for each spectrum in the file; gives their names and what is to be told."""
    measurements = formats.read(path)
    stem = os.path.splitext(os.path.basename(path))[0]
    target = os.path.join(destination, stem + ".qar")
    for measurement, name in conversion.output_names(measurements, target):
        if os.path.exists(name):
            yield name, ["is there already"]
        else:
            yield name, [*measurement.notes, *conversion.store(measurement, name)]


def main(folder: str, destination: str) -> int:
    os.makedirs(destination, exist_ok=True)
    failures = 0
    for file_name in sorted(os.listdir(folder)):
        path = os.path.join(folder, file_name)
        if formats.by_suffix(path) is None:
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
