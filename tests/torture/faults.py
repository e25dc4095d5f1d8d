"""Make each C library call of each of the 27 methods fail.

    faults.py [FAULTS [SEED]]

FAULTS is the number of faults to try, chosen at random; 0 (default) tries all. Runs under the shim,
once for each fault. A method with a failing call must return a status or raise MemoryError. If it
succeeds, it must return the same result as without the fault. If it fails, it must succeed when
repeated, and all later results and the files must be the same as without the fault. Descriptors
must not leak, and neither must memory if a reading method fails repeatedly in the same way.
"""

import ctypes
import gc
import os
import sys

import pyORV3
import torture
from torture import Failed, status_of

shim = torture.shim()
FAILURES_ON = 40  # consecutive failing calls, few enough for the interpreter to recover

CONTENT = tuple(range(1000))


# The scenario. Each step is the method, its arguments ("a" and "b" are replaced by handles), True
# if it only reads, and for `open` the name of the handle that it returns.
def steps(folder):
    first, second = (os.path.join(folder, name) for name in ("first.qar", "second.qar"))
    number, name = torture.LIVE_TIME, torture.NUCLIDE_NAME
    return [
        ("open", (first, torture.CREATE, 1, ""), False, "a"),
        ("open", (second, torture.CREATE, 1, "x"), False, "b"),
        ("setParameter", ("a", number, 1.5, 1, 0), False, None),
        ("setParameter", ("a", torture.COMMENT, "Übung \u20ac" * 20, 1, 0), False, None),
        ("setParameter", ("a", 0x20000012, "2024-01-24T21:02:12.000Z", 1, 0), False, None),
        ("createBlock", ("a", torture.SPECTRUM, 1000), False, None),
        ("setSpectrum", ("a", CONTENT, 0, 0), False, None),
        ("setParameter", ("a", name, "Cs-137", 1, 0), False, None),
        ("setParameter", ("a", torture.LINE_ENERGY, 661.66, 1, 1), False, None),
        ("setParameter", ("a", torture.LINE_YIELD, 0.85, 1, 1), False, None),
        ("setParameter", ("a", 0x20020001, 0.0, 1, 1), False, None),
        ("setParameter", ("a", 0x20020001, 1.0, 1, 2), False, None),
        ("setParameter", ("a", 0x20020002, 4.0, 1, 1), False, None),
        ("setParameter", ("a", 0x20100005, "sequence", 1, 0), False, None),
        ("insert", ("a", torture.NUCLIDES, 1, 0), False, None),
        ("delete", ("a", torture.NUCLIDES, 1, 0), False, None),
        ("flush", ("a",), False, None),
        ("getParameter", ("a", number, 1, 0), True, None),
        ("getParameter", ("a", torture.COMMENT, 1, 0), True, None),
        ("getParameter", ("a", 0x20000012, 1, 0), True, None),
        ("getParameterMetaData", (0, 0, "QAR_D_LIVETIME"), True, None),
        ("getParameterMetaData", (0, 0, "TORTURE_VARIABLE"), True, None),
        ("getParameterMetaData", (0, number, ""), True, None),
        ("getSpectrum", ("a", 0, 0), True, None),
        ("findNuclideByName", ("a", "cs", 0), True, None),
        ("findNuclideByEnergy", ("a", 661.7, 1.0, 0), True, None),
        ("count", ("a", torture.NUCLIDES, 0), True, None),
        ("getStatus", ("a",), True, None),
        ("getIsOpen", ("a",), True, None),
        ("getIsDirty", ("a",), True, None),
        ("setIsDirty", ("a",), True, None),
        ("reverify", ("a",), True, None),
        ("control", ("a", 3, 0), True, None),
        ("executeNativeEngine", ("peak_search", "searchPeaks", "a", 0), False, None),
        ("enumerateDefinitions", (), True, None),
        ("copyAnalysisSequenceTo", ("a", "b"), False, None),
        ("copyTo", ("a", "b", 0), False, None),
        ("moveRecordsTo", ("a", "b", torture.NUCLIDES, 1, 2), False, None),
        ("deleteLevel", ("b", 1), False, None),
        ("deleteBlock", ("b", torture.NUCLIDES), False, None),
        ("close", ("b", 0), False, None),
        ("open", ("second", 0x1, 0, ""), False, "b"),
        ("getSpectrum", ("b", 0, 0), True, None),
        ("close", ("b", 0), False, None),
        ("close", ("a", 0), False, None),
        ("open", (first, torture.WRITE, 1, ""), False, "a"),
        ("setParameter", ("a", number, 2.5, 1, 0), False, None),
        ("close", ("a", 0), False, None),
    ]


def call(world, step, kind=-1, nth=1, times=0):
    """Return the answer of the step (None for MemoryError) and True if a call failed."""
    method, arguments, _, kept = step
    given = tuple(world.get(item, item) if isinstance(item, str) else item for item in arguments)
    function, answer, arm, disarm = (
        getattr(pyORV3, method),
        None,
        shim.tortureArm,
        shim.tortureDisarm,
    )
    try:
        arm(kind, nth, times)
        answer = function(*given)
    except MemoryError:
        pass
    while True:
        try:
            fired = disarm()
            break
        except MemoryError:
            pass
    if kept is not None and answer is not None:
        world[kept] = answer[1]
        answer = status_of(answer), None  # handles differ from run to run
    return answer, fired > 0


def succeeded(answer):
    """Return True if the answer means success; getIsOpen and getIsDirty have no status."""
    return answer is not None and status_of(answer) in (0, 1)


def descriptors():
    return len(os.listdir("/proc/self/fd"))


def live_bytes_after(world, step, fault):
    for _ in range(8):
        call(world, step, *fault)
    gc.collect()  # empties the interpreter's free lists
    sys._clear_type_cache()  # holds references to the names of attributes
    return shim.tortureLiveBytes()


def require_no_leak(world, step, fault):
    """Raise Failed if memory use keeps growing; caches of the interpreter stop growing."""
    size = live_bytes_after(world, step, fault)
    for _ in range(5):
        before, size = size, live_bytes_after(world, step, fault)
        if size <= before + 64:
            return
    raise Failed("8 calls leak %d bytes" % (size - before))


def run(folder, reference=None, fault_step=-1, fault=None, counts=None):
    """Run all steps, one of them with a fault, and compare the answers with the reference."""
    world, answers = {}, []
    os.environ["ORV_INPUTS"] = folder
    for index, step in enumerate(steps(folder)):
        if counts is not None:
            answer, _ = call(world, step)
            kinds = range(100)
            counts += [(index, kind, shim.tortureCalls(kind)) for kind in kinds[:KINDS]]
        elif index == fault_step:
            answer, fired = call(world, step, *fault)
            if step[0] == "enumerateDefinitions" and fired and succeeded(answer):
                answer = reference[index]  # a failure ends its list and is not reported
            if answer != reference[index] and (not fired or succeeded(answer)):
                raise Failed("returns %.100r, expected %.100r" % (answer, reference[index]))
            if answer != reference[index]:
                if step[3] in world and step[0] == "open":
                    pyORV3.close(world[step[3]], 0)
                answer, _ = call(world, step)
            if step[2]:
                require_no_leak(world, step, fault)
        else:
            answer, _ = call(world, step)
        if reference is not None and answer != reference[index]:
            raise Failed(
                "%s step %d, %s, returns %.100r, expected %.100r"
                % (
                    "the repeated" if index == fault_step else "the later",
                    index,
                    step[0],
                    answer,
                    reference[index],
                )
            )
        answers.append(answer)
    return answers


KINDS = next(kind for kind in range(100) if shim.tortureKind(kind) is None)


def contents(folder):
    """Return the content of each file in the folder."""
    result = {}
    for name in sorted(os.listdir(folder)):
        with torture.opened(os.path.join(folder, name)) as handle:
            result[name] = torture.content_of(handle)
    return result


def try_fault(folder, reference, final, step, fault):
    before = descriptors()
    run(folder, reference, step, fault)
    if descriptors() != before:
        raise Failed("a descriptor is leaked")
    if contents(folder) != final:
        raise Failed("the content of the files differs from the run without a fault")


def main():
    wanted, random = torture.arguments([0, 1])
    # Load the engine first: the system's loader cannot recover if memory runs out meanwhile.
    ctypes.CDLL(os.path.join(os.path.dirname(pyORV3.__file__), "peak_search.so"))
    os.environ["TORTURE_VARIABLE"] = "value"
    counts = []
    with torture.folder() as folder:
        run(folder)
    with torture.folder() as folder:
        reference = run(folder, counts=counts)
        final = contents(folder)
    for index, answer in enumerate(reference):
        if not succeeded(answer):
            raise Failed("step %d without a fault returns %r" % (index, answer))
    faults = [
        (step, (kind, nth, times))
        for step, kind, calls in counts
        for nth in range(1, calls + 1)
        for times in (1, FAILURES_ON)
    ]
    possible = len(faults)
    random.shuffle(faults)
    del faults[wanted or possible :]
    failed = 0
    for step, fault in faults:
        with torture.folder() as folder:
            failure = torture.failure_of(lambda: try_fault(folder, reference, final, step, fault))
        if failure:
            failed += 1
            kind, nth, times = fault
            print(
                "FAILED %s: %s %d%s: %s"
                % (
                    steps(folder)[step][0],
                    shim.tortureKind(kind).decode(),
                    nth,
                    "" if times == 1 else " on",
                    failure,
                ),
                flush=True,
            )
    print(
        "tried %d faults in the 27 methods\n%d are possible, %d failed"
        % (len(faults), possible, failed)
    )
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
