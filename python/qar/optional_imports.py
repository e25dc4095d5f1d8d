"""Optional dependencies, imported on first use."""

import importlib
import os
import sys
from typing import Any


def required(module: str) -> Any:
    """Return a module. Raises ImportError with a command that installs it on this machine."""
    result = optional(module)
    if result is None:
        package = module.partition(".")[0]
        raise ImportError(f"{package} is not installed; install it with: {_command(package)}")
    return result


def optional(module: str) -> Any:
    """Return a module, or None if it is not installed."""
    try:
        return importlib.import_module(module)
    except ImportError:
        return None


def _command(package: str) -> str:
    """Return a command that installs a package for the running interpreter."""
    is_system_python = sys.executable.startswith("/usr/bin/")
    if is_system_python and os.path.exists("/etc/debian_version"):
        is_root = os.geteuid() == 0
        return f"{'' if is_root else 'sudo '}apt-get install python3-{package}"
    return f'"{sys.executable}" -m pip install {package}'
