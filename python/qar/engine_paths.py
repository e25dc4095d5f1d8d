"""Paths that the build of an engine needs."""

import os

import pyORV3


def include_folder() -> str:
    """The folder of orv.h, the C header that an engine includes."""
    return os.path.join(os.path.dirname(os.path.abspath(__file__)), "include")


def library_folder() -> str:
    """The folder of the embedded library, which an engine links elsewhere than on Windows."""
    beside = os.path.dirname(os.path.abspath(pyORV3.__file__))
    installed = os.path.join(beside, "pyORV3.libs")
    return installed if os.path.isdir(installed) else beside
