"""Kill writers in the middle of a save and put another file beside the remaining journal.

    journals.py [KILLS [SEED]]

A process saves one state after the other until it is killed. If that leaves a journal, the file is
then removed, moved, replaced, restored from a backup or saved by its other name. Afterwards each
file must contain one complete state, the one that was last written to it.
"""

import os
import shutil
import signal
import sys
import time

import pyORV3
import torture
from power_cut import state_of, write_state
from torture import CREATE, READ, WRITE, Failed, ok

OTHER, RESTORED, NEW = 7000, 8000, 9000


def save_states(path, first, mode=WRITE):
    """Save the first state; return the open handle, which can save further ones."""
    handle = ok(pyORV3.open(path, mode, 1, ""), "opening")
    write_state(handle, first)
    ok(pyORV3.flush(handle), "flush")
    return handle


def save_state(path, number, mode=WRITE):
    ok(pyORV3.close(save_states(path, number, mode), 0), "closing")


def killed_writer(path, random):
    """Start and kill a process that saves states 1, 2, ...; return True if a journal is left."""
    process = os.fork()
    if process == 0:
        handle = save_states(path, 1)
        for number in range(2, 1 << 20):
            write_state(handle, number)
            pyORV3.flush(handle)
    time.sleep(random.uniform(0.002, 0.02))
    os.kill(process, signal.SIGKILL)
    os.waitpid(process, 0)
    return os.path.exists(path + "-journal")


def check_state(path, *expected):
    """Require a sound file in both modes, in one of the states, or in any if none is given."""
    for mode in (READ, WRITE):
        with torture.opened(path, mode) as handle:
            ok(pyORV3.reverify(handle), "checking")
            number = state_of(handle)
            if expected and number not in expected:
                raise Failed("%s is in state %d, expected %s" % (path, number, expected))
    return number


# Actions after the kill. path: the file of the killed writer. backup: a copy of that file in state
# RESTORED. link: another hard link to the file.


def create_after_removal(path, backup, link):
    os.remove(path)
    os.remove(link)
    save_state(path, NEW, CREATE)
    check_state(path, NEW)


def create_after_move(path, backup, link):
    """Require that the renamed journal recovers the moved file."""
    moved = path + ".moved"
    os.rename(path, moved)
    save_state(path, NEW, CREATE)
    check_state(path, NEW)
    if os.path.exists(path + ".journal"):  # an empty journal is not renamed
        os.rename(path + ".journal", moved + "-journal")
    os.remove(link)
    check_state(moved)


def replace(path, backup, link):
    save_state(path + ".new", NEW, CREATE)
    os.replace(path + ".new", path)
    check_state(path, NEW)


def restore_by_renaming(path, backup, link):
    os.replace(backup, path)
    check_state(path, RESTORED)


def restore_in_place(path, backup, link):
    shutil.copyfile(backup, path)
    check_state(path, RESTORED)


def restore_and_save(path, backup, link):
    """Save the backup once: its change counter gets as close to that of the journal as possible."""
    save_state(backup, NEW)
    os.replace(backup, path)
    check_state(path, NEW)


def save_by_other_name(path, backup, link):
    """Require that a save by the other name is kept, if the file is sound by that name."""
    status, handle = pyORV3.open(link, WRITE, 1, "")
    if status != 0 or pyORV3.reverify(handle) != 0:
        if status == 0:
            pyORV3.close(handle, 0)
        check_state(path)  # opening by the writer's name applies the journal
        return
    pyORV3.close(handle, 0)
    save_state(link, NEW)
    check_state(path, NEW)
    check_state(link, NEW)


AFTERWARDS = (
    create_after_removal,
    create_after_move,
    replace,
    restore_by_renaming,
    restore_in_place,
    restore_and_save,
    save_by_other_name,
)


def kill_one(folder, random):
    """Return the name of the action after the kill, or None if no journal was left."""
    path, backup, link = (os.path.join(folder, name) for name in ("a.qar", "backup.qar", "b.qar"))
    save_state(path, RESTORED, CREATE)
    shutil.copyfile(path, backup)
    os.link(path, link)
    if not killed_writer(path, random):
        return None
    afterwards = random.choice(AFTERWARDS)
    afterwards(path, backup, link)
    return afterwards.__name__


def main():
    kills, random = torture.arguments([300, 1])
    failed, done = 0, dict.fromkeys((action.__name__ for action in AFTERWARDS), 0)
    for _ in range(kills * 20):
        with torture.folder() as folder:
            try:
                action = kill_one(folder, random)
            except Failed as failure:
                failed += 1
                print("FAILED %s" % failure)
                action = AFTERWARDS[0].__name__
        if action:
            done[action] += 1
        if sum(done.values()) == kills:
            break
    for action, count in done.items():
        print("tried %d kills, then %s" % (count, action.replace("_", " ")))
    print("tried %d kills that left a journal\n%d failed" % (sum(done.values()), failed))
    return 1 if failed or not sum(done.values()) else 0


if __name__ == "__main__":
    sys.exit(main())
