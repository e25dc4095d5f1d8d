"""Simulate a power cut at each moment of a run: each completed flush must survive.

    power_cut.py [STATES [SEED]]

STATES is the number of cuts to try, chosen at random; 0 (default) tries all. A run under the shim
records its changes to a folder. For each moment of the run, the folder is then built as it may be
on the drive after a power cut: synced data and names are complete; of the later data and names
all, none or any part is present. Data is synced with its file, a name with its folder. The files
of each folder are opened, read, written and closed.
"""

import os
import shutil
import subprocess
import sys

import pyORV3
import torture
from torture import CREATE, READ, WRITE, Failed, ok

SECTOR = 512
NAMES = ("alpha.qar", "beta.qar")
ROUNDS = 8
CHANNELS = 8192  # more than the library collects before it writes to a journal


# ---- The recorded run -----------------------------------------------------------------------------


def write_state(handle, number):
    """Write values of several classes that are determined by one number."""
    ok(pyORV3.setParameter(handle, torture.LIVE_TIME, float(number), 1, 0), "setParameter")
    ok(
        pyORV3.setParameter(handle, torture.COMMENT, "state %d " % number * 12, 1, 0),
        "setParameter",
    )
    ok(pyORV3.setSpectrum(handle, tuple(range(number, number + CHANNELS)), 0, 0), "setSpectrum")
    for record in range(1, number % 5 + 3):
        ok(pyORV3.setParameter(handle, torture.NUCLIDE_NAME, "N-%d" % number, record, 0))
        ok(pyORV3.setParameter(handle, torture.LINE_ENERGY, 100.0 * number, record, 1))
    for record in range(ok(pyORV3.count(handle, torture.NUCLIDES, 0)), number % 5 + 2, -1):
        ok(pyORV3.delete(handle, torture.NUCLIDES, record, 0), "delete")


def state_of(handle):
    """Return the number of the state; raise Failed if the values belong to different states."""
    number = int(pyORV3.getParameter(handle, torture.LIVE_TIME, 1, 0)[1])
    expected = {
        torture.MEASUREMENT: [[float(number), "state %d " % number * 12]],
        torture.NUCLIDES: [["N-%d" % number, [100.0 * number]]] * (number % 5 + 2),
        torture.PEAKS: [],
        torture.RESULTS: [],
        torture.SPECTRUM: list(range(number, number + CHANNELS)),
    }
    if number == 0:  # created, but nothing saved yet
        expected = dict.fromkeys(torture.PARAMETERS, [])
        expected[torture.SPECTRUM] = None
    if torture.content_of(handle) != repr(expected):
        raise Failed("state %d is mixed with values of other states" % number)
    return number


def record_run(folder, mark):
    """Save states; mark(TEXT) adds a line to the record after the calls that have returned."""
    for name in NAMES:
        path = os.path.join(folder, name)
        handle = ok(pyORV3.open(path, CREATE, 1, ""), "creating")
        for number in range(1, ROUNDS + 1):
            mark("writing %s %d" % (name, number))
            write_state(handle, number)
            if number == ROUNDS - 1:
                ok(pyORV3.close(handle, 0), "closing")
                mark("saved %s %d" % (name, number))
                handle = ok(pyORV3.open(path, WRITE, 1, ""), "opening")
            else:
                ok(pyORV3.flush(handle), "flush")
                mark("saved %s %d" % (name, number))
            if number == 3:
                ok(pyORV3.control(handle, 2, 0), "compacting")
        ok(pyORV3.close(handle, 0), "closing")


# ---- The drive after a cut -------------------------------------------------------------------------


class File:
    """The content of a file on the drive, and its changes since the last sync."""

    def __init__(self):
        self.synced = b""
        self.pending = []  # (offset, data), or (length, None) for a truncation

    def write(self, offset, data):
        for start in range(0, len(data), SECTOR):
            self.pending.append((offset + start, data[start : start + SECTOR]))

    def content(self, kept):
        content = bytearray(self.synced)
        for offset, data in filter(kept, self.pending):
            end = offset if data is None else offset + len(data)
            if data is None:
                del content[end:]
            content.extend(bytes(max(0, end - len(content))))
            if data is not None:
                content[offset:end] = data
        return bytes(content)

    def sync(self):
        self.synced = self.content(lambda change: True)
        self.pending = []


class Drive:
    """Files and names on the drive, and changes of names since the last sync of the folder."""

    def __init__(self):
        self.files = {}  # by inode number
        self.names = {}
        self.synced_names = {}
        self.pending = []  # {name: file or None}, applied completely or not at all

    def set_names(self, names):
        self.pending.append(names)
        self.names.update(names)

    def apply(self, line, data):
        kind, *words = line.split(" ", 2)
        if kind == "create" and not self.names.get(words[1]):  # not an existing file
            self.files[words[0]] = File()
            if not words[1].endswith(" (deleted)"):
                self.set_names({words[1]: self.files[words[0]]})
        elif kind == "name":
            self.set_names({words[1]: self.files[words[0]]})
        elif kind == "rename":
            self.set_names({words[0]: None, words[1]: self.names[words[0]]})
        elif kind == "unlink":
            self.set_names({words[0]: None})
        elif kind == "write":
            self.files[words[0]].write(int(words[1].split()[0]), data)
        elif kind == "truncate":
            self.files[words[0]].pending.append((int(words[1]), None))
        elif kind == "sync":
            self.files[words[0]].sync()
        elif kind == "syncfolder":
            self.synced_names = dict(self.names)
            self.pending = []

    def folder(self, names_kept, data_kept):
        """Return the content by name of the folder; the two filters select the pending changes."""
        names = dict(self.synced_names)
        for change in filter(names_kept, self.pending):
            names.update(change)
        return {
            os.path.basename(name): file.content(data_kept)
            for name, file in names.items()
            if file is not None
        }


def changes_of(log):
    """Yield the lines of a record, each with the written data."""
    with open(log, "rb") as record:
        for line in iter(record.readline, b""):
            line = line.decode().rstrip("\n")
            size = int(line.split()[-1]) if line.startswith("write ") else 0
            yield line, record.read(size)


def cut_states(log, random):
    """Yield (moment, files, saved state by name, state being saved by name) of each cut."""
    drive, saved, under_way, seen = Drive(), {}, {}, set()
    everything, nothing = (lambda change: True), (lambda change: False)
    part = lambda change: random.random() < 0.5
    for number, (line, data) in enumerate(changes_of(log)):
        if line.startswith("mark "):
            kind, name, state = line.split()[1:]
            (saved if kind == "saved" else under_way)[name] = int(state)
        else:
            drive.apply(line, data)
        for names, contents in (
            (nothing, nothing),
            (nothing, everything),
            (everything, nothing),
            (everything, everything),
            (part, part),
            (part, part),
            (everything, part),
            (part, nothing),
        ):
            files = drive.folder(names, contents)
            state = (number if line.startswith("mark") else 0, tuple(sorted(files.items())))
            if hash(state) not in seen:
                seen.add(hash(state))
                yield "%d: %s" % (number, line[:80]), files, dict(saved), dict(under_way)


# ---- After the cut ---------------------------------------------------------------------------------


def check_file(path, last_saved, under_way):
    for mode in (READ, WRITE):
        with torture.opened(path, mode) as handle:
            number = state_of(handle)
            if not last_saved <= number <= max(last_saved, under_way):
                raise Failed("state %d was saved, but the file has state %d" % (last_saved, number))
            if mode == WRITE:
                write_state(handle, 99)
    with torture.opened(path) as handle:
        if state_of(handle) != 99:
            raise Failed("the state saved after the cut is lost")


def check_state(folder, files, saved, under_way):
    for name, content in files.items():
        with open(os.path.join(folder, name), "wb") as file:
            file.write(content)
    for name in NAMES:
        path = os.path.join(folder, name)
        if os.path.exists(path):
            check_file(path, saved.get(name, 0), under_way.get(name, 0))
        elif name in saved:
            raise Failed("%s is missing, but its state %d was saved" % (name, saved[name]))
    left = set(os.listdir(folder)) - set(NAMES)
    if left:
        raise Failed("unexpected files: %s" % left)


def main():
    wanted, random = torture.arguments([0, 1])
    failed = 0
    with torture.folder() as folder:
        log, run, cut = (os.path.join(folder, name) for name in ("log", "run", "cut"))
        os.mkdir(run)
        subprocess.run(
            [sys.executable, "-B", __file__, "--record", run],
            check=True,
            env=dict(os.environ, TORTURE_LOG=log, TORTURE_FOLDER=run),
        )
        states = list(cut_states(log, random))
        possible = len(states)
        for moment, *state in random.sample(states, min(wanted, possible) or possible):
            os.mkdir(cut)
            try:
                check_state(cut, *state)
            except Failed as failure:
                failed += 1
                print("FAILED at %s: %s" % (moment, failure))
            shutil.rmtree(cut)
    print(
        "tried %d power cuts\n%d are possible, %d failed"
        % (min(wanted, possible) or possible, possible, failed)
    )
    return 1 if failed else 0


if __name__ == "__main__":
    if sys.argv[1:2] == ["--record"]:
        shim = torture.shim()
        record_run(sys.argv[2], lambda text: shim.tortureMark(text.encode()))
    else:
        sys.exit(main())
