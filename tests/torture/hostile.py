"""Read and write damaged and hostile files: none may cause a crash, a hang or more damage.

    hostile.py [MUTANTS [SEED]]

MUTANTS (default 300) files are made from sound ones by changes to bytes, pages, schema and rows.
All hostile schemas below are tried as well. Each file is read by every reading function, copied,
analysed by the engine, written and flushed, in a process of its own. Use the build with the address
sanitizer. A failure is a crash, a sanitizer's report, more than 2 s of processor time or 500 MB, a
file changed by reading or by a refusal, or a file with more damage after a successful flush.
"""

import contextlib
import hashlib
import os
import pathlib
import re
import resource
import shutil
import signal
import sqlite3
import sys

import pyORV3
import torture
from torture import CREATE, READ, WRITE, Failed, ok

SECONDS, MEGABYTES = 2, 500
NOT_WRITTEN = Failed("not written")
CLASSES = list(range(0x2000, 0x2009)) + [0x2010, 0x2FFF, 0x4005, 0x9999]


# ---- Sound files -----------------------------------------------------------------------------------


def write_sound_file(path, records):
    with torture.opened(path, CREATE) as handle:

        def put(code, value, record=1, entry=0):
            ok(pyORV3.setParameter(handle, code, value, record, entry), "setParameter")

        put(torture.LIVE_TIME, 100.0)
        put(torture.COMMENT, "sound " * 30)
        ok(pyORV3.createBlock(handle, torture.SPECTRUM, 1024), "createBlock")
        peak = [int(2000 * 2.0 ** -(((channel - 661) / 3.0) ** 2)) + 20 for channel in range(1024)]
        ok(pyORV3.setSpectrum(handle, tuple(peak), 0, 0), "setSpectrum")
        for entry, coefficient in enumerate((0.0, 1.0), start=1):
            put(0x20020001, coefficient, 1, entry)
        put(0x20020002, 4.0, 1, 1)
        for record in range(1, records + 1):
            put(torture.NUCLIDE_NAME, "Cs-%d" % record, record)
            put(torture.LINE_ENERGY, 661.66 - record + 1, record, 1)
            put(torture.LINE_ENERGY, 32.0, record, 2)
            for entry, line_yield in enumerate((0.85, 0.06), start=1):
                put(torture.LINE_YIELD, line_yield, record, entry)


# ---- Damage ----------------------------------------------------------------------------------------

NUMBERS = (
    "0",
    "-1",
    "1",
    "2",
    "65535",
    "65536",
    "536870912",
    "536936464",
    "4294967295",
    "NULL",
    "9223372036854775807",
    "-9223372036854775808",
    "1.5",
    "'text'",
    "8196",
    "8197",
    "16389",
)
VALUES = (
    "x''",
    "zeroblob(8)",
    "x'0102'",
    "NULL",
    "'text'",
    "7",
    "zeroblob(300)",
    "zeroblob(262140)",
    "zeroblob(300000)",
    "randomblob(1001)",
)


def damage(content, kind, random):
    """Change the bytes of a file in place."""
    pages = len(content) // 4096
    first, second = (random.randrange(pages) * 4096 for _ in range(2))
    if kind == "bytes":
        area = min(random.choice((100, 4096, len(content))), len(content))
        for _ in range(random.choice((1, 1, 3, 20))):
            content[random.randrange(area)] = random.choice(
                (0, 1, 127, 128, 255, random.randrange(256))
            )
    elif kind == "pages":
        content[first : first + 4096] = random.choice(
            (
                bytes(4096),
                b"\xff" * 4096,
                content[second : second + 4096],
                random.getrandbits(8 * 4096).to_bytes(4096, "little"),
            )
        )
    elif random.random() < 0.5:
        del content[random.choice((random.randrange(len(content)), first)) :]
    else:
        content += random.choice((b"\0", bytes(512), bytes(4096), bytes(100000), b"tail" * 1024))


# The tables of each version: name, content column, key columns.
TABLES = {
    1: (
        ("block", "content", "class"),
        ("place", None, "class", "record", "entry"),
        ("value", "bytes", "code", "record", "entry"),
    ),
    2: (("item", "bytes", "key", "checksum"), ("item", "checksum", "key")),
}


def changed_rows(version, random):
    table, blob, *columns = random.choice(TABLES[version])
    where = " WHERE %s %s %s" % (
        random.choice(columns),
        random.choice("<>="),
        random.choice(NUMBERS[:4]),
    )
    row = [random.choice(NUMBERS) for _ in columns] + [random.choice(VALUES)] * bool(blob)
    return random.choice(
        (
            "DELETE FROM %s%s" % (table, where),
            "UPDATE OR IGNORE %s SET %s = %s%s" % (table, random.choice(columns), row[0], where),
            "UPDATE OR IGNORE %s SET %s = %s%s" % (table, blob or columns[0], row[-1], where),
            "INSERT OR REPLACE INTO %s(%s) VALUES(%s)"
            % (table, ", ".join([*columns, blob] if blob else columns), ", ".join(row)),
        )
    )


# Schema changes that a curious user or another version might make. TABLE is replaced by the name
# of a table.
SCHEMA_CHANGES = (
    "DROP TABLE TABLE",
    "ALTER TABLE TABLE RENAME TO others",
    "ALTER TABLE TABLE ADD COLUMN more",
    "ALTER TABLE item RENAME COLUMN bytes TO contents",
    "ALTER TABLE block RENAME COLUMN content TO contents",
    "CREATE INDEX by_record ON value(record)",
    "CREATE INDEX by_bytes ON item(bytes)",
    "CREATE TABLE notes(text); INSERT INTO notes VALUES('x')",
    "CREATE UNIQUE INDEX once ON value(record, entry, code)",
    "CREATE UNIQUE INDEX once ON item(key, checksum)",
    "ANALYZE",
    "VACUUM",
    "PRAGMA user_version = 1",
    "PRAGMA user_version = 2",
    "PRAGMA user_version = -1",
    "PRAGMA application_id = 1",
    "PRAGMA page_size = 512; VACUUM",
    "PRAGMA page_size = 65536; VACUUM",
    "PRAGMA auto_vacuum = FULL; VACUUM",
    "PRAGMA journal_mode = WAL",
    "DROP TABLE block; CREATE TABLE block(class, content)",
    "DROP TABLE item; CREATE TABLE item(key, checksum, bytes)",
    "DELETE FROM sqlite_schema WHERE name = 'TABLE'",
    "UPDATE sqlite_schema SET rootpage = (SELECT rootpage FROM sqlite_schema WHERE name = 'block') "
    "WHERE name = 'value'",
    "UPDATE sqlite_schema SET rootpage = 1 WHERE name = 'TABLE'",
    "UPDATE sqlite_schema SET rootpage = 0 WHERE name = 'TABLE'",
    "UPDATE sqlite_schema SET rootpage = 99999 WHERE name = 'TABLE'",
    "UPDATE sqlite_schema SET sql = 'CREATE TABLE nonsense' WHERE name = 'TABLE'",
    "UPDATE sqlite_schema SET type = 'view' WHERE name = 'TABLE'",
    "INSERT INTO sqlite_schema SELECT * FROM sqlite_schema WHERE name = 'TABLE'",
)


def run_sql(path, script):
    """Run the script, which may change sqlite_schema; return True if SQLite accepted it."""
    database = sqlite3.connect(path, isolation_level=None)
    try:
        database.execute("PRAGMA writable_schema = ON")
        database.executescript(script)
        return True
    except (sqlite3.Error, UnicodeDecodeError):
        return False
    finally:
        database.close()


def make_mutant(path, version, random):
    """Change the file; return the kind of the change and the SQL script, if any."""
    kind = random.choice(
        ("bytes", "bytes", "bytes", "pages", "cut", "rows", "rows", "schema", "journal")
    )
    script = ""
    if kind == "rows":
        changes = range(random.choice((1, 1, 2, 5)))
        script = ";".join(changed_rows(version, random) for _ in changes)
    elif kind == "schema":
        table = random.choice(TABLES[version])[0]
        script = random.choice(SCHEMA_CHANGES).replace("TABLE TABLE", "TABLE " + table)
        script = script.replace("'TABLE'", "'%s'" % table)
    elif kind == "journal":
        start = random.choice((b"", b"\xd9\xd5\x05\xf9\x20\xa1\x63\xd7", b"x"))
        rest = random.getrandbits(8 * 5000).to_bytes(5000, "little")
        pathlib.Path(path + "-journal").write_bytes(start + rest[: random.choice((0, 20, 5000))])
    else:
        content = bytearray(pathlib.Path(path).read_bytes())
        damage(content, kind, random)
        pathlib.Path(path).write_bytes(content)
    run_sql(path, script) if script else None
    return kind, script


# ---- Hostile schemas -------------------------------------------------------------------------------

# Expressions that take very much time or memory.
SLOW = "instr(hex(zeroblob(400000)), hex(zeroblob(200000)) || '1')"
LARGE = "length(hex(zeroblob(300000000))) > 0"
DOUBLED = ", ".join("g%d AS (g%d || g%d)" % (n, n - 1, n - 1) for n in range(1, 30))
ENDLESS = "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT "
BLOCK, PLACE, VALUE = (
    "class INTEGER PRIMARY KEY, content BLOB",
    "class INTEGER, record INTEGER, entry INTEGER, %sPRIMARY KEY(class, record, entry)",
    "code INTEGER, record INTEGER, entry INTEGER, bytes BLOB NOT NULL, %sPRIMARY KEY(code, record, entry)",
)


def redefined(table, definition, more=""):
    """Return SQL that replaces the table's definition in the schema and keeps its rows."""
    without = "" if table in ("block", "item") else " WITHOUT ROWID"
    text = "CREATE TABLE %s(%s)%s" % (table, definition, more or without)
    return "UPDATE sqlite_schema SET sql = '%s' WHERE name = '%s'" % (
        text.replace("'", "''"),
        table,
    )


# For files of version 1.
OLD_HOSTILE_SCHEMAS = {
    "CHECK that takes all time, block": redefined("block", BLOCK + ", CHECK(NOT %s)" % SLOW),
    "CHECK that takes all time, value": redefined("value", VALUE % ("CHECK(NOT %s), " % SLOW)),
    "CHECK that takes all memory": redefined("block", BLOCK + ", CHECK(%s)" % LARGE),
    "CHECK with a comment before it": redefined(
        "block", BLOCK + " /* content BLOB */, CHECK(NOT %s)" % SLOW
    ),
    "generated column, time": redefined("block", BLOCK + ", g AS (%s)" % SLOW),
    "generated column, not null": redefined("block", BLOCK + ", g NOT NULL AS (%s)" % SLOW),
    "generated column, memory": redefined("place", PLACE % ("g NOT NULL AS (%s), " % LARGE)),
    "generated columns that double": redefined(
        "block",
        BLOCK
        + ", g0 AS ('aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa'), "
        + DOUBLED
        + ", g NOT NULL AS (g29)",
    ),
    "stored generated column": "DROP TABLE block; CREATE TABLE block(%s, "
    "g AS (length(content)) STORED)" % BLOCK,
    "generated column in the place of ours": redefined(
        "block", "class INTEGER PRIMARY KEY, content AS (zeroblob(300000000))"
    ),
    "default that takes all memory": redefined(
        "value", (VALUE % "").replace("NOT NULL", "NOT NULL DEFAULT (zeroblob(900000000))")
    ),
    "index on an expression": "CREATE INDEX slow ON block(length(content)); "
    "UPDATE sqlite_schema SET sql = 'CREATE INDEX slow ON block(%s)' WHERE name = 'slow'"
    % SLOW.replace("'", "''"),
    "partial index": "CREATE INDEX slow ON value(record) WHERE record > 0; UPDATE sqlite_schema "
    "SET sql = 'CREATE INDEX slow ON value(record) WHERE %s' WHERE name = 'slow'"
    % SLOW.replace("'", "''"),
    "trigger before insertion": "CREATE TRIGGER t BEFORE INSERT ON value BEGIN DELETE FROM block; END",
    "trigger after deletion": "CREATE TRIGGER t AFTER DELETE ON value BEGIN INSERT INTO place "
    + ENDLESS
    + "i, i, i FROM n; END",
    "view in the place of block": "DROP TABLE block; CREATE VIEW block(class, content) AS "
    + ENDLESS
    + "i, NULL FROM n",
    "view in the place of value": "DROP TABLE value; "
    "CREATE VIEW value(code, record, entry, bytes) AS " + ENDLESS + "i, i, i, i FROM n",
    "view in the place of place": "DROP TABLE place; CREATE VIEW place(class, record, entry) AS "
    + ENDLESS
    + "8196, i, 0 FROM n",
    "virtual table in the place of block": "DROP TABLE block; CREATE VIRTUAL TABLE block USING "
    "fts5(class, content)",
    "virtual table beside ours": "CREATE VIRTUAL TABLE search USING fts5(a)",
    "virtual table of unknown module": "INSERT INTO sqlite_schema VALUES('table', 'v', 'v', 0, "
    "'CREATE VIRTUAL TABLE v USING nothing(x)')",
    "statistics that lie": "ANALYZE; UPDATE sqlite_stat1 SET stat = '1 0 -1 99999999999999999999 x'",
    "statistics of many rows": "ANALYZE; INSERT INTO sqlite_stat1 WITH RECURSIVE n(i) AS "
    "(SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 20000) SELECT 'value', 'value', '1 1' FROM n",
    "unknown collation": redefined(
        "value", (VALUE % "").replace("entry INTEGER", "entry INTEGER COLLATE x")
    ),
    "foreign key": redefined(
        "place", PLACE % "" + ", FOREIGN KEY(class) REFERENCES block(class) " "ON DELETE CASCADE"
    ),
    "many columns": redefined("block", BLOCK + "".join(", c%d" % n for n in range(1900))),
    "two thousand tables": "".join("CREATE TABLE t%d(a);" % n for n in range(2000)),
    "deep expression": redefined("block", BLOCK + ", CHECK(" + "(" * 900 + "1" + ")" * 900 + ")"),
    "long definition": redefined("block", BLOCK + ", CHECK('%s' <> '')" % ("x" * 900000)),
    "tables on one page": "UPDATE sqlite_schema SET rootpage = (SELECT rootpage FROM sqlite_schema "
    "WHERE name = 'place') WHERE name = 'value'",
    "a record number of every size": "INSERT OR IGNORE INTO place WITH RECURSIVE n(i) AS (SELECT 1 UNION "
    "ALL SELECT i + 1 FROM n WHERE i < 70000) SELECT 8196, i, 0 FROM n",
    "huge block": "INSERT OR REPLACE INTO block VALUES(16389, zeroblob(100000000))",
    "huge spectrum": "INSERT OR REPLACE INTO block VALUES(8197, zeroblob(100000000))",
    "huge value": "INSERT OR REPLACE INTO value VALUES(0x20000011, 1, 0, zeroblob(30000000))",
    "huge unknown value": "INSERT OR REPLACE INTO value VALUES(0x2000FFFF, 1, 0, zeroblob(30000000))",
    "WAL without a log": "PRAGMA journal_mode = WAL",
    "strict table": "DROP TABLE block; CREATE TABLE block(class INTEGER PRIMARY KEY, content BLOB) STRICT",
    "pointer map": "PRAGMA auto_vacuum = INCREMENTAL; VACUUM",
    "encoding": "ATTACH ':memory:' AS m; PRAGMA encoding = 'UTF-16'; VACUUM",
    "sequence": "CREATE TABLE s(a INTEGER PRIMARY KEY AUTOINCREMENT); INSERT INTO s VALUES(9e18)",
}


# For files of this version.
ITEM = "key INTEGER PRIMARY KEY, checksum INTEGER NOT NULL, bytes BLOB NOT NULL%s"
HOSTILE_SCHEMAS = {
    "CHECK that takes all time": redefined("item", ITEM % (", CHECK(NOT %s)" % SLOW)),
    "CHECK that takes all memory": redefined("item", ITEM % (", CHECK(%s)" % LARGE)),
    "CHECK with a comment before it": redefined(
        "item", ITEM % ("/* BLOB */, CHECK(NOT %s)" % SLOW)
    ),
    "generated column, time": redefined("item", ITEM % (", g AS (%s)" % SLOW)),
    "generated column, memory": redefined("item", ITEM % (", g NOT NULL AS (%s)" % LARGE)),
    "generated column in the place of ours": redefined(
        "item", (ITEM % "").replace("bytes BLOB NOT NULL", "bytes AS (zeroblob(300000000))")
    ),
    "default that takes all memory": redefined(
        "item", (ITEM % "").replace("BLOB NOT NULL", "BLOB NOT NULL DEFAULT (zeroblob(900000000))")
    ),
    "index on an expression": "CREATE INDEX slow ON item(length(bytes)); "
    "UPDATE sqlite_schema SET sql = 'CREATE INDEX slow ON item(%s)' WHERE name = 'slow'"
    % SLOW.replace("'", "''"),
    "partial index": "CREATE INDEX slow ON item(checksum) WHERE checksum > 0; UPDATE sqlite_schema "
    "SET sql = 'CREATE INDEX slow ON item(checksum) WHERE %s' WHERE name = 'slow'"
    % SLOW.replace("'", "''"),
    "trigger before insertion": "CREATE TRIGGER t BEFORE INSERT ON item BEGIN DELETE FROM item; END",
    "trigger after deletion": "CREATE TRIGGER t AFTER DELETE ON item BEGIN INSERT INTO item "
    + ENDLESS
    + "i, i, i FROM n; END",
    "view in the place of item": "DROP TABLE item; "
    "CREATE VIEW item(key, checksum, bytes) AS " + ENDLESS + "i, i, i FROM n",
    "virtual table in the place of item": "DROP TABLE item; CREATE VIRTUAL TABLE item USING "
    "fts5(key, checksum, bytes)",
    "unknown collation": redefined(
        "item", (ITEM % "").replace("checksum INTEGER", "checksum INTEGER COLLATE x")
    ),
    "a record number of every size": "INSERT OR IGNORE INTO item WITH RECURSIVE n(i) AS (SELECT 1 "
    "UNION ALL SELECT i + 1 FROM n WHERE i < 70000) SELECT 0x20040000 << 32 | i << 16, 0, x'' FROM n",
    "huge directory": "UPDATE item SET bytes = zeroblob(60000000) WHERE key = 0",
    "huge block": "INSERT INTO item VALUES(0x40050000 << 32, 0, zeroblob(100000000))",
    "huge spectrum": "UPDATE item SET bytes = zeroblob(100000000) WHERE key >> 32 = 0x20050000",
    "huge value": "UPDATE item SET bytes = zeroblob(30000000) WHERE key >> 32 = 0x20000011",
    "WAL without a log": "PRAGMA journal_mode = WAL",
    "two thousand tables": "".join("CREATE TABLE t%d(a);" % n for n in range(2000)),
    "pointer map": "PRAGMA auto_vacuum = INCREMENTAL; VACUUM",
}
DOWNGRADE = """
    CREATE TABLE block(class INTEGER PRIMARY KEY, content BLOB);
    CREATE TABLE place(class INTEGER, record INTEGER, entry INTEGER,
                       PRIMARY KEY(class, record, entry)) WITHOUT ROWID;
    CREATE TABLE value(code INTEGER, record INTEGER, entry INTEGER, bytes BLOB NOT NULL,
                       PRIMARY KEY(code, record, entry)) WITHOUT ROWID;
    INSERT INTO block SELECT key >> 48, CASE WHEN length(bytes) THEN bytes END FROM item
        WHERE key > 0 AND key & 0xFFFFFFFFFFFF = 0;
    INSERT INTO place SELECT key >> 48, key >> 16 & 65535, key & 65535 FROM item
        WHERE key >> 32 & 65535 = 0 AND key >> 16 & 65535 > 0;
    INSERT INTO value SELECT key >> 32, key >> 16 & 65535, key & 65535, bytes FROM item
        WHERE key >> 32 & 65535;
    DROP TABLE item; PRAGMA user_version = 1; VACUUM;
"""


# ---- Operations on each file -----------------------------------------------------------------------


def known_codes():
    """Return all codes of the dictionary, by class."""
    codes = {}
    for number in CLASSES:
        codes[number] = [
            number << 16 | low
            for low in range(1, 0x120)
            if pyORV3.getParameterMetaData(0, number << 16 | low, "")[0] == 0
        ]
    return codes


def read_everything(handle, codes):
    """Return all answers of the reading functions, by class, for at most 200 records each."""
    content = {}
    for number in CLASSES:
        status, records = pyORV3.count(handle, number, 0)
        answers = content[number] = [(status, records)]
        for record in range(0, min(records, 200) + 2):
            entries = pyORV3.count(handle, number, record)[1] if record else 0
            answers.append(entries)
            for code in codes[number][: 1 if status else None]:  # a damaged class is read each time
                answers += [
                    pyORV3.getParameter(handle, code, record, entry)
                    for entry in range(0, min(entries, 20) + 2)
                ]
    content["others"] = [
        pyORV3.getSpectrum(handle, 0, 0),
        pyORV3.findNuclideByName(handle, "cs", 0),
        pyORV3.findNuclideByEnergy(handle, 661.6, 2.0, 0),
    ]
    return {number: repr(answers) for number, answers in content.items()}


def is_changed_elsewhere(before, after):
    """Return True if the contents differ in more than the value and record of set_value."""
    differ = {number for number in before if before[number] != after[number]}
    read = [
        set(re.findall(r"\(0, [^)]*\)", content[torture.MEASUREMENT]))
        for content in (before, after)
    ]
    return differ - {torture.MEASUREMENT} or (read[0] ^ read[1]) - {"(0, 0)", "(0, 1)", "(0, 4711)"}


def hash_of(folder):
    return {
        file.name: hashlib.sha256(file.read_bytes()).digest()
        for file in pathlib.Path(folder).iterdir()
    }


def timed(function):
    """Return the function with a time limit: the process is killed if it takes too long."""

    def limited(*arguments):
        signal.setitimer(signal.ITIMER_PROF, SECONDS)
        try:
            return function(*arguments)
        finally:
            signal.setitimer(signal.ITIMER_PROF, 0)

    return limited


@timed
def read_file(path, codes):
    """Return the content of the file, or None if it cannot be opened."""
    status, handle = pyORV3.open(path, READ, 1, "")
    if status != 0:
        return None
    content = read_everything(handle, codes)
    ok(pyORV3.close(handle, 0), "closing after reading")
    return content


@timed
def copy_class(handle, number, copied, codes):
    """Copy a class (0: the whole source) to a new file and read it."""
    with torture.opened(copied, CREATE) as copy:
        pyORV3.createBlock(copy, number, 0)
        pyORV3.copyTo(handle, copy, number)
        pyORV3.moveRecordsTo(handle, copy, number, 1, 1)
        pyORV3.copyAnalysisSequenceTo(handle, copy)
    with torture.opened(copied) as copy:
        read_everything(copy, codes)


def copy_file(path, codes, scratch):
    status, handle = timed(pyORV3.open)(path, READ, 1, "")
    if status == 0:
        for function, *more in ((pyORV3.getStatus,), (pyORV3.reverify,), (pyORV3.control, 3, 0)):
            timed(function)(handle, *more)
        for number in [0] + CLASSES:
            copy_class(handle, number, os.path.join(scratch, "copy%d.qar" % number), codes)
        ok(pyORV3.close(handle, 0), "closing after copying")


@timed
def change_file(path, change):
    status, handle = pyORV3.open(path, WRITE, 1, "")
    if status or change(handle) or pyORV3.flush(handle) or pyORV3.close(handle, 0):
        raise NOT_WRITTEN


def write_file(path, change):
    """Return True if the file was opened, changed, flushed and closed. Runs in a process of its
    own, so that changes that could not be saved are lost."""
    failure = torture.failure_of(lambda: change_file(path, change))
    if failure not in (None, repr(NOT_WRITTEN)):
        raise Failed("%s while writing" % failure)
    return failure is None


def set_value(handle):
    return pyORV3.setParameter(handle, 0x2000001E, 4711, 1, 0)  # QAR_L_UPPERDISC


def run_engine(handle):
    status = pyORV3.executeNativeEngine("peak_search", "searchPeaks", handle, 0)
    pyORV3.deleteLevel(handle, 1)
    return status


def is_sound(path):
    """Return True if SQLite finds the file sound before a limit of instructions is reached."""
    with contextlib.closing(sqlite3.connect(path)) as database:
        database.set_progress_handler(lambda: 1, 1000000)
        try:
            return database.execute("PRAGMA integrity_check").fetchall() == [("ok",)]
        except (sqlite3.Error, UnicodeDecodeError):
            return False


def try_file(path, codes, scratch, kind):
    folder = os.path.dirname(path)
    before = hash_of(folder)
    content = read_file(path, codes)
    copy_file(path, codes, scratch)
    os.environ["ORV_INPUTS"] = folder
    pyORV3.enumerateDefinitions()
    recovers = kind == "journal"  # opening the file applies or renames the journal
    if hash_of(folder) != before and not recovers:
        raise Failed("reading has changed the folder")
    sound = kind != "hostile" and is_sound(path)
    for change in (set_value, run_engine):
        written = write_file(path, change)
        after = read_file(path, codes)
        if not written and content is None and hash_of(folder) != before and not recovers:
            raise Failed("a refusal has changed the folder")
        if not written and after != content:
            raise Failed("a failed write has changed the content")
        if written and after is None:
            raise Failed("the file cannot be opened after a flush")
        if written and content is not None and is_changed_elsewhere(content, after):
            raise Failed("a flush has changed other values")
        if written and sound and not is_sound(path):
            raise Failed("a flush has damaged the file")
        content = after


def try_within_memory(*arguments):
    at_start = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
    try_file(*arguments)
    grown = (resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - at_start) // 1024
    if grown > MEGABYTES:
        raise Failed("memory use has grown by %d MB; at most %d are allowed" % (grown, MEGABYTES))


def main():
    mutants, random = torture.arguments([300, 1])
    codes, failures = known_codes(), 0
    schemas = {1: OLD_HOSTILE_SCHEMAS, 2: HOSTILE_SCHEMAS}
    makers = [
        (
            version,
            lambda path, version, name=name, script=script: (
                "hostile",
                name if run_sql(path, script) else name + " (partly made)",
            ),
        )
        for version in schemas
        for name, script in schemas[version].items()
    ]
    hostile = len(makers)
    makers += [
        (random.choice((1, 2, 2)), lambda path, version: make_mutant(path, version, random))
        for _ in range(mutants)
    ]
    with torture.folder() as sound:
        for records in (2, 40):
            path = os.path.join(sound, "%d-2.qar" % records)
            write_sound_file(path, records)
            old = os.path.join(sound, "%d-1.qar" % records)
            shutil.copy(path, old)
            if not run_sql(old, DOWNGRADE):
                raise Failed("cannot convert a file to version 1")
        for version, make in makers:
            with torture.folder() as folder, torture.folder() as scratch:
                path = os.path.join(folder, "file.qar")
                name = "%d-%d.qar" % (random.choice((2, 40)), version)
                shutil.copy(os.path.join(sound, name), path)
                kind, change = make(path, version)
                failure = torture.failure_of(lambda: try_within_memory(path, codes, scratch, kind))
                if failure:
                    failures += 1
                    print("FAILED %s %s: %s" % (kind, change, failure), flush=True)
                    if os.environ.get("TORTURE_KEEP"):
                        shutil.copytree(
                            folder, os.path.join(os.environ["TORTURE_KEEP"], str(failures))
                        )
    print("tried %d hostile schemas\ntried %d mutants\n%d failed" % (hostile, mutants, failures))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
