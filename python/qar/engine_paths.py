"""Paths for building an engine."""

import os

import pyORV3


def include_folder() -> str:
    """Return the folder of orv.h, the C header that an engine includes."""
    return os.path.join(os.path.dirname(os.path.abspath(__file__)), "include")


def library_folder() -> str:
    """Return the folder of the embedded library, which engines link except on Windows."""
    beside = os.path.dirname(os.path.abspath(pyORV3.__file__))
    installed = os.path.join(beside, "pyORV3.libs")
    return installed if os.path.isdir(installed) else beside
