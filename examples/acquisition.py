#!/usr/bin/env python3
"""Acquire a spectrum, save it every second and show the progress.

    acquisition.py FILE [SECONDS [SECONDS_BETWEEN_SAVES]]

If the process ends in any way, the file contains the spectrum of the last save. Ctrl-C ends the
acquisition early; the file then contains its actual duration.
"""

import random
import sys
import time
from datetime import datetime, timezone
from typing import List, Tuple

import qar
import simulation

COUNTS_PER_SECOND = 20000
DEAD_TIME = 0.06  # fraction of the real time


class Detector:
    """A simulation of the electronics: returns the events since the last call."""

    def __init__(self, seed: int) -> None:
        self.generator = random.Random(seed)
        self.weights = simulation.expected_counts()
        self.last_read = time.monotonic()

    def read(self) -> Tuple[List[int], float]:
        """Return the channels of new events, counted from 0, and the real time in seconds."""
        now = time.monotonic()
        passed, self.last_read = now - self.last_read, now
        events = round(COUNTS_PER_SECOND * passed)
        channels = range(len(self.weights))
        return self.generator.choices(channels, self.weights, k=events), passed


def begin(source: qar.DataSource) -> None:
    source.set_spectrum([0] * simulation.CHANNELS)
    source.set_calibration(simulation.ENERGY, simulation.SHAPE, simulation.EFFICIENCY)
    source["QAR_C_MEASNAME"] = "Mixed nuclide source"
    source["QAR_T_ACQSTART"] = datetime.now(timezone.utc)
    source["QAR_B_ACQACTIVE"] = True


def save(source: qar.DataSource, contents: List[int], real_time: float) -> None:
    source.set_spectrum(contents)
    source["QAR_D_REALTIME"] = real_time
    source["QAR_D_LIVETIME"] = real_time * (1 - DEAD_TIME)
    source["QAR_Q_TOTALCOUNT"] = sum(contents)
    source.flush()  # now the data are on the disk


def acquire(source: qar.DataSource, seconds: float, between_saves: float, seed: int = 417) -> None:
    detector = Detector(seed)
    contents, real_time = [0] * simulation.CHANNELS, 0.0
    while real_time < seconds:
        time.sleep(min(between_saves, max(0.0, seconds - real_time)))
        events, passed = detector.read()
        for channel in events:
            contents[channel] += 1
        real_time += passed
        save(source, contents, real_time)
        done = min(1.0, real_time / seconds)
        bar = ("#" * round(30 * done)).ljust(30, ".")
        print(f"\r{bar} {real_time:6.1f} s {sum(contents):>10,} counts ", end="", flush=True)
    print()


def main(path: str, seconds: str = "10", between_saves: str = "1") -> None:
    with qar.open(path, "x") as source:
        begin(source)
        try:
            acquire(source, float(seconds), float(between_saves))
        except KeyboardInterrupt:
            print("\nended early")
        source["QAR_T_ACQSTOP"] = datetime.now(timezone.utc)
        source["QAR_B_ACQACTIVE"] = False
    with qar.open(path) as source:
        print(f"{path}: {source['QAR_Q_TOTALCOUNT']:,} counts in {source['QAR_D_REALTIME']:.1f} s")


if __name__ == "__main__":
    if not 2 <= len(sys.argv) <= 4:
        sys.exit(__doc__)
    main(*sys.argv[1:])
