"""The manual page and the completions for shells, which the installed program itself prints."""

import os
import subprocess
import sys
from pathlib import Path

# Each file below the prefix of an installation, with the command that prints it.
FILES = {
    "share/bash-completion/completions/qar": ("completion", "bash"),
    "share/fish/vendor_completions.d/qar.fish": ("completion", "fish"),
    "share/man/man1/qar.1": ("manual",),
    "share/zsh/site-functions/_qar": ("completion", "zsh"),
}


def write(prefix, packages):
    """Write the files below a prefix; return their paths, relative to the prefix.

    packages: a directory with the package for this machine, for Python's path.
    """
    environment = {**os.environ, "PYTHONPATH": str(packages), "PYTHONIOENCODING": "utf-8"}
    for name, arguments in FILES.items():
        command = [sys.executable, "-B", "-m", "qar", *arguments]
        result = subprocess.run(command, stdout=subprocess.PIPE, check=True, env=environment)
        path = Path(prefix, name)
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(result.stdout)
    return list(FILES)
