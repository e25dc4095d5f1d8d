"""The version of the installed package."""

import os
import re

import pyORV3


def version() -> str:
    """Return the version that the installation recorded, or "(not installed)"."""
    folder = os.path.dirname(os.path.abspath(pyORV3.__file__))
    for name in sorted(os.listdir(folder)):
        match = re.fullmatch(r"pyORV3-([0-9.]+)\.dist-info", name)
        if match:
            return match.group(1)
    return "(not installed)"
