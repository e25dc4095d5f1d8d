"""Random work on data sources beside a plain model of them, also with the process killed.

    model.py [STEPS [KILLS [SEED]]]

STEPS (default 10,000) operations through two handles of one source and one of another one, each
compared with the model: result, status, now and then all content, and what is read after a
reopening. Then KILLS (default 50) processes that work so and are killed by SIGKILL at a random
moment, while a second process reads beside them: it sees a state that was saved, and afterwards the
last one that was is there.
"""

import copy
import json
import os
import random
import signal
import sys
import time

import pyORV3
import torture
from torture import CREATE, IN_USE, READ, WRITE, Failed, ok, status_of

NOT_SET, NO_RECORD, NO_ENTRY, NO_BLOCK, NOT_FOUND, READ_ONLY = (
    0xEBE88110, 0xEBE8810C, 0xEBE8810D, 0xEBE88102, 0xEBE88115, 0xEBE88104)

# Codes of each class: those with a value in each record, those with one in each entry.
PARAMETERS = {
    torture.MEASUREMENT: ([torture.LIVE_TIME, torture.COMMENT], []),
    torture.NUCLIDES: ([torture.NUCLIDE_NAME], [torture.LINE_ENERGY]),
    torture.PEAKS: ([torture.PEAK_ENERGY], []),
    torture.RESULTS: ([torture.RESULT_NAME], []),
}
TEXTS = {torture.COMMENT: 250, torture.NUCLIDE_NAME: 15, torture.RESULT_NAME: 15}
LARGEST = 12  # records of a class that the operations aim at


class Model:
    """What a source holds: records with values and entries by class, a spectrum."""

    def __init__(self):
        self.classes = {}
        self.channels = None  # QAR_L_CHANNELS
        self.spectrum = None

    def records(self, number):
        return self.classes.get(number, [])

    def channel_count(self):
        stored = None if self.spectrum is None else len(self.spectrum)
        return stored if self.channels is None else self.channels

    def content(self):
        """As content_of gives it of a source."""
        content = {str(number): [
            [[values.get(code) for code in codes] + [[entry.get(code) for code in entry_codes]
                                                     for entry in entries]
             for values, entries in self.records(number)]]
            for number, (codes, entry_codes) in PARAMETERS.items()}
        count = self.channel_count()
        stored = (self.spectrum or [])[:count]
        content["spectrum"] = None if count is None else stored + [0] * (count - len(stored))
        return json.dumps(content)

    # Each operation gives the status, or the status and the result, of the function it is named
    # after, and changes nothing where that is not 0.

    def getParameter(self, code, record, entry):
        records = self.records(code >> 16)
        by_entry = code in PARAMETERS[code >> 16][1]
        entry = max(entry, 1) if by_entry else entry
        if not by_entry and entry > 1:
            return NO_ENTRY, 0
        if record == 1 and not records and entry <= 1:
            return NOT_SET, 0
        if not 1 <= record <= len(records):
            return NO_RECORD, 0
        values, entries = records[record - 1]
        if by_entry and entry > max(len(entries), 1):
            return NO_ENTRY, 0
        holder = (entries[entry - 1] if entries else {}) if by_entry else values
        return (0, holder[code]) if code in holder else (NOT_SET, 0)

    def setParameter(self, code, value, record, entry):
        number = code >> 16
        records = self.records(number)
        by_entry = code in PARAMETERS[number][1]
        entry = max(entry, 1) if by_entry else entry
        if not by_entry and entry > 1:
            return NO_ENTRY
        if not 1 <= record <= len(records) + 1:
            return NO_RECORD
        entries = records[record - 1][1] if record <= len(records) else []
        if by_entry and entry > len(entries) + 1:
            return NO_ENTRY
        records = self.classes.setdefault(number, [])
        if record > len(records):
            records.append([{}, []])
        values, entries = records[record - 1]
        if by_entry:
            entries += [{}] if entry > len(entries) else []
            entries[entry - 1][code] = value
        else:
            values[code] = value
        return 0

    def _items(self, number, record, entry, room):
        """The list that an insertion (room 1) or a deletion is about, and the position in it."""
        records = self.records(number)
        if not 1 <= record <= len(records) + (0 if entry else room):
            return NO_RECORD, None, 0
        if entry == 0:
            return 0, self.classes.setdefault(number, []), record - 1
        entries = records[record - 1][1]
        return (0 if entry <= len(entries) + room else NO_ENTRY), entries, entry - 1

    def insert(self, number, record, entry):
        status, items, position = self._items(number, record, entry, 1)
        if status == 0:
            items.insert(position, {} if entry else [{}, []])
        return status

    def delete(self, number, record, entry):
        status, items, position = self._items(number, record, entry, 0)
        if status == 0:
            del items[position]
        return status

    def deleteBlock(self, number):
        if number == torture.SPECTRUM:
            self.spectrum = None
        elif number in self.classes:
            self.classes[number] = []
        return 0

    def deleteLevel(self, level):
        for number in [torture.PEAKS] * (level == 1) + [torture.RESULTS]:
            self.classes.pop(number, None)
        return 0

    def createBlock(self, number, size):
        if number == torture.SPECTRUM:
            self.spectrum = self.spectrum or []
            self.spectrum += [0] * (rounded(size) - len(self.spectrum))
        else:
            self.classes.setdefault(number, [])
        return 0

    def count(self, number, record):
        if number == torture.SPECTRUM:
            return 0, int(self.spectrum is not None)
        if record == 0:
            return 0, len(self.records(number))
        if record > len(self.records(number)):
            return NO_RECORD, 0
        return 0, len(self.records(number)[record - 1][1])

    def getSpectrum(self, *_):
        spectrum = json.loads(self.content())["spectrum"]
        return (NOT_SET, (0,)) if spectrum is None else (0, tuple(spectrum))

    def setSpectrum(self, channels, *_):
        count = self.channel_count()
        size = rounded(len(channels)) if count is None else min(rounded(len(channels)), count)
        written = (list(channels) + [0] * size)[:size]
        self.spectrum = written + (self.spectrum or [])[size:]
        return 0

    def findNuclideByName(self, name, _):
        names = [values.get(torture.NUCLIDE_NAME, "").lower() if torture.NUCLIDE_NAME in values else None
                 for values, _ in self.records(torture.NUCLIDES)]
        for matches in (name.lower().__eq__, lambda stored: stored.startswith(name.lower())):
            for record, stored in enumerate(names, start=1):
                if stored is not None and matches(stored):
                    return 0, record
        return NOT_FOUND, 0

    def findNuclideByEnergy(self, energy, tolerance, _):
        lines = [(abs(entry[torture.LINE_ENERGY] - energy), record)
                 for record, (_, entries) in enumerate(self.records(torture.NUCLIDES), start=1)
                 for entry in entries if torture.LINE_ENERGY in entry]
        distance, record = min(lines, key=lambda line: line[0], default=(tolerance + 1, 0))
        return (0, record) if distance <= tolerance else (NOT_FOUND, 0)


def rounded(size):
    return max(256, 1 << max(size - 1, 0).bit_length())


def content_of(handle):
    """All content of a source, as the model gives it."""
    def value(code, record, entry):
        status, found = pyORV3.getParameter(handle, code, record, entry)
        if status_of(status) not in (0, NOT_SET):
            raise Failed("getParameter gives 0x%08X" % status_of(status))
        return found if status == 0 else None

    content = {}
    for number, (codes, entry_codes) in PARAMETERS.items():
        content[str(number)] = [[
            [value(code, record, 0) for code in codes] +
            [[value(code, record, entry) for code in entry_codes]
             for entry in range(1, ok(pyORV3.count(handle, number, record), "count") + 1)]
            for record in range(1, ok(pyORV3.count(handle, number, 0), "count") + 1)]]
    status, channels = pyORV3.getSpectrum(handle, 0, 0)
    content["spectrum"] = list(channels) if status == 0 else None
    return json.dumps(content)


class Run:
    """Steps that follow from a seed, on models alone or on the sources as well.

    saved: for each source the step and the content of each saving, in their order.
    """

    NAMES = ("first", "second")

    def __init__(self, seed, folder=None, reopens=True, report=lambda text: None):
        self.random = random.Random(seed)
        self.folder, self.reopens, self.report = folder, reopens, report
        self.models = {name: Model() for name in self.NAMES}
        self.saved = {name: [(-1, Model().content())] for name in self.NAMES}
        self.handles = {}
        self.number = 0
        if folder:
            for name in self.NAMES:
                self.handles[name] = ok(pyORV3.open(self.path(name), CREATE, 1, ""), "creating")
            self.handles["reader"] = ok(pyORV3.open(self.path("first"), READ, 1, ""), "opening")

    def path(self, name):
        return os.path.join(self.folder, name + ".qar")

    def compare(self, what, expected, answer):
        found = ((status_of(answer), answer[1]) if isinstance(answer, tuple) else status_of(answer))
        if found != expected:
            raise Failed("step %d, %s gives %.200r, expected %.200r"
                         % (self.number, what, found, expected))

    def call(self, name, function, *arguments):
        model = self.models[name]
        expected = getattr(model, function)(*arguments)
        if self.folder:
            reads = isinstance(expected, tuple)
            handle = self.handles["reader" if reads and name == "first" and self.number % 2 else name]
            self.compare("%s%r" % (function, arguments), expected,
                         getattr(pyORV3, function)(handle, *arguments))

    def value_of(self, code):
        if code in TEXTS:
            return "".join(self.random.choice("abcÄß€ -") for _ in
                           range(self.random.randrange(TEXTS[code]))).strip() or "x"
        return float(self.random.randrange(2000))

    def place(self):
        """A class, a record and an entry, mostly those that are there or next."""
        number = self.random.choice(list(PARAMETERS))
        return number, self.random.randrange(LARGEST), self.random.choice((0, 0, 1, 2, 3))

    def save(self, name, *functions):
        """Saves by one of the functions, which are called with the handle."""
        self.report("saving %s %d" % (name, self.number))
        content = self.models[name].content()
        self.saved[name].append((self.number, content))
        if self.folder:
            for function in functions:
                ok(function(self.handles[name]), "saving")
        self.report("saved %s %d" % (name, self.number))

    def reopen(self, name):
        self.save(name, lambda handle: pyORV3.close(handle, 0))
        if self.folder:
            self.handles[name] = ok(pyORV3.open(self.path(name), WRITE, 1, ""), "opening")

    def copy(self, name, other):
        kind = self.random.randrange(3)
        source, target = self.models[other], self.models[name]
        number, record, _ = self.place()
        if kind == 0:
            self.models[name] = copy.deepcopy(source)
            expected, arguments = 0, ("copyTo", 0)
        elif kind == 1:
            arguments = ("copyTo", number)
            expected = 0 if number in source.classes and number in target.classes else NO_BLOCK
            if expected == 0:
                target.classes[number] = copy.deepcopy(source.classes[number])
        else:
            into = self.random.randrange(LARGEST)
            arguments = ("moveRecordsTo", number, record, into)
            fits = 1 <= record <= len(source.records(number)) and 1 <= into <= len(target.records(number)) + 1
            expected = 0 if fits else NO_RECORD
            if fits:
                moved = copy.deepcopy(source.records(number)[record - 1])
                target.classes.setdefault(number, [])[into - 1:into] = [moved]
        if self.folder:
            self.compare("%r" % (arguments,), expected, getattr(pyORV3, arguments[0])(
                self.handles[other], self.handles[name], *arguments[1:]))

    def check(self):
        for name, handle in self.handles.items():
            expected = self.models["first" if name == "reader" else name].content()
            if content_of(handle) != expected:
                raise Failed("step %d, %s holds %.600s, expected %.600s"
                             % (self.number, name, content_of(handle), expected))

    def step(self):
        random, name = self.random, self.random.choice(("first", "first", "second"))
        number, record, entry = self.place()
        codes = PARAMETERS[number][0] + PARAMETERS[number][1]
        code = random.choice(codes)
        size = random.randrange(1, 700)
        choice = random.random()
        if choice < 0.32:
            self.call(name, "setParameter", code, self.value_of(code), record, entry)
        elif choice < 0.55:
            self.call(name, "getParameter", code, record, entry)
        elif choice < 0.75:
            function, arguments = random.choice((
                ("count", (number, record)), ("count", (torture.SPECTRUM, 0)),
                ("getSpectrum", (0, 0)), ("findNuclideByName", (random.choice("abcx"), 0)),
                ("findNuclideByEnergy", (float(random.randrange(2000)), 300.0, 0))))
            self.call(name, function, *arguments)
        elif choice < 0.93:
            function, arguments = random.choice((
                ("insert", (number, record, entry)), ("insert", (number, record, 0)),
                ("delete", (number, record, entry)), ("delete", (number, record, 0)),
                ("deleteBlock", (random.choice((number, torture.SPECTRUM)),)),
                ("deleteLevel", (random.choice((1, 2)),)),
                ("createBlock", (random.choice((number, torture.SPECTRUM)), size)),
                ("setSpectrum", (tuple(random.randrange(-9, 2**31) for _ in range(size)), 0, 0))))
            self.call(name, function, *arguments)
        elif choice < 0.95:
            self.copy(name, random.choice(self.NAMES))
        elif choice < 0.98:
            self.save(name, pyORV3.flush)
        elif choice < 0.985:
            self.save(name, lambda handle: pyORV3.control(handle, 2, 0))
        elif choice < 0.99:
            self.reopen(name) if self.reopens else self.save(name, pyORV3.flush)
        elif self.folder:
            self.check()
        self.number += 1

    def close(self):
        self.check()
        for handle in self.handles.values():
            ok(pyORV3.close(handle, 0), "closing")
        for name in self.NAMES:
            with torture.opened(self.path(name)) as handle:
                if content_of(handle) != self.models[name].content():
                    raise Failed("%s is not what was closed" % name)


# ---- Killed processes ------------------------------------------------------------------------------

STEPS_TO_DIE_IN = 400


def work(seed, folder, reopens, report):
    """In a forked process: steps until it is killed; what is saved is reported."""
    run = Run(seed, folder, reopens, lambda text: os.write(report, (text + "\n").encode()))
    os.write(report, b"begun - 0\n")
    for _ in range(STEPS_TO_DIE_IN):
        run.step()
    run.report("ended - 0")
    time.sleep(60)


class Killed:
    """A working process with what it has reported so far."""

    def __init__(self, seed, folder, reopens):
        self.reports, write_end = os.pipe()
        self.process = os.fork()
        if self.process == 0:
            try:
                work(seed, folder, reopens, write_end)
            except BaseException as failure:
                os.write(write_end, ("failed - %s\n" % failure).encode())
            finally:
                os._exit(1)
        os.close(write_end)
        os.set_blocking(self.reports, False)
        self.text = ""
        while "begun" not in self.text:
            self.read()

    def read(self):
        try:
            self.text += os.read(self.reports, 1 << 20).decode()
        except BlockingIOError:
            pass
        if "failed" in self.text:
            raise Failed("the process to be killed: " + self.text[self.text.index("failed"):])

    def last(self, kind, name):
        """The step of the last report of this kind on a source; -1 without one."""
        steps = [int(line.split()[2]) for line in self.text.split("\n")[:-1]
                 if line.startswith("%s %s " % (kind, name))]
        return steps[-1] if steps else -1

    def kill(self):
        os.kill(self.process, signal.SIGKILL)
        os.waitpid(self.process, 0)
        self.read()
        os.close(self.reports)


def check_saved(path, saved, first, last, what):
    """The file holds a state of those saved at the steps first to last."""
    with torture.opened(path) as handle:
        content = content_of(handle)
    if content not in [state for step, state in saved if first <= step <= last]:
        raise Failed("%s sees no state of those saved in steps %d to %d" % (what, first, last))


def kill_one(seed, folder, random):
    reopens = bool(seed % 2)
    plan = Run(seed, reopens=reopens)
    for _ in range(STEPS_TO_DIE_IN):
        plan.step()
    worker = Killed(seed, folder, reopens)
    paths = {name: os.path.join(folder, name + ".qar") for name in Run.NAMES}
    try:
        end = time.monotonic() + random.uniform(0, 0.03)
        while time.monotonic() < end and random.random() < 0.8:
            worker.read()
            name = random.choice(Run.NAMES)
            check_saved(paths[name], plan.saved[name], worker.last("saved", name), STEPS_TO_DIE_IN,
                        "the second process")
            if not reopens:
                status, handle = pyORV3.open(paths[name], WRITE, 1, "")
                if status_of(status) != IN_USE:
                    raise Failed("a second writer gets 0x%08X" % status_of(status))
        time.sleep(max(0, end - time.monotonic()))
    finally:
        worker.kill()
    for name, path in paths.items():
        check_saved(path, plan.saved[name], worker.last("saved", name), worker.last("saving", name),
                    "the next process")
        with torture.opened(path, WRITE) as handle:
            ok(pyORV3.setParameter(handle, torture.LIVE_TIME, 1.0, 1, 0), "writing after a kill")
    left = set(os.listdir(folder)) - {name + ".qar" for name in Run.NAMES}
    if left:
        raise Failed("left behind: %s" % left)


def main():
    steps, kills, random = torture.arguments([10000, 50, 1], __doc__)
    failures, done = 0, 0
    while done < steps and failures < 5:
        seed = random.randrange(1 << 30)
        with torture.folder() as folder:
            try:
                run = Run(seed, folder)
                for _ in range(min(1000, steps - done)):
                    run.step()
                    done += 1
                run.close()
            except Failed as failure:
                failures += 1
                print("FAILED, run %d: %s" % (seed, failure))
    for _ in range(kills):
        seed = random.randrange(1 << 30)
        with torture.folder() as folder:
            try:
                kill_one(seed, folder, random)
            except Failed as failure:
                failures += 1
                print("FAILED, kill %d: %s" % (seed, failure))
    print("tried %d model steps\ntried %d kills\n%d failed" % (done, kills, failures))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
