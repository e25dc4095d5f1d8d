"""The same measurement in three stores: pyORV3, Python's sqlite3 and HDF5.

sqlite3 uses plain tables with the same durability. A store opens a file, saves one changed value
durably and reads values and the spectrum. The value is the live time or, in the nuclide library,
the energy of a nuclide's first line; each record of the library has a name, a half-life and the
energies and yields of its lines.
"""

import array
import functools
import os
import random
import sqlite3
import struct

import pyORV3

try:
    import h5py
    import numpy
except ImportError:
    h5py = None

READ, WRITE, CREATE = 1, 2, 0x400
NUCLIDES, SPECTRUM, PEAKS, GEOMETRY = 0x2004, 0x2005, 0x2006, 0x4005
LARGEST_WRITE = 32768


def ok(answer):
    """Return the result of a call of pyORV3. Raises if its status is not 0."""
    status, result = answer if isinstance(answer, tuple) else (answer, None)
    if status != 0:
        raise RuntimeError(f"status 0x{status & 0xFFFFFFFF:08X}")
    return result


def code_of(name):
    return ok(pyORV3.getParameterMetaData(0, 0, name))[2]


CHANNEL_COUNT, LIVE_TIME = code_of("QAR_L_CHANNELS"), code_of("QAR_D_LIVETIME")
MEASUREMENT_NAME = code_of("QAR_C_MEASNAME")
NUCLIDE_NAME, HALF_LIFE = code_of("QAR_C_NUCLNAME"), code_of("QAR_D_HALFLIFE")
LINE_ENERGY, LINE_YIELD = code_of("QAR_D_LINEENERGY"), code_of("QAR_D_LINEYIELD")


def random_channels(count):
    generator = random.Random(count)
    return tuple(generator.randrange(100000) for _ in range(count))


def nuclide(record, line_count):
    """Return name, half-life in s, line energies in keV and yields in photons per decay."""
    energies = tuple(30 + 0.1 * record + 200 * line for line in range(line_count))
    yields = tuple(0.9 / number for number in range(1, line_count + 1))
    return f"Nuclide-{record}", 60.0 * record, energies, yields


class QarStore:
    """A data source through pyORV3."""

    name = "pyORV3"

    def __init__(self, path, mode=READ | WRITE):
        self.handle = ok(pyORV3.open(path, mode, 1, ""))

    def close(self):
        ok(pyORV3.close(self.handle, 0))

    def get(self, code, record=1):
        return ok(pyORV3.getParameter(self.handle, code, record, 1))

    def set(self, code, value, record=1, entry=1):
        ok(pyORV3.setParameter(self.handle, code, value, record, entry))

    def get_spectrum(self):
        return ok(pyORV3.getSpectrum(self.handle, 0, 0))

    def set_spectrum(self, channels):
        ok(pyORV3.setSpectrum(self.handle, channels, 0, 0))

    def insert_front(self):
        """Insert an empty record before all nuclides."""
        ok(pyORV3.insert(self.handle, NUCLIDES, 1, 0))

    def save(self):
        ok(pyORV3.flush(self.handle))

    @classmethod
    def create(cls, path, channels):
        store = cls(path, CREATE)
        store.set(CHANNEL_COUNT, len(channels))
        store.set_spectrum(channels)
        store.set(LIVE_TIME, 3600.0)
        return store


class SqliteStore:
    """The same data in plain tables, those of version 1 of the files, through SQL."""

    name = "sqlite3"
    SCHEMA = """
        CREATE TABLE block(class INTEGER PRIMARY KEY, content BLOB);
        CREATE TABLE place(class INTEGER, record INTEGER, entry INTEGER,
                           PRIMARY KEY(class, record, entry)) WITHOUT ROWID;
        CREATE TABLE value(code INTEGER, record INTEGER, entry INTEGER, bytes BLOB NOT NULL,
                           PRIMARY KEY(code, record, entry)) WITHOUT ROWID;
    """
    NUCLIDE_ROWS = {
        "place": f"class={NUCLIDES}",
        "value": f"code BETWEEN {NUCLIDES << 16} AND {(NUCLIDES << 16) + 0xFFFF}",
    }

    def __init__(self, path, mode=READ | WRITE):
        self.connection = sqlite3.connect(path)
        if mode & WRITE:
            self.connection.execute("PRAGMA synchronous=EXTRA")

    def close(self):
        self.connection.close()

    @staticmethod
    def _entry(code):
        return 1 if code == LINE_ENERGY else 0

    def get(self, code, record=1):
        row = self.connection.execute(
            "SELECT bytes FROM value WHERE code=? AND record=? AND entry=?",
            (code, record, self._entry(code)),
        ).fetchone()
        return struct.unpack("<d", row[0])[0]

    def set(self, code, value, record=1):
        self.connection.execute(
            "UPDATE value SET bytes=? WHERE code=? AND record=? AND entry=?",
            (struct.pack("<d", value), code, record, self._entry(code)),
        )

    def get_spectrum(self):
        (content,) = self.connection.execute(
            "SELECT content FROM block WHERE class=?", (SPECTRUM,)
        ).fetchone()
        return struct.unpack(f"<{len(content) // 4}i", content)

    def set_spectrum(self, channels):
        content = array.array("i", channels)
        self.connection.execute("UPDATE block SET content=? WHERE class=?", (content, SPECTRUM))

    def insert_front(self):
        """Renumber the rows in place; negative numbers in between keep the keys distinct."""
        for table, where in self.NUCLIDE_ROWS.items():
            for number in "-record-1", "-record":
                self.connection.execute(f"UPDATE {table} SET record={number} WHERE {where}")
        self._insert_first()

    def insert_front_by_copy(self):
        """Renumber the rows through a temporary table, which is faster."""
        execute = self.connection.execute
        for table, where in self.NUCLIDE_ROWS.items():
            execute(f"CREATE TEMP TABLE moved AS SELECT * FROM {table} WHERE {where}")
            execute("UPDATE moved SET record=record+1")
            execute(f"DELETE FROM {table} WHERE {where}")
            execute(f"INSERT INTO {table} SELECT * FROM moved")
            execute("DROP TABLE moved")
        self._insert_first()

    def _insert_first(self):
        self.connection.execute("INSERT INTO place VALUES(?, 1, 0)", (NUCLIDES,))

    def save(self):
        self.connection.commit()

    @staticmethod
    def create_one_table(path, channels):
        """Create a file with the same data in the smallest schema."""
        store = SqliteStore(path)
        execute = store.connection.execute
        execute("BEGIN")
        execute("CREATE TABLE measurement(live_time REAL, channels BLOB)")
        execute("INSERT INTO measurement VALUES(?, ?)", (3600.0, array.array("i", channels)))
        store.save()
        return store

    @classmethod
    def create(cls, path, channels):
        store = cls(path)
        execute = store.connection.execute
        execute("BEGIN")
        for statement in cls.SCHEMA.split(";")[:-1]:
            execute(statement)
        execute("INSERT INTO block VALUES(?, ?)", (SPECTRUM, array.array("i", channels)))
        execute("INSERT INTO block VALUES(?, NULL)", (CHANNEL_COUNT >> 16,))
        execute("INSERT INTO place VALUES(?, 1, 0)", (CHANNEL_COUNT >> 16,))
        values = [
            (CHANNEL_COUNT, struct.pack("<i", len(channels))),
            (LIVE_TIME, struct.pack("<d", 3600.0)),
        ]
        store.connection.executemany("INSERT INTO value VALUES(?, 1, 0, ?)", values)
        store.save()
        return store


class Hdf5Store:
    """An HDF5 file through h5py.

    A save is durable but not a transaction: a crash during a save can destroy the file.
    """

    name = "h5py"

    def __init__(self, path, mode=READ | WRITE):
        self._use(h5py.File(path, "r+" if mode & WRITE else "r"))

    def _use(self, file):
        self.file = file
        self.data = functools.lru_cache(maxsize=None)(file.__getitem__)

    def close(self):
        self.file.close()

    def get(self, code, record=1):
        if code == LIVE_TIME:
            return float(self.data("live_time")[()])
        return float(self.data("nuclides")[record - 1]["energies"][0])

    def set(self, code, value, record=1):
        if code == LIVE_TIME:
            self.data("live_time")[()] = value
        else:
            row = self.data("nuclides")[record - 1]
            row["energies"][0] = value
            self.data("nuclides")[record - 1] = row

    def get_spectrum(self):
        return tuple(self.data("spectrum")[:].tolist())

    def set_spectrum(self, channels):
        self.data("spectrum")[:] = channels

    def save(self):
        self.file.flush()
        os.fsync(self.file.id.get_vfd_handle())

    @classmethod
    def create(cls, path, channels):
        store = cls.__new__(cls)
        store._use(h5py.File(path, "w"))
        store.file["spectrum"] = numpy.array(channels, "i4")
        store.file["live_time"] = 3600.0
        return store


def stores():
    return [QarStore, SqliteStore] + ([Hdf5Store] if h5py else [])


def fill_qar(path, channel_count, record_count, line_count, block_size):
    if block_size:  # no function writes a block, but pyORV3 converts the plain tables
        fill_sqlite(path, channel_count, record_count, line_count, block_size)
        store = QarStore(path)
    else:
        store = QarStore.create(path, random_channels(min(channel_count, LARGEST_WRITE)))
        for record in range(1, record_count + 1):
            name, half_life, energies, yields = nuclide(record, line_count)
            store.set(NUCLIDE_NAME, name, record)
            store.set(HALF_LIFE, half_life, record)
            for line, (energy, photons) in enumerate(zip(energies, yields), start=1):
                store.set(LINE_ENERGY, energy, record, line)
                store.set(LINE_YIELD, photons, record, line)
    store.set(CHANNEL_COUNT, channel_count)
    store.set(MEASUREMENT_NAME, "Soil, field 7, layer of 5 µm")
    store.close()


def fill_sqlite(path, channel_count, record_count, line_count, block_size):
    store = SqliteStore.create(path, random_channels(channel_count))
    execute, executemany = store.connection.execute, store.connection.executemany
    execute("PRAGMA application_id=0x51415233")
    execute("PRAGMA user_version=1")
    if block_size:
        block = block_size.to_bytes(4, "little") + os.urandom(block_size - 4)
        execute("INSERT INTO block VALUES(?, ?)", (GEOMETRY, block))
    if record_count:
        execute("INSERT INTO block VALUES(?, NULL)", (NUCLIDES,))
    for record in range(1, record_count + 1):
        name, half_life, energies, yields = nuclide(record, line_count)
        rows = [(NUCLIDES, record, entry) for entry in range(line_count + 1)]
        executemany("INSERT INTO place VALUES(?, ?, ?)", rows)
        values = [(NUCLIDE_NAME, 0, name.encode()), (HALF_LIFE, 0, struct.pack("<d", half_life))]
        for code, column in ((LINE_ENERGY, energies), (LINE_YIELD, yields)):
            values += [(code, n, struct.pack("<d", x)) for n, x in enumerate(column, start=1)]
        rows = [(code, record, entry, content) for code, entry, content in values]
        executemany("INSERT INTO value VALUES(?, ?, ?, ?)", rows)
    store.save()
    store.close()


def fill_hdf5(path, channel_count, record_count, line_count, block_size):
    store = Hdf5Store.create(path, random_channels(channel_count))
    if record_count:
        lines = "f8", line_count
        columns = [("name", "S16"), ("half_life", "f8"), ("energies", *lines), ("yields", *lines)]
        rows = [nuclide(record, line_count) for record in range(1, record_count + 1)]
        store.file["nuclides"] = numpy.array(
            [(name.encode(), *numbers) for name, *numbers in rows], columns
        )
    if block_size:
        store.file["geometry"] = numpy.frombuffer(os.urandom(block_size), "u1")
    store.close()


class Sources:
    """Creates files in a folder; files with the same content are copies of the first."""

    def __init__(self, folder):
        self.folder = folder
        self.number = 0
        self._contents = {}

    def new_path(self):
        self.number += 1
        return os.path.join(self.folder, f"{self.number}.qar")

    def make(self, store, channels=4096, records=0, lines=5, block=0):
        """Create a file for a store and return its path.

        lines: number of lines of each nuclide. block: size of an unformatted block in bytes.
        """
        fill = {"pyORV3": fill_qar, "sqlite3": fill_sqlite, "h5py": fill_hdf5}[store.name]
        key = fill, channels, records, lines, block
        if key not in self._contents:
            path = self.new_path()
            fill(path, channels, records, lines, block)
            with open(path, "rb") as file:
                self._contents[key] = file.read()
        path = self.new_path()
        with open(path, "wb") as file:
            file.write(self._contents[key])
        return path
