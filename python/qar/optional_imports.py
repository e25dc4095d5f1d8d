"""What is used where it is installed: imported when it is wanted, and not before."""

import importlib
from typing import Any


def required(module: str, title: str, extra: str) -> Any:
    """The module; where it is missing an ImportError that says how to install it.

    extra: the extra of pyORV3 that has it.
    """
    found = optional(module)
    if found is None:
        raise ImportError(f"{title} is not installed; install it with: pip install pyORV3[{extra}]")
    return found


def optional(module: str) -> Any:
    """The module, None where it is missing."""
    try:
        return importlib.import_module(module)
    except ImportError:
        return None
