#!/usr/bin/env python3
"""Compares calls of pyORV3 with the same work done in other ways, in one process.

    benchmark.py [ROUNDS]

In each round every way is timed once, one after another. A time is the median of all rounds, a
ratio the median of the rounds' ratios, so that a busy moment of the machine does not count. Each
way is checked once for giving the same result before it is timed.
"""

import array
import functools
import os
import random
import statistics
import sys
import tempfile
import time
from typing import Callable, NamedTuple, Optional

import pyORV3
import through_ctypes

try:
    import through_cffi
except ImportError:
    through_cffi = None

CHANNELS, LARGE_CHANNELS, NUCLIDES = 16384, 32768, 2000
PRODUCT = os.path.dirname(os.path.abspath(pyORV3.__file__))
NUCLIDE_CLASS = 0x2004
SECONDS_PER_ROUND = 0.001
TEXT = "Soil, field 7, layer of 5 µm"


class Way(NamedTuple):
    """Another way to do a piece of work; target: what the ratio should be at most."""

    name: str
    run: Callable
    target: Optional[float] = None


class Work(NamedTuple):
    name: str
    run: Callable
    others: list
    same_result: bool = True


def code_of(name):
    return pyORV3.getParameterMetaData(0, 0, name)[1][2]


def ok(answer):
    status, result = answer if isinstance(answer, tuple) else (answer, None)
    if status != 0:
        raise RuntimeError(f"status 0x{status & 0xFFFFFFFF:08X}")
    return result


def make_source(folder, name, channel_count):
    """A new source with a spectrum of contents from 0 to 99,999."""
    handle = ok(pyORV3.open(os.path.join(folder, name), 0x400, 1, ""))
    generator = random.Random(channel_count)
    channels = tuple(generator.randrange(100000) for _ in range(channel_count))
    ok(pyORV3.setParameter(handle, code_of("QAR_L_CHANNELS"), channel_count, 1, 1))
    ok(pyORV3.setSpectrum(handle, channels, 0, 0))
    ok(pyORV3.setParameter(handle, code_of("QAR_C_MEASNAME"), TEXT, 1, 1))
    return handle, channels


def write_nuclides(handle):
    name, energy = code_of("QAR_C_NUCLNAME"), code_of("QAR_D_LINEENERGY")
    for record in range(1, NUCLIDES + 1):
        ok(pyORV3.setParameter(handle, name, f"Nuclide-{record}", record, 1))
        ok(pyORV3.setParameter(handle, energy, 30 + 0.9 * record, record, 1))


def spectrum_work(handle, channels, ctypes_library):
    code, contents = code_of("QAR_L_CHANNELS"), array.array("i", channels).tobytes()
    size = f"{len(channels):,} channels"

    def to_tuple():
        return 0, tuple(array.array("i", contents))

    def to_array():
        array.array("i", channels)
        return 0

    return [
        Work(
            f"getSpectrum, {size}",
            lambda: pyORV3.getSpectrum(handle, 0, 0),
            [
                Way("tuple(array('i', bytes))", to_tuple, 1.3),
                Way("ctypes", lambda: ctypes_library.get_spectrum(handle, code)),
            ],
        ),
        Work(
            f"setSpectrum, {size}",
            lambda: pyORV3.setSpectrum(handle, channels, 0, 0),
            [
                Way("array('i', tuple)", to_array, 0.6),
                Way("ctypes", lambda: ctypes_library.set_spectrum(handle, channels)),
            ],
        ),
    ]


def parameter_work(handle, libraries):
    long_code, text_code = code_of("QAR_L_CHANNELS"), code_of("QAR_C_MEASNAME")
    works = []
    for name, operation, method, arguments, target in [
        ("getParameter, long", "get_long", pyORV3.getParameter, (handle, long_code), 2.0),
        ("getParameter, text", "get_text", pyORV3.getParameter, (handle, text_code), 2.0),
        (
            "setParameter, long",
            "set_long",
            pyORV3.setParameter,
            (handle, long_code, CHANNELS),
            None,
        ),
        ("setParameter, text", "set_text", pyORV3.setParameter, (handle, text_code, TEXT), None),
    ]:
        others = [
            Way(
                label,
                functools.partial(getattr(library, operation), *arguments),
                target if label == "ctypes" else None,
            )
            for label, library in libraries.items()
        ]
        works.append(Work(name, functools.partial(method, *arguments, 1, 1), others))
    return works


def other_work(handle, large, copy, ctypes_library):
    engine = os.path.join(PRODUCT, "peak_search.so")
    energy, copied = 30 + 0.9 * 1234 + 0.2, f"{LARGE_CHANNELS:,} channels, {NUCLIDES:,} records"
    return [
        Work(
            "getIsOpen",
            lambda: pyORV3.getIsOpen(handle),
            [
                Way("ctypes: abs(int) of libc", lambda: ctypes_library.abs(handle), 0.5),
                Way("ctypes: getpagesize() of libc", ctypes_library.getpagesize),
            ],
            same_result=False,
        ),
        Work(
            "count",
            lambda: pyORV3.count(large, NUCLIDE_CLASS, 0),
            [Way("ctypes", lambda: ctypes_library.count(large, NUCLIDE_CLASS))],
        ),
        Work(
            f"findNuclideByEnergy, {NUCLIDES:,} lines",
            lambda: pyORV3.findNuclideByEnergy(large, energy, 0.4, 0),
            [Way("ctypes", lambda: ctypes_library.find_energy(large, energy, 0.4))],
        ),
        Work(
            f"copyTo, {copied}",
            lambda: pyORV3.copyTo(large, copy, 0),
            [Way("ctypes", lambda: ctypes_library.copy(large, copy))],
        ),
        Work(
            "executeNativeEngine, start-up alone",
            lambda: pyORV3.executeNativeEngine("peak_search", "searchPeaks", 0, 0),
            [Way("ctypes", lambda: through_ctypes.run_engine(engine, "searchPeaks", 0, 0))],
        ),
    ]


def time_once(run, loops):
    start = time.perf_counter()
    for _ in range(loops):
        run()
    return (time.perf_counter() - start) / loops


def interleaved_times(runs, rounds):
    """The seconds that each run takes in each round: for each run a list over the rounds."""
    loops = [max(1, round(SECONDS_PER_ROUND / max(time_once(run, 3), 1e-7))) for run in runs]
    times = [[time_once(run, loop) for run, loop in zip(runs, loops)] for _ in range(rounds)]
    return list(zip(*times))


def microseconds(times):
    return f"{statistics.median(times) * 1e6:>9.2f}"


def check_same_result(work):
    expected = work.run()
    for way in work.others:
        if work.same_result and way.run() != expected:
            raise RuntimeError(f"{work.name}: {way.name} gives another result")


def compare(work, rounds):
    check_same_result(work)
    own, *others = interleaved_times([work.run, *(way.run for way in work.others)], rounds)
    name = work.name
    for way, other in zip(work.others, others):
        ratio = statistics.median(mine / its for mine, its in zip(own, other))
        met = ""
        if way.target is not None:
            met = f"{way.target:.1f}  {'met' if ratio <= way.target else 'MISSED'}"
        row = f"{name:<39}{microseconds(own)}  {way.name:<30}{microseconds(other)}"
        row += f"{ratio:>7.2f}   {met}"
        print(row.rstrip())
        name = ""


def main(rounds=201):
    product = os.path.join(PRODUCT, "libORV.so")
    ctypes_library = through_ctypes.Library(product)
    libraries = {"ctypes": ctypes_library}
    if through_cffi:
        libraries["cffi"] = through_cffi.Library(product)
    else:
        print("cffi is not installed; its column is left out.")
    print(f"{'':<39}{'pyORV3':>9}  {'compared with':<30}{'its':>9}")
    print(f"{'':<39}{'us':>9}  {'':<30}{'us':>9}{'ratio':>7}   target")
    with tempfile.TemporaryDirectory() as folder:
        handle, channels = make_source(folder, "benchmark.qar", CHANNELS)
        large, _ = make_source(folder, "large.qar", LARGE_CHANNELS)
        write_nuclides(large)
        copy, _ = make_source(folder, "copy.qar", 256)
        for work in [
            *spectrum_work(handle, channels, ctypes_library),
            *parameter_work(handle, libraries),
            *other_work(handle, large, copy, ctypes_library),
        ]:
            compare(work, rounds)
        for source in (handle, large, copy):
            ok(pyORV3.close(source, 0))


if __name__ == "__main__":
    main(*map(int, sys.argv[1:]))
