"""Check the imports of the package qar against the order in docs/architecture.md.

A module may import modules of its own row of that table and of the rows above; no imports form a
cycle. Imports inside functions and under TYPE_CHECKING count as well. Prints each violation and
exits with 1 if there are any.
"""

import ast
import re
import sys
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
PACKAGE = PROJECT / "python/qar"
PAGE = PROJECT / "docs/architecture.md"


def read_rows():
    """Return the row of each module or folder of the package."""
    rows = {}
    for number, names in re.findall(r"^\| (\d+) \| (`[^|]*) \|", PAGE.read_text(), re.MULTILINE):
        rows.update((name.strip("/"), int(number)) for name in re.findall(r"`([^`]+)`", names))
    return rows


def module_names():
    """Return the path of each module below the package, by its dotted name.

    A file NAME.py.in is the template of the module NAME.
    """
    paths = {path.relative_to(PACKAGE): path for path in PACKAGE.rglob("*.py")}
    paths.update((p.relative_to(PACKAGE).with_suffix(""), p) for p in PACKAGE.rglob("*.py.in"))
    return {".".join(name.with_suffix("").parts): path for name, path in paths.items()}


def resolve(parts, modules):
    """Return the module that an import of these parts loads, or None if it is not one of qar."""
    while parts:
        for name in (".".join(parts), ".".join([*parts, "__init__"])):
            if name in modules:
                return name
        parts = parts[:-1]
    return "__init__"


def imports_of(name, path, modules):
    folder = name.split(".")[:-1]
    for node in ast.walk(ast.parse(path.read_text(encoding="utf-8"))):
        if isinstance(node, ast.ImportFrom) and node.level > 0:
            base = folder[: len(folder) - node.level + 1] + (node.module or "").split(".")
            base = [part for part in base if part]
            for alias in node.names:
                yield node.lineno, resolve([*base, alias.name], modules)
        elif isinstance(node, ast.ImportFrom) and (node.module or "").split(".")[0] == "qar":
            yield node.lineno, resolve((node.module or "").split(".")[1:], modules)


def find_cycle(imports):
    """Return the modules of a cycle of imports, or an empty list."""
    finished, path = set(), []

    def visit(module):
        if module in path:
            return path[path.index(module) :] + [module]
        if module in finished:
            return []
        path.append(module)
        for imported in sorted(imports[module]):
            cycle = visit(imported)
            if cycle:
                return cycle
        finished.add(path.pop())
        return []

    return next((cycle for cycle in map(visit, sorted(imports)) if cycle), [])


def main():
    rows, modules = read_rows(), module_names()
    imports, messages = {}, []
    for name, path in sorted(modules.items()):
        first = name.split(".")[0]
        if first not in rows:
            messages.append(
                f"{path.relative_to(PROJECT)}: '{first}' is not in the table of {PAGE.name}"
            )
            continue
        imports[name] = set()
        for line, imported in imports_of(name, path, modules):
            if imported != name and imported != ".".join([*name.split(".")[:-1], "__init__"]):
                imports[name].add(imported)
            above = imported.split(".")[0]
            if rows.get(above, 0) > rows[first]:
                messages.append(
                    f"{path.relative_to(PROJECT)}:{line}: '{first}' (row {rows[first]}) must not"
                    f" import '{above}' (row {rows[above]})"
                )
    cycle = [] if messages else find_cycle(imports)
    if cycle:
        messages.append("imports form a cycle: " + " -> ".join(cycle))
    print("\n".join(messages), end="\n" if messages else "")
    return 1 if messages else 0


if __name__ == "__main__":
    sys.exit(main())
