#!/usr/bin/env python3
"""Time the dictionary lookup of getParameter in processes with many loaded libraries.

    lookups.py FILE SECONDS [LIBRARY...]     the work of such a process

The libraries, Python modules or paths, are loaded before pyORV3, as in a script that imports them
first. Prints the seconds of getParameter and count and their ratio as JSON.
"""

import ctypes
import functools
import importlib
import json
import os
import shutil
import statistics
import subprocess
import sys

LIMIT = 3.5
LIBRARIES = 200
PROCESSES = 5  # of each kind, because the address of the code changes its speed


def small_libraries(folder):
    """Build many small shared libraries; return their paths, none without a compiler."""
    compiler = shutil.which(os.environ.get("CC", "cc"))
    if compiler is None:
        return []
    os.makedirs(folder)
    paths = [os.path.join(folder, f"library{number}.so") for number in range(LIBRARIES)]
    command = [compiler, "-shared", "-fPIC", "-x", "c", "-o", paths[0], "-"]
    subprocess.run(command, input=b"int value;", check=True)
    for path in paths[1:]:
        shutil.copyfile(paths[0], path)
    return paths


def environments(folder):
    """Return (name, libraries, environment variables, limit) of each kind of process."""
    folders_searched = [os.path.join(folder, "searched", str(number)) for number in range(3)]
    for searched in folders_searched:
        os.makedirs(searched)
    folders = {"LD_LIBRARY_PATH": os.pathsep.join(folders_searched)}
    science = ["numpy", "scipy.optimize"]
    yield "plain process", [], {}, LIMIT
    if all(importlib.util.find_spec(name.split(".")[0]) for name in science):
        yield "numpy and scipy loaded", science, {}, LIMIT
    yield "three folders in LD_LIBRARY_PATH", [], folders, None
    many = small_libraries(os.path.join(folder, "libraries"))
    if many:
        yield f"{LIBRARIES} libraries loaded", many, {}, None
        yield f"{LIBRARIES} libraries, three folders", many, folders, None


def lookups(bench):
    """A dictionary lookup in processes with other libraries: getParameter and count"""
    from harness import ratio_row
    from sources import QarStore

    path = bench.sources.make(QarStore)
    for name, libraries, variables, limit in environments(bench.folder):
        command = [sys.executable, __file__, path, str(bench.seconds / PROCESSES), *libraries]
        answers = [
            json.loads(subprocess.check_output(command, env={**os.environ, **variables}))
            for _ in range(PROCESSES)
        ]
        own, its, ratio = map(statistics.median, zip(*answers))
        yield ratio_row(f"getParameter, {name}", own, "s", "count", its, limit, ratio)


def measure(path, seconds, *libraries):
    for name in libraries:
        if os.path.sep in name:
            ctypes.CDLL(name)
        else:
            importlib.import_module(name)

    import pyORV3
    from harness import Case, Way, compare

    _, (_, _, code, class_code, _) = pyORV3.getParameterMetaData(0, 0, "QAR_D_LIVETIME")
    status, handle = pyORV3.open(path, 1, 1, "")
    if status != 0:
        raise RuntimeError(f"{path}: {status}")
    count = Way("count", functools.partial(pyORV3.count, handle, class_code, 0))
    case = Case("", functools.partial(pyORV3.getParameter, handle, code, 1, 1), [count])
    (row,) = compare(case, float(seconds))
    return row.own, row.its, row.ratio


if __name__ == "__main__":
    print(json.dumps(measure(*sys.argv[1:])))
