"""Time different ways to do the same work in turns and compute the rows of the table."""

import gc
import random
import statistics
import time
from typing import Callable, NamedTuple, Optional

MIN_ROUNDS, MAX_ROUNDS = 5, 201
SECONDS_PER_TURN = 0.001


class Way(NamedTuple):
    """A way to do a piece of work.

    before: called before each run, not timed; may return a tuple of arguments for the run.
    after: called after each run with its result, not timed.
    at_most: the limit of pyORV3's time divided by the time of this way.
    """

    name: str
    run: Callable
    at_most: Optional[float] = None
    before: Optional[Callable] = None
    after: Optional[Callable] = None


class Case(NamedTuple):
    """A piece of work, done by pyORV3 and in other ways."""

    name: str
    own: Callable
    others: list
    before: Optional[Callable] = None
    after: Optional[Callable] = None
    same_result: bool = False  # checked before the timing

    def ways(self):
        return [Way("pyORV3", self.own, None, self.before, self.after), *self.others]


class Row(NamedTuple):
    """A line of the table.

    unit: of `own` and `its`: "s", "bytes" or the counted thing. at_most: the limit as a string, or
    empty. size: the size of the file in bytes, if the row is a point of the plot.
    """

    name: str
    own: float
    unit: str = "s"
    other: str = ""
    its: Optional[float] = None
    ratio: Optional[float] = None
    at_most: str = ""
    is_over: bool = False
    size: int = 0


def ratio_row(name, own, unit, other, its, at_most=None, ratio=None, size=0):
    """Return the row of two measured numbers; ratio: by default that of the numbers."""
    ratio = own / its if ratio is None else ratio
    limit = "" if at_most is None else f"{at_most:g}"
    return Row(name, own, unit, other, its, ratio, limit, bool(limit) and ratio > at_most, size)


def count_row(name, own, unit, other, its, at_most):
    """Return the row of two counts; the limit applies to pyORV3's count."""
    return Row(name, own, unit, other, its, None, f"{at_most} {unit}", own > at_most)


def run_once(way):
    """Do one run with the work before and after it; return (seconds, result)."""
    arguments = (way.before() if way.before is not None else None) or ()
    start = time.perf_counter()
    result = way.run(*arguments)
    seconds = time.perf_counter() - start
    if way.after is not None:
        way.after(result)
    return seconds, result


def time_turn(way, loops):
    """Return the seconds of one run, the mean over the loops."""
    if way.before is not None or way.after is not None:
        return sum(run_once(way)[0] for _ in range(loops)) / loops
    run = way.run
    start = time.perf_counter()
    for _ in range(loops):
        run()
    return (time.perf_counter() - start) / loops


def interleaved_times(ways, seconds):
    """Return the seconds of each way in each round: for each way a list over the rounds.

    In each round every way has one turn, in random order. Otherwise the state of memory and caches
    after one way would always affect the same other way.
    """
    orders = random.Random(0)
    loops = [max(1, round(SECONDS_PER_TURN / max(time_turn(way, 2), 1e-7))) for way in ways]
    times = [[] for _ in ways]
    end = time.perf_counter() + seconds
    for turn in range(MAX_ROUNDS):
        if turn >= MIN_ROUNDS and time.perf_counter() > end:
            break
        for number in orders.sample(range(len(ways)), len(ways)):
            times[number].append(time_turn(ways[number], loops[number]))
    return times


def check_same_result(case):
    own, *others = case.ways()
    _, expected = run_once(own)
    for way in others:
        if run_once(way)[1] != expected:
            raise RuntimeError(f"{case.name}: {way.name} returns a different result")


def compare(case, seconds, size=0):
    """Return the rows of a case, one for each other way.

    A time is the median of all rounds, a ratio the median of the rounds' ratios.
    """
    if case.same_result:
        check_same_result(case)
    gc.collect()
    gc.disable()
    try:
        own, *others = interleaved_times(case.ways(), seconds)
    finally:
        gc.enable()
    median = statistics.median
    if not others:
        yield Row(case.name, median(own), size=size)
    for way, its in zip(case.others, others):
        ratio = median(mine / theirs for mine, theirs in zip(own, its))
        yield ratio_row(
            case.name, median(own), "s", way.name, median(its), way.at_most, ratio, size
        )
