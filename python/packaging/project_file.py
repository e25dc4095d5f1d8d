"""The values of pyproject.toml."""

import ast
import re
from pathlib import Path

PROJECT = Path(__file__).resolve().parent.parent.parent


def read_values(text):
    """Return the values of a pyproject.toml as {(section, key): string or list of strings}.

    Values of other types are left out. This replaces a library, so that builds work offline.
    """
    values, section = {}, ""
    pattern = r'^\[+([\w.-]+)\]+$|^([\w-]+) = ("[^"\n]*"|\[.*?\](?= *(?:#.*)?$))'
    for match in re.finditer(pattern, text, re.MULTILINE | re.DOTALL):
        if match.group(1):
            section = match.group(1)
        else:
            values[section, match.group(2)] = ast.literal_eval(match.group(3))
    return values


VALUES = read_values((PROJECT / "pyproject.toml").read_text(encoding="utf-8"))


def section(name):
    """Return the keys and values of a section."""
    return {key: value for (name_of, key), value in VALUES.items() if name_of == name}


NAME = VALUES["project", "name"]
VERSION = VALUES["project", "version"]
TOOLS = VALUES["tool.pyORV3", "tools"]
BUILD_PACKAGES = VALUES["tool.pyORV3", "build-packages"]
SDIST_PACKAGES = VALUES["tool.pyORV3", "sdist-packages"]
SOURCES = VALUES["tool.pyORV3", "sources"]
