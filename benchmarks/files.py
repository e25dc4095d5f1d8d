"""The times that a user waits: saving, opening, creating, many files, growth with the file."""

import contextlib
import functools
import itertools
import os

import pyORV3
from harness import Case, Way
from sources import LINE_ENERGY, LIVE_TIME, READ, QarStore, SqliteStore, ok, random_channels, stores

MEBIBYTE = 1 << 20
RECORDS = 10, 300, 20000
SAVE_LIMIT, INSERT_LIMIT, OPEN_LIMIT, CREATE_LIMIT, READ_LIMIT = 3, 1, 4, 1.5, 1.2
FILES = 1000


def case_of(name, runs, limit=None, **others):
    """Return a case with one run for each kind of store; the limit applies to sqlite3."""
    own, *ways = [
        Way(kind.name, run, limit if kind is SqliteStore else None) for kind, run in runs.items()
    ]
    return Case(name, own.run, ways, **others)


@contextlib.contextmanager
def opened(kinds, sources, **content):
    """Open a store of each kind on files with the same content."""
    open_stores = [kind(sources.make(kind, **content)) for kind in kinds]
    try:
        yield open_stores
    finally:
        for store in open_stores:
            store.close()


def saver(store, code, record):
    """Return a function that saves a different value in each call."""
    values = itertools.count(1)

    def save():
        store.set(code, float(next(values)), record)
        store.save()

    return save


def saving_case(name, open_stores, code=LIVE_TIME, record=1, limit=None):
    runs = {type(store): saver(store, code, record) for store in open_stores}
    return case_of(f"save one value, {name}", runs, limit)


def saving_beside_wal(bench):
    """The other journal mode of SQLite, which is as durable but uses several files."""
    with opened([QarStore, SqliteStore], bench.sources, records=300) as open_stores:
        own, other = open_stores
        other.connection.execute("PRAGMA journal_mode=WAL")
        way = Way("sqlite3, WAL", saver(other, LIVE_TIME, 1))
        name = "save one value, 300 records elsewhere"
        yield from bench.compare(Case(name, saver(own, LIVE_TIME, 1), [way]))


def inserting(bench):
    """Insert a record before all others, so that the number of every record changes."""
    name = "insert before 20,000 records and save"
    with opened([QarStore, SqliteStore, SqliteStore], bench.sources, records=20000) as open_stores:

        def way(name, store, insert):
            def run():
                insert()
                store.save()

            return Way(name, run, INSERT_LIMIT)

        own, updated, copied = open_stores
        ways = [
            way("sqlite3, UPDATE", updated, updated.insert_front),
            way("sqlite3, copied rows", copied, copied.insert_front_by_copy),
        ]
        own_way = way(own.name, own, own.insert_front)
        yield from bench.compare(Case(name, own_way.run, ways))


def saving(bench):
    """One changed value, an inserted record: changed and saved"""
    for records in RECORDS:
        with opened(stores(), bench.sources, records=records) as open_stores:
            yield from bench.compare(
                saving_case(f"{records:,} records elsewhere", open_stores, limit=SAVE_LIMIT)
            )
            yield from bench.compare(
                saving_case(
                    f"inside a class of {records:,} records",
                    open_stores,
                    LINE_ENERGY,
                    records // 2,
                    SAVE_LIMIT,
                )
            )
    with opened(stores(), bench.sources, block=32 * MEBIBYTE) as open_stores:
        yield from bench.compare(
            saving_case("beside a block of 32 MiB", open_stores, limit=SAVE_LIMIT)
        )
    yield from saving_beside_wal(bench)
    yield from inserting(bench)


def read_value(kind, path):
    store = kind(path, READ)
    value = store.get(LIVE_TIME)
    store.close()
    return value


def read_measurement(kind, path):
    store = kind(path, READ)
    value = store.get(LIVE_TIME), store.get_spectrum()
    store.close()
    return value


def opening_case(name, read, sources, limit=None, **content):
    runs = {kind: functools.partial(read, kind, sources.make(kind, **content)) for kind in stores()}
    return case_of(name, runs, limit, same_result=True)


def opening(bench):
    """Open, read, close; create, write, close"""
    for records in RECORDS:
        limit = OPEN_LIMIT if records == RECORDS[-1] else None
        name = f"open, one value, close, {records:,} records"
        yield from bench.compare(
            opening_case(name, read_value, bench.sources, limit, records=records)
        )
    yield from bench.compare(
        opening_case(
            "open, spectrum of 4,096 channels and value, close",
            read_measurement,
            bench.sources,
            READ_LIMIT,
            channels=4096,
        )
    )
    yield from creating(bench)
    yield from second_opening(bench)


def creating(bench):
    channels = random_channels(4096)

    def way(name, create, limit=None):
        def run():
            path = bench.sources.new_path()
            create(path, channels).close()
            return path

        return Way(name, run, limit, after=os.remove)

    own, *others = [
        way(kind.name, kind.create, CREATE_LIMIT if kind is SqliteStore else None)
        for kind in stores()
    ]
    others.append(way("sqlite3, one table", SqliteStore.create_one_table, CREATE_LIMIT))
    name = "create, write 4,096 channels, close"
    yield from bench.compare(Case(name, own.run, others, after=own.after))


def second_opening(bench):
    """Open a file that the process has already opened and loaded."""
    path = bench.sources.make(QarStore, records=RECORDS[-1])
    first = QarStore(path, READ)
    first.get(LINE_ENERGY)
    plain = bench.sources.make(SqliteStore, records=RECORDS[-1])
    runs = {
        kind: functools.partial(read_value, kind, name)
        for kind, name in ((QarStore, path), (SqliteStore, plain))
    }
    yield from bench.compare(case_of("open again, one value, close, 20,000 records", runs))
    yield from bench.compare(
        Case("reverify, 20,000 records", lambda: ok(pyORV3.reverify(first.handle)), [])
    )
    first.close()


def hold_open(kind, paths):
    """Open all files at the same time and read one value of each."""
    open_stores = [kind(path, READ) for path in paths]
    values = [store.get(LIVE_TIME) for store in open_stores]
    for store in open_stores:
        store.close()
    return values


def read_values(kind, paths):
    return [read_value(kind, path) for path in paths]


def many(bench):
    """A thousand files of 4,096 channels"""
    paths = {kind: [bench.sources.make(kind) for _ in range(FILES)] for kind in stores()}
    for name, work in [
        (f"open, one value, close: {FILES:,} files", read_values),
        (f"{FILES:,} open files, one value of each", hold_open),
    ]:
        runs = {kind: functools.partial(work, kind, paths[kind]) for kind in paths}
        yield from bench.compare(case_of(name, runs, same_result=True))
    for path in itertools.chain.from_iterable(paths.values()):
        os.remove(path)


GROWING = [("records", number) for number in (10, 300, 3000, 20000, 60000)] + [
    ("channels", number) for number in (256, 4096, 16384, 65535)
]


def growth(bench):
    """How saving one value and opening for one value grow with the file"""
    for kind, number in GROWING:
        content = {kind: number}
        size = os.path.getsize(bench.sources.make(QarStore, **content))
        name = f"{number:,} {kind}"
        with opened(stores(), bench.sources, **content) as open_stores:
            yield from bench.compare(saving_case(name, open_stores), size)
        yield from bench.compare(
            opening_case(f"open, one value, close, {name}", read_value, bench.sources, **content),
            size,
        )
