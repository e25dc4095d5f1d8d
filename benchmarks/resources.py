"""Measure the bytes and syncs of a save and the memory of an open file."""

import itertools
import os
import re
import shutil
import subprocess
import sys

import children
import files
from harness import Row, count_row, ratio_row
from sources import LINE_ENERGY, LIVE_TIME, QarStore, SqliteStore, random_channels, stores

MEMORY_LIMIT, BYTES_LIMIT = 2.5, 2
SAVE_SYNCS, CREATE_SYNCS = 5, 7
SAVES, SECONDS_A_DAY = 20, 86400


def bytes_written(save):
    """Return the mean number of bytes that a save writes."""

    def written():
        with open("/proc/self/io", encoding="ascii") as counters:
            return int(re.search(r"wchar: (\d+)", counters.read()).group(1))

    save()
    before = written()
    for _ in range(SAVES):
        save()
    return (written() - before) / SAVES


def written(bench):
    """Bytes written by one save"""
    for records in files.RECORDS:
        for name, code, record in [
            (f"one value, {records:,} records elsewhere", LIVE_TIME, 1),
            (f"one value inside a class of {records:,} records", LINE_ENERGY, records // 2),
        ]:
            with files.opened(stores(), bench.sources, records=records) as open_stores:
                own, *others = [
                    (store.name, bytes_written(files.saver(store, code, record)))
                    for store in open_stores
                ]
            for kind, its in others:
                is_limited = kind == SqliteStore.name and records == 300 and code == LIVE_TIME
                limit = BYTES_LIMIT if is_limited else None
                yield ratio_row(name, own[1], "bytes", kind, its, limit)


def spectrum_saver(store, channels):
    """Return a function that saves a new spectrum and live time, as an acquisition does."""
    spectra = itertools.cycle([channels, tuple(content + 1 for content in channels)])
    values = itertools.count(1)

    def save():
        store.set_spectrum(next(spectra))
        store.set(LIVE_TIME, float(next(values)))
        store.save()

    return save


def acquisition(bench):
    """An acquisition that saves 16,384 channels beside a library of 3,000 nuclides"""
    channels = random_channels(16384)
    content = {"channels": len(channels), "records": 3000}
    payload = 4 * len(channels) + 8
    with files.opened(stores(), bench.sources, **content) as open_stores:
        runs = {type(store): spectrum_saver(store, channels) for store in open_stores}
        yield from bench.compare(files.case_of("one save", runs))
        for kind, save in runs.items():
            name = f"written in a day with one save per second, {kind.name}"
            day = SECONDS_A_DAY * bytes_written(save)
            yield ratio_row(name, day, "bytes", "the spectra", SECONDS_A_DAY * payload)


def memory(bench):
    """Memory of a process with a loaded file, minus that with a small file"""
    small = bench.sources.make(QarStore, channels=256, records=1)
    for records, lines in [(300, 5), (20000, 1), (20000, 5)]:
        limit = MEMORY_LIMIT if records == files.RECORDS[-1] else None
        path = bench.sources.make(QarStore, records=records, lines=lines)
        used, size = children.result(children.start("memory", small, path)), os.path.getsize(path)
        name = f"{records:,} records of {lines} line{'s' * (lines > 1)}"
        yield ratio_row(name, used, "bytes", "the file", size, limit)


def count_syncs(work, kind, path):
    """Return the number of syncs when a separate process does the work once."""

    def count(times):
        log = f"{path}.strace"
        command = ["strace", "-f", "-e", "trace=fsync,fdatasync,syncfs", "-o", log]
        command += [sys.executable, children.__file__, work, kind.name, str(times), path]
        subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
        with open(log, encoding="ascii", errors="replace") as lines:
            return sum(1 for line in lines if re.search(r"\b(fsync|fdatasync|syncfs)\(", line))

    return (count(3) - count(1)) / 2  # without the other syncs of the process


def can_trace():
    """Return True if strace is installed and allowed to trace, which containers can forbid."""
    if not shutil.which("strace"):
        return False
    command = ["strace", "-o", os.devnull, sys.executable, "-c", ""]
    return subprocess.run(command, stderr=subprocess.DEVNULL).returncode == 0


def syncs(bench):
    """Syncs to the disk"""
    if not can_trace():
        yield Row("strace is not installed or not allowed to trace: not counted", 0, "syncs")
        return
    for name, work, limit in [
        ("save one value, 300 records elsewhere", "save", SAVE_SYNCS),
        ("create, write 4,096 channels, close", "create", CREATE_SYNCS),
    ]:
        own, its = (
            count_syncs(work, kind, bench.sources.make(kind, records=300))
            for kind in (QarStore, SqliteStore)
        )
        yield count_row(name, own, "syncs", SqliteStore.name, its, limit)
