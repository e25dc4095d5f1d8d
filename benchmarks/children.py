#!/usr/bin/env python3
"""Work that needs a separate process.

    children.py WORK ARGUMENT...     prints its result as JSON in the last line
"""

import json
import os
import subprocess
import sys
import time

import files
import pyORV3
import sources

CHANNELS = sources.random_channels(4096)


def start(work, *arguments):
    """Start a new process that does the work."""
    command = [sys.executable, __file__, work, *map(str, arguments)]
    return subprocess.Popen(command, stdout=subprocess.PIPE)


def result(process):
    """Wait for a process and return the result of its work."""
    output, _ = process.communicate()
    if process.returncode != 0:
        raise RuntimeError(f"{' '.join(process.args)}: status {process.returncode}")
    return json.loads(output.splitlines()[-1])


def store_named(name):
    return next(kind for kind in sources.stores() if kind.name == name)


def resident_bytes():
    with open("/proc/self/statm", encoding="ascii") as numbers:
        return int(numbers.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")


def load(path):
    """Open a store and read every class."""
    store = sources.QarStore(path)
    store.get(sources.LIVE_TIME)
    store.get(sources.LINE_ENERGY)
    sources.ok(pyORV3.count(store.handle, sources.SPECTRUM, 0))
    return store


def memory(small, path):
    """Return the memory of a loaded file in bytes.

    The small file is loaded first, so that one-time allocations do not count.
    """
    load(small).close()
    before = resident_bytes()
    store = load(path)
    used = resident_bytes() - before
    store.close()
    return used


def save(kind, times, path):
    store = store_named(kind)(path)
    run_save = files.saver(store, sources.LIVE_TIME, 1)
    for _ in range(int(times)):
        run_save()
    store.close()


def create(kind, times, path):
    for number in range(int(times)):
        store_named(kind).create(f"{path}.{times}.{number}", CHANNELS).close()


def save_for(kind, path, seconds, pause=0):
    """Return the saves per second, with a pause in seconds after each.

    Prints a line at the start.
    """
    store = store_named(kind)(path)
    run_save = files.saver(store, sources.LIVE_TIME, 1)
    run_save()
    begin, saves = time.perf_counter(), 0
    print("saving", flush=True)
    while time.perf_counter() - begin < float(seconds):
        run_save()
        saves += 1
        time.sleep(float(pause))
    rate = saves / (time.perf_counter() - begin)
    store.close()
    return rate


WORKS = {work.__name__: work for work in (memory, save, create, save_for)}

if __name__ == "__main__":
    print(json.dumps(WORKS[sys.argv[1]](*sys.argv[2:])))
