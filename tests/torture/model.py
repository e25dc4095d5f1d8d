"""Compare random operations on data sources with a plain model, also after kills.

    model.py [STEPS [KILLS [SEED]]]

Does STEPS (default 10,000) operations through two handles of one source and one of another, and
compares each status and result with the model, sometimes also the whole content and the content
after reopening. Then it kills KILLS (default 50) processes that do the same, with SIGKILL at a
random moment. Meanwhile a second process reads: it must always see a saved state. After the kill,
the last saved state must be in the file.
"""

import copy
import os
import random
import signal
import sys
import time

import pyORV3
import torture
from torture import (
    CREATE,
    IN_USE,
    NO_BLOCK,
    NO_ENTRY,
    NO_RECORD,
    NOT_FOUND,
    NOT_SET,
    PARAMETERS,
    READ,
    SPECTRUM,
    WRITE,
    Failed,
    content_of,
    ok,
    status_of,
)

TEXTS = {torture.COMMENT: 250, torture.NUCLIDE_NAME: 15, torture.RESULT_NAME: 15}
LARGEST = 12  # limit of the record numbers in the operations
STEPS_TO_DIE_IN = 400


def rounded(size):
    return max(256, 1 << max(size - 1, 0).bit_length())


class Model:
    """The content of a source: records by class, each [values by code, entries], and a spectrum.

    Each operation has the name and result of a function of pyORV3. A failed one changes nothing."""

    def __init__(self):
        self.classes = {}
        self.spectrum = None

    def records(self, number):
        return self.classes.get(number, [])

    def content(self):
        """Return the content in the form of torture.content_of."""
        content = {
            number: [
                [values.get(code) for code in codes]
                + [[entry.get(code) for code in entry_codes] for entry in entries]
                for values, entries in self.records(number)
            ]
            for number, (codes, entry_codes) in PARAMETERS.items()
        }
        content[SPECTRUM] = self.spectrum
        return repr(content)

    def place(self, code, record, entry, room):
        """Return the status for the position of a value, its record (None: new), and its entry."""
        records, by_entry = self.records(code >> 16), code in PARAMETERS[code >> 16][1]
        entry = max(entry, 1) if by_entry else entry
        if not by_entry and entry > 1:
            return NO_ENTRY, None, entry
        if not 1 <= record <= len(records) + room:
            return NO_RECORD, None, entry
        found = records[record - 1] if record <= len(records) else None
        count = len(found[1]) if found else 0
        missing = by_entry and entry > (count + 1 if room else max(count, 1))
        return (NO_ENTRY if missing else 0), found, entry if by_entry else 0

    def getParameter(self, code, record, entry):
        status, found, entry = self.place(code, record, entry, 0)
        if record == 1 and status == NO_RECORD and entry <= 1:
            return NOT_SET, 0
        if status != 0:
            return status, 0
        holder = found[0] if entry == 0 else (found[1] + [{}])[entry - 1]
        return (0, holder[code]) if code in holder else (NOT_SET, 0)

    def setParameter(self, code, value, record, entry):
        status, found, entry = self.place(code, record, entry, 1)
        if status == 0:
            found = found or [{}, []]
            if record > len(self.records(code >> 16)):
                self.classes.setdefault(code >> 16, []).append(found)
            if entry > len(found[1]):
                found[1].append({})
            (found[1][entry - 1] if entry else found[0])[code] = value
        return status

    def items(self, number, record, entry, room):
        """Return the status, list and index of an insertion (room 1) or deletion (room 0)."""
        records = self.records(number)
        if not 1 <= record <= len(records) + (0 if entry else room):
            return NO_RECORD, None, 0
        if entry == 0:
            return 0, self.classes.setdefault(number, []), record - 1
        entries = records[record - 1][1]
        return (0 if entry <= len(entries) + room else NO_ENTRY), entries, entry - 1

    def insert(self, number, record, entry):
        status, items, position = self.items(number, record, entry, 1)
        if status == 0:
            items.insert(position, {} if entry else [{}, []])
        return status

    def delete(self, number, record, entry):
        status, items, position = self.items(number, record, entry, 0)
        if status == 0:
            del items[position]
        return status

    def deleteBlock(self, number):
        if number == SPECTRUM:
            self.spectrum = None
        elif number in self.classes:
            self.classes[number] = []
        return 0

    def deleteLevel(self, level):
        for number in [torture.PEAKS] * (level == 1) + [torture.RESULTS]:
            self.classes.pop(number, None)
        return 0

    def createBlock(self, number, size):
        if number == SPECTRUM:
            self.spectrum = self.spectrum or []
            self.spectrum += [0] * (rounded(size) - len(self.spectrum))
        else:
            self.classes.setdefault(number, [])
        return 0

    def count(self, number, record):
        if number == SPECTRUM:
            return 0, int(self.spectrum is not None)
        records = self.records(number)
        if record > len(records):
            return NO_RECORD, 0
        return 0, len(records[record - 1][1]) if record else len(records)

    def getSpectrum(self, *_):
        return (NOT_SET, (0,)) if self.spectrum is None else (0, tuple(self.spectrum))

    def setSpectrum(self, channels, *_):
        stored = self.spectrum or []
        size = (
            rounded(len(channels))
            if self.spectrum is None
            else min(rounded(len(channels)), len(stored))
        )
        self.spectrum = (list(channels) + [0] * size)[:size] + stored[size:]
        return 0

    def findNuclideByName(self, name, _):
        names = [values.get(torture.NUCLIDE_NAME) for values, _ in self.records(torture.NUCLIDES)]
        for matches in (name.__eq__, lambda stored: stored.startswith(name)):
            for record, stored in enumerate(names, start=1):
                if stored is not None and matches(stored.lower()):
                    return 0, record
        return NOT_FOUND, 0

    def findNuclideByEnergy(self, energy, tolerance, _):
        lines = [
            (abs(entry[torture.LINE_ENERGY] - energy), record)
            for record, (_, entries) in enumerate(self.records(torture.NUCLIDES), start=1)
            for entry in entries
            if torture.LINE_ENERGY in entry
        ]
        distance, record = min(lines, key=lambda line: line[0], default=(tolerance + 1, 0))
        return (0, record) if distance <= tolerance else (NOT_FOUND, 0)

    def copyTo(self, target, number):
        """Copy from this model to the target."""
        if number == 0:
            target.classes, target.spectrum = copy.deepcopy((self.classes, self.spectrum))
        elif number not in self.classes or number not in target.classes:
            return NO_BLOCK
        else:
            target.classes[number] = copy.deepcopy(self.classes[number])
        return 0

    def moveRecordsTo(self, target, number, record, into):
        if not (
            1 <= record <= len(self.records(number))
            and 1 <= into <= len(target.records(number)) + 1
        ):
            return NO_RECORD
        moved = copy.deepcopy(self.records(number)[record - 1])
        target.classes.setdefault(number, [])[into - 1 : into] = [moved]
        return 0


class Run:
    """Steps determined by a seed, on the models alone or, if there is a folder, also on sources.

    saved: for each source the step and the content of each save."""

    NAMES = ("first", "second")

    def __init__(self, seed, folder=None, reopens=True, report=lambda text: None):
        self.random, self.folder, self.reopens = random.Random(seed), folder, reopens
        self.report, self.number, self.handles = report, 0, {}
        self.saving = self.random.choice((0.03, 0.3))  # the share of steps that save
        self.models = {name: Model() for name in self.NAMES}
        self.saved = {name: [(-1, Model().content())] for name in self.NAMES}
        if folder:
            for name in self.NAMES:
                self.open(name, CREATE)

    def call(self, name, function, *arguments):
        """Call the function; the name of a source among the arguments is replaced by the source."""
        expected = getattr(self.models[name], function)(
            *[self.models.get(item, item) if item in self.NAMES else item for item in arguments]
        )
        if self.folder:
            reads = isinstance(expected, tuple) and name == "first" and self.number % 2
            answer = getattr(pyORV3, function)(
                self.handles["reader" if reads else name],
                *[self.handles[item] if item in self.NAMES else item for item in arguments],
            )
            found = (
                (status_of(answer), answer[1]) if isinstance(answer, tuple) else status_of(answer)
            )
            if found != expected:
                raise Failed(
                    "step %d, %s%.60r returns %.200r, expected %.200r"
                    % (self.number, function, arguments, found, expected)
                )

    def value_of(self, code):
        if code in TEXTS:
            length = self.random.randrange(TEXTS[code])
            return "".join(self.random.choice("abcÄß€ -") for _ in range(length)).strip() or "x"
        return float(self.random.randrange(2000))

    def save(self, name, function):
        self.report("saving %s %d" % (name, self.number))
        self.saved[name].append((self.number, self.models[name].content()))
        if self.folder:
            ok(function(self.handles[name]), "saving")
        self.report("saved %s %d" % (name, self.number))

    def reopen(self, name):
        """Close all handles of the source, so that the next call reads the file."""
        self.save(name, lambda handle: pyORV3.close(handle, 0))
        if self.folder:
            if name == "first":
                ok(pyORV3.close(self.handles["reader"], 0), "closing")
            self.open(name, WRITE)
            self.check()

    def open(self, name, mode):
        path = os.path.join(self.folder, name + ".qar")
        self.handles[name] = ok(pyORV3.open(path, mode, 1, ""), "opening")
        if name == "first":
            self.handles["reader"] = ok(pyORV3.open(path, READ, 1, ""), "opening")

    def check(self):
        for name, handle in self.handles.items():
            expected, found = self.models[
                "first" if name == "reader" else name
            ].content(), content_of(handle)
            if found != expected:
                raise Failed(
                    "step %d, %s contains %.600s, expected %.600s"
                    % (self.number, name, found, expected)
                )

    def step(self):
        random, name, other = (
            self.random,
            self.random.choice(("first",) + self.NAMES),
            self.random.choice(self.NAMES),
        )
        number, entry = random.choice(list(PARAMETERS) + [torture.NUCLIDES] * 2), random.choice(
            (0, 0, 1, 2, 3)
        )
        record = random.randrange(min(len(self.models[name].records(number)) + 2, LARGEST))
        code, size = random.choice(sum(PARAMETERS[number], [])), random.randrange(1, 700)
        block, choice = random.choice((number, SPECTRUM)), random.random()
        if random.random() < self.saving:
            if choice < 0.5 and self.reopens:
                self.reopen(name)
            elif choice < 0.9:
                self.save(name, pyORV3.flush)
            else:
                self.save(name, lambda handle: pyORV3.control(handle, 2, 0))
        elif choice < 0.01:
            self.check()
        elif choice < 0.32:
            self.call(name, "setParameter", code, self.value_of(code), record, entry)
        else:
            self.call(
                name,
                *random.choice(
                    [("getParameter", code, record, entry)] * 5
                    + [
                        ("count", number, record),
                        ("count", SPECTRUM, 0),
                        ("getSpectrum", 0, 0),
                        ("findNuclideByName", random.choice("abcx"), 0),
                        ("findNuclideByEnergy", float(random.randrange(2000)), 300.0, 0),
                        ("deleteBlock", block),
                        ("deleteLevel", random.choice((1, 2))),
                        ("createBlock", block, size),
                        ("copyTo", other, random.choice((0, number))),
                        (
                            "setSpectrum",
                            tuple(random.randrange(-9, 2**31) for _ in range(size)),
                            0,
                            0,
                        ),
                    ]
                    + [
                        ("insert", number, record, entry),
                        ("insert", number, record, 0),
                        ("delete", number, record, entry),
                        ("delete", number, record, 0),
                        ("moveRecordsTo", other, number, record, random.randrange(1, 4)),
                    ]
                    * 2
                ),
            )
        self.number += 1

    def close(self):
        self.check()
        for handle in self.handles.values():
            ok(pyORV3.close(handle, 0), "closing")
        for name, model in self.models.items():
            with torture.opened(os.path.join(self.folder, name + ".qar")) as handle:
                if content_of(handle) != model.content():
                    raise Failed("%s has another content than before closing" % name)


# ---- Killed processes ------------------------------------------------------------------------------


class Worker:
    """A forked process that does steps until it is killed, and its reports so far."""

    def __init__(self, seed, folder, reopens):
        self.reports, write_end = os.pipe()
        self.process = os.fork()
        if self.process == 0:
            try:
                run = Run(
                    seed, folder, reopens, lambda text: os.write(write_end, (text + "\n").encode())
                )
                run.report("begun - 0")
                for _ in range(STEPS_TO_DIE_IN):
                    run.step()
                time.sleep(60)
            except BaseException as failure:
                os.write(write_end, ("begun or failed: %r\n" % failure).encode())
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
            raise Failed("the worker process " + self.text[self.text.index("failed") :])

    def last(self, kind, name):
        """Return the step of the last report of this kind on a source, or -1 if there is none."""
        steps = [
            int(line.split()[2])
            for line in self.text.split("\n")[:-1]
            if line.startswith("%s %s " % (kind, name))
        ]
        return steps[-1] if steps else -1

    def kill(self):
        os.kill(self.process, signal.SIGKILL)
        os.waitpid(self.process, 0)
        self.read()
        os.close(self.reports)


def check_saved(path, saved, first, last, who):
    with torture.opened(path) as handle:
        # If a writer saves between two reads, classes that are read later show the new state.
        content, again = None, content_of(handle)
        while content != again:
            content, again = again, content_of(handle)
    if content not in [state for step, state in saved if first <= step <= last]:
        raise Failed("%s does not see a state saved in steps %d to %d" % (who, first, last))


def kill_one(seed, folder, random):
    reopens = bool(seed % 2)
    plan = Run(seed, reopens=reopens)
    for _ in range(STEPS_TO_DIE_IN):
        plan.step()
    paths = {name: os.path.join(folder, name + ".qar") for name in Run.NAMES}
    worker = Worker(seed, folder, reopens)
    try:
        end = time.monotonic() + random.uniform(0, 0.03)
        while time.monotonic() < end and random.random() < 0.8:
            worker.read()
            name = random.choice(Run.NAMES)
            check_saved(
                paths[name],
                plan.saved[name],
                worker.last("saved", name),
                STEPS_TO_DIE_IN,
                "the second process",
            )
            if not reopens and status_of(pyORV3.open(paths[name], WRITE, 1, "")) != IN_USE:
                raise Failed("a second writer could open the file")
        time.sleep(max(0, end - time.monotonic()))
    finally:
        worker.kill()
    for name, path in paths.items():
        check_saved(
            path,
            plan.saved[name],
            worker.last("saved", name),
            worker.last("saving", name),
            "the next process",
        )
        with torture.opened(path, WRITE) as handle:
            ok(pyORV3.setParameter(handle, torture.LIVE_TIME, 1.0, 1, 0), "writing after a kill")
    if len(os.listdir(folder)) != len(paths):
        raise Failed("unexpected files: %s" % os.listdir(folder))


def run_one(seed, folder, steps):
    run = Run(seed, folder)
    for _ in range(steps):
        run.step()
    run.close()


def main():
    steps, kills, random = torture.arguments([10000, 50, 1])
    failed = 0
    works = [(run_one, min(1000, steps - done)) for done in range(0, steps, 1000)]
    for work, argument in works + [(kill_one, random)] * kills:
        seed = random.randrange(1 << 30)
        with torture.folder() as folder:
            try:
                work(seed, folder, argument)
            except Failed as failure:
                failed += 1
                print("FAILED %s %d: %s" % (work.__name__, seed, failure))
    print("tried %d model steps\ntried %d kills\n%d failed" % (steps, kills, failed))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
