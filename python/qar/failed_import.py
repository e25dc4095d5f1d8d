"""Remedies if pyORV3 cannot be imported."""

import os
from typing import Optional

_LIBRARY = "ORV.dll"


def retry(failure: ImportError) -> None:
    """Import pyORV3 in another way. Raises ImportError with a remedy if that fails too."""
    reason = str(failure)
    if any(f"version `{name}_" in reason for name in ("GLIBC", "GLIBCXX", "CXXABI")):
        raise ImportError(
            f"{reason}; this build of pyORV3 is for newer systems: install its portable wheel, or"
            " build it on this system with pip install ."
        ) from None
    if not reason.startswith("DLL load failed"):
        raise failure
    _retry_on_windows()


def _retry_on_windows() -> None:
    """Import pyORV3 with the folder of its library, as Python 3.8 and later do not search PATH."""
    folder = _folder_of_library()
    if folder is not None and hasattr(os, "add_dll_directory"):
        os.add_dll_directory(folder)
    try:
        import pyORV3  # noqa: F401
    except ImportError as failure:
        reason = str(failure).rstrip(".")
        raise ImportError(
            f"{reason}; pyORV3 needs a 32-bit Python, and {_LIBRARY} of the measurement suite in a"
            " folder of PATH"
        ) from None


def _folder_of_library() -> Optional[str]:
    """Return the first folder of PATH that contains the library, except relative folders."""
    for folder in os.environ.get("PATH", "").split(os.pathsep):
        if os.path.isabs(folder) and os.path.isfile(os.path.join(folder, _LIBRARY)):
            return folder
    return None
