"""Time threads and processes in parallel, and the analysis engine on real spectra."""

import functools
import json
import os
import re
import statistics
import threading

import children
import files
import pyORV3
from harness import Case, Row, Way, ratio_row
from sources import CHANNEL_COUNT, LIVE_TIME, PEAKS, QarStore, SqliteStore, code_of, ok, stores

SAVES = 500


def save_many(kind, path):
    """Open a file, save many times and close it, all in one thread as sqlite3 requires."""
    store = kind(path)
    save = files.saver(store, LIVE_TIME, 1)
    for _ in range(SAVES):
        save()
    store.close()


def in_turn(kind, paths):
    for path in paths:
        save_many(kind, path)


def in_threads(kind, paths):
    workers = [threading.Thread(target=save_many, args=(kind, path)) for path in paths]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()


def two_threads(bench):
    own, its = ([bench.sources.make(kind) for _ in "12"] for kind in (QarStore, SqliteStore))
    case = Case(
        f"2 threads save {SAVES} times each, in different files",
        lambda: in_threads(QarStore, own),
        [
            Way("one thread, same work", lambda: in_turn(QarStore, own)),
            Way("sqlite3, 2 threads", lambda: in_threads(SqliteStore, its)),
        ],
    )
    yield from bench.compare(case)


def save_rates(kind, paths, seconds):
    """Return the saves per second of processes that run in parallel on different files."""
    running = [children.start("save_for", kind.name, path, seconds) for path in paths]
    return [children.result(process) for process in running]


def two_processes(bench):
    for kind in stores():
        paths = [bench.sources.make(kind, records=300) for _ in "12"]
        ratios, rates = [], []
        for _ in range(3):
            alone = save_rates(kind, paths[:1], bench.seconds / 2)
            together = save_rates(kind, paths, bench.seconds / 2)
            rates.append((statistics.mean(together), alone[0]))
            ratios.append(statistics.mean(together) / alone[0])
        own, its = (statistics.median(numbers) for numbers in zip(*rates))
        name = f"saves per second of {kind.name}: each of 2 processes"
        yield ratio_row(name, own, "/s", "one process", its, None, statistics.median(ratios))


def reading_beside_a_writer(bench):
    """Open and read one value while another process saves the same file every 5 ms."""
    paths = {kind: bench.sources.make(kind, records=300) for kind in (QarStore, SqliteStore)}
    seconds = bench.seconds * 3 + 1
    writers = [
        children.start("save_for", kind.name, path, seconds, 0.005) for kind, path in paths.items()
    ]
    for writer in writers:
        writer.stdout.readline()  # the writer has started
    runs = {kind: functools.partial(files.read_value, kind, path) for kind, path in paths.items()}
    name = "open, one value, close, file being saved"
    yield from bench.compare(files.case_of(name, runs))
    for writer in writers:
        children.result(writer)


def together(bench):
    """Two threads, two processes"""
    yield from two_threads(bench)
    yield from two_processes(bench)
    yield from reading_beside_a_writer(bench)


def read_counts(path):
    """Return the channel contents of a spectrum in IAEA ASCII form or in two columns."""
    with open(path, encoding="latin-1") as file:
        text = file.read()
    if path.endswith(".spe"):
        _, last, data = re.search(r"\$DATA:\s+(\d+)\s+(\d+)\s+([\d\s]+)", text).groups()
        return tuple(map(int, data.split()))[: int(last) + 1]
    return tuple(int(line.split()[1]) for line in text.splitlines() if line.strip())


def measured_source(bench, channels, case):
    store = QarStore(bench.sources.make(QarStore))
    store.set(CHANNEL_COUNT, len(channels))
    store.set_spectrum(channels)
    for name, field in ("QAR_D_ENERGYCAL", "energy"), ("QAR_D_SHAPECAL", "shape"):
        for entry, coefficient in enumerate(case[field], start=1):
            store.set(code_of(name), coefficient, 1, entry)
    store.set(code_of("QAR_L_FIRSTCHAN"), case["first_channel"])
    store.set(code_of("QAR_L_LASTCHAN"), case["last_channel"])
    return store


def engine(bench):
    """The peak search on real spectra"""
    folder = os.environ.get("PYORV3_SPECTRA")
    if not folder:
        yield Row("PYORV3_SPECTRA is not set to a folder: not measured", 0)
        return
    with open(os.path.join(folder, "spectra.json"), encoding="utf-8") as file:
        cases = json.load(file)
    for name, case in sorted(cases.items()):
        if not name.endswith((".spe", ".txt")):
            continue
        channels = read_counts(os.path.join(folder, name))
        store = measured_source(bench, channels, case)
        store.save()

        def search(store=store):
            ok(pyORV3.executeNativeEngine("peak_search", "searchPeaks", store.handle, 1))

        search()
        peaks = ok(pyORV3.count(store.handle, PEAKS, 0))
        title = f"{name.split('.')[0]}: {len(channels):,} channels, {peaks} peaks"
        yield from bench.compare(Case(title, search, []))
        store.close()
