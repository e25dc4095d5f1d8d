"""Flip bits in a sound file: each value must be read as written or reported as damage.

    flips.py [FLIPS [SEED]]

The file has a spectrum, records of several classes with entries, results and an unformatted block.
Half of the flips hit the first two pages, which contain the header, the schema and the directory;
the others hit any byte. After each flip the file is read, copied class by class and checked, a
damaged one is salvaged, and a value is saved. A failure is a wrong or missing value without the
status of damage, a check that passes although a class cannot be read, a salvaged value that is
wrong, a lost record that is not reported, or a wrong value in the file after the save.
"""

import contextlib
import os
import pathlib
import re
import sqlite3
import sys

import pyORV3
import torture
from qar import dictionary
from qar.errors import QarError
from qar.transfer import salvage
from torture import CREATE, READ, WRITE, Failed, ok, status_of

GOLDEN = pathlib.Path(__file__).parent.parent / "data"
DAMAGED = {0xEBE88118}
REFUSED = DAMAGED | {0xECE99EA2, 0xECE99EA3, 0xEBE88109}
PAGES_OF_DIRECTORY = 2 * 4096


def write_sound_file(path, folder):
    """Write the values of three files of an earlier version and a larger spectrum."""
    with torture.opened(path, CREATE) as handle:
        for name in ("measurement.qar", "nuclides.qar", "sequence.qar"):
            with torture.opened(str(GOLDEN / name)) as source:
                for number in classes_of(str(GOLDEN / name), "SELECT class FROM block"):
                    ok(pyORV3.createBlock(handle, number, 0))
                    ok(pyORV3.copyTo(source, handle, number))
        ok(pyORV3.createBlock(handle, torture.SPECTRUM, 4096))
        ok(pyORV3.setSpectrum(handle, tuple(range(9, 4105)), 0, 0))
        for record in range(1, 60):
            ok(pyORV3.setParameter(handle, torture.RESULT_NAME, "Cs-%d" % record, record, 0))


def classes_of(path, query="SELECT DISTINCT key >> 48 FROM item WHERE key > 0"):
    with contextlib.closing(sqlite3.connect(path)) as database:
        return [number for (number,) in database.execute(query)]


def rows_of(path):
    with contextlib.closing(sqlite3.connect(path)) as database:
        rows = database.execute("SELECT key >> 32, key, bytes FROM item WHERE key > 0")
        return set(rows.fetchall())


def read_classes(path, copy, classes):
    """Return the rows of the readable classes (None if opening fails), these classes, and True if
    the check passes."""
    status, handle = pyORV3.open(path, READ, 1, "")
    if status != 0:
        if status_of(status) not in REFUSED:
            raise Failed("opening returns 0x%08X" % status_of(status))
        return None, set(), False
    readable = set()
    with torture.opened(copy, CREATE) as destination:
        for number in classes:
            ok(pyORV3.createBlock(destination, number, 0))
            status = status_of(pyORV3.copyTo(handle, destination, number))
            if status == 0:
                readable.add(number)
            elif status not in DAMAGED:
                raise Failed("reading class 0x%04X returns 0x%08X" % (number, status))
    is_sound = pyORV3.reverify(handle) == 0
    pyORV3.close(handle, 0)
    rows = {row for row in rows_of(copy) if row[0] >> 16 in readable}
    os.remove(copy)
    return rows, readable, is_sound


def check_reading(path, copy, sound_rows, classes, except_for=()):
    """Return how the damage is reported: not at all, by the check, by a class or at opening."""
    rows, readable, is_sound = read_classes(path, copy, classes)
    if rows is None:
        return "refused at opening"
    expected = {row for row in sound_rows if row[0] >> 16 in readable}
    wrong = {row for row in rows ^ expected if row[0] not in except_for}
    if wrong:
        raise Failed("wrong or missing rows: %.200r" % sorted(wrong)[:3])
    if is_sound and readable != set(classes):
        raise Failed("the check passes although a class cannot be read")
    return "harmless" if is_sound else "seen by the check" if readable == set(classes) else "damage"


def records_of(rows, number):
    """Return the rows of each record of a class, without the number of the record."""
    records = {}
    for code, key, content in rows:
        if code >> 16 == number:
            record = records.setdefault(key >> 16 & 0xFFFF, set())
            record.add((code, key & 0xFFFF, content))
    return records


def lost_records(line):
    match = re.match(r"records? ([^;]*);", line)
    ranges = [part.split(" to ") for part in match[1].split(", ")] if match else []
    return {number for part in ranges for number in range(int(part[0]), int(part[-1]) + 1)}


def check_salvage(path, copy, sound_rows, classes):
    """Salvage a file; return the number of records and blocks that were lost."""
    try:
        result = salvage.salvage(path, copy)
    except QarError as error:
        if error.status not in REFUSED:
            raise Failed("salvage raises %r" % error) from error
        return len({(row[0] >> 16, row[1] >> 16 & 0xFFFF) for row in sound_rows})
    lines = (line.split(": ", 1) for line in result.lost)
    reports = {name: reason for names, reason in lines for name in names.split(", ")}
    saved_rows, lost = rows_of(copy), 0
    os.remove(copy)
    for number in classes:
        name = dictionary.class_name(number)
        sound, saved = records_of(sound_rows, number), records_of(saved_rows, number)
        if name not in reports:
            if saved != sound:
                raise Failed("salvage lost rows of %s without a report" % name)
            continue
        if saved.get(0, sound[0]) != sound[0]:
            raise Failed("salvage saved a wrong block of %s" % name)
        numbers = sorted(set(sound) - lost_records(reports[name]) - {0})
        salvaged = [saved[record] for record in sorted(saved) if record > 0]
        expected = [sound[record] for record in numbers[: len(salvaged)]]
        if len(salvaged) > len(expected) or any(map(set.__sub__, salvaged, expected)):
            raise Failed("salvage saved wrong records of %s: %s" % (name, reports[name]))
        lost += len(set(sound) - {0}) - len(salvaged) or (name not in result.copied)
    return lost


def save_value(path):
    """Return True if a value can be saved in spite of the flip. Runs in a process of its own,
    because the source may remain open on a failure."""
    process = os.fork()
    if process == 0:
        status, handle = pyORV3.open(path, WRITE, 1, "")
        calls = (
            lambda: pyORV3.setParameter(handle, torture.LIVE_TIME, 4711.0, 1, 0),
            lambda: pyORV3.flush(handle),
        )
        os._exit(0 if status == 0 and all(call() == 0 for call in calls) else 1)
    return os.waitpid(process, 0)[1] == 0


def flip_one(folder, content, sound_rows, classes, random):
    path, copy = (os.path.join(folder, name) for name in ("a.qar", "copy.qar"))
    with contextlib.suppress(FileNotFoundError):
        os.remove(copy)  # of a flip that failed
    area = random.choice((PAGES_OF_DIRECTORY, len(content)))
    bit = random.randrange(8 * area)
    flipped = bytearray(content)
    flipped[bit // 8] ^= 1 << bit % 8
    pathlib.Path(path).write_bytes(flipped)
    try:
        outcome = check_reading(path, copy, sound_rows, classes)
        if pathlib.Path(path).read_bytes() != flipped:
            raise Failed("reading has changed the file")
        if outcome != "harmless":
            lost = check_salvage(path, copy, sound_rows, classes)
            outcome += ", %s lost" % ("nothing", "1 record or block", "more")[min(lost, 2)]
        if save_value(path):
            check_reading(path, copy, sound_rows, classes, (torture.LIVE_TIME,))
    except Failed as failure:
        raise Failed("byte %d, bit %d: %s" % (bit // 8, bit % 8, failure)) from failure
    return outcome


def main():
    flips, random = torture.arguments([5000, 1])
    outcomes, failed = {}, 0
    with torture.folder() as folder:
        path = os.path.join(folder, "sound.qar")
        write_sound_file(path, folder)
        content, rows = pathlib.Path(path).read_bytes(), rows_of(path)
        classes = classes_of(path)
        for _ in range(flips):
            try:
                outcome = flip_one(folder, content, rows, classes, random)
                outcomes[outcome] = outcomes.get(outcome, 0) + 1
            except Failed as failure:
                failed += 1
                print("FAILED %s" % failure)
    for outcome in sorted(outcomes):
        print("tried %d flips: %s" % (outcomes[outcome], outcome))
    print(
        "tried %d flips in %d bytes, %d classes\n%d failed"
        % (flips, len(content), len(classes), failed)
    )
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
