#!/usr/bin/env python3
"""Compare pyORV3 with other ways to do the same work and print a table.

The ways of a row take turns in one run. A time is the median over the turns; a ratio is pyORV3's
number divided by the other one. Numbers above their limit are marked, but the command succeeds.
"""

import argparse
import os
import platform
import resource
import sqlite3
import sys
import tempfile

import calls
import files
import harness
import lookups
import native
import processes
import resources
import sources

PARTS = {
    part.__name__: part
    for part in (
        *(calls.methods, calls.spectra, lookups.lookups, files.saving, files.opening),
        *(files.many, files.growth, resources.written, resources.syncs, resources.memory),
        *(resources.acquisition, processes.together, processes.engine),
    )
}
COLUMNS = (  # title, alignment, width
    *(("work", "<", 55), ("pyORV3", ">", 9), ("compared with", "<", 24), ("its", ">", 9)),
    *(("ratio", ">", 7), ("at most", ">", 7), ("", "<", 4)),
)
RULES = {"<": lambda width: "-" * (width + 1), ">": lambda width: "-" * width + ":"}
UNITS = {
    "s": ((1, "s"), (1e-3, "ms"), (1e-6, "µs"), (1e-9, "ns")),
    "bytes": ((1 << 30, "GiB"), (1 << 20, "MiB"), (1 << 10, "KiB"), (1, "B")),
}


class Bench:
    """The settings of all parts: a folder for files and the seconds for a case."""

    def __init__(self, folder, seconds):
        self.folder, self.seconds = folder, seconds
        self.sources = sources.Sources(folder)

    def compare(self, case, size=0):
        return harness.compare(case, self.seconds, size)


def three_digits(number):
    return f"{number:.3g}" if number < 999.5 else f"{number:,.0f}"


def shown(value, unit):
    if value is None:
        return ""
    scales = UNITS.get(unit, ((1, unit),))
    factor, name = next((scale for scale in scales if value >= scale[0]), scales[-1])
    return f"{three_digits(value / factor)} {name}"


def line(cells):
    """Return a row of a Markdown table with aligned columns."""
    padded = (f"{cell:{side}{width}}" for (_, side, width), cell in zip(COLUMNS, cells))
    return "| " + " | ".join(padded) + " |"


def cells_of(row, previous):
    return (
        row.name if row.name != previous else "",
        shown(row.own, row.unit) if row.own else "",
        row.other,
        shown(row.its, row.unit),
        "" if row.ratio is None else three_digits(row.ratio),
        row.at_most,
        "OVER" if row.is_over else "",
    )


def print_part(part, bench):
    print(f"\n### {part.__name__}: {part.__doc__}\n")
    print(line([title for title, _, _ in COLUMNS]))
    print("|" + "|".join(RULES[side](width + 1) for _, side, width in COLUMNS) + "|", flush=True)
    rows, previous = [], ""
    for row in part(bench):
        print(line(cells_of(row, previous)), flush=True)
        previous = row.name
        rows.append(row)
    return rows


def print_conditions(folder, seconds):
    python = f"{platform.python_implementation()} {platform.python_version()}"
    print(f"{os.cpu_count()} cores, {platform.system()}, {platform.machine()}, {python},", end=" ")
    print(f"SQLite {sqlite3.sqlite_version}; files in {folder}; about {seconds:g} s for each row")
    for name, module in (("cffi", native.cffi), ("h5py", sources.h5py)):
        if module is None:
            print(f"{name} is not installed: left out")


def print_summary(rows):
    limited = [row for row in rows if row.at_most]
    over = [row for row in limited if row.is_over]
    print(f"\n{len(limited)} rows have a limit, {len(over)} are over it")
    for row in over:
        number = shown(row.own, row.unit) if row.ratio is None else three_digits(row.ratio)
        print(f"- {row.name}, to {row.other}: {number}, at most {row.at_most}")


def draw(rows, path):
    try:
        import plot
    except ImportError:
        print("matplotlib is not installed: no plot")
        return
    plot.draw(rows, path)


def parsed(arguments):
    parser = argparse.ArgumentParser(
        prog="benchmark",
        description=__doc__,
        formatter_class=argparse.RawDescriptionHelpFormatter,
        epilog="parts:\n" + "\n".join(f"  {name:<12}{PARTS[name].__doc__}" for name in PARTS),
    )
    default = "/dev/shm" if os.path.isdir("/dev/shm") else None
    parser.add_argument("parts", nargs="*", metavar="PART", help="parts to run (default: all)")
    parser.add_argument(
        "--seconds", type=float, default=0.4, help="approximate time for each row (default: 0.4)"
    )
    parser.add_argument("--folder", default=default, help="folder for files (default: in memory)")
    parser.add_argument("--plot", metavar="PNG", help="plot the results of the part growth")
    chosen = parser.parse_args(arguments)
    for part in chosen.parts:
        if part not in PARTS:
            parser.error(f"unknown part {part!r}; expected one of {', '.join(PARTS)}")
    return chosen


def main(arguments):
    chosen = parsed(arguments)
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))  # for a thousand open files
    print_conditions(chosen.folder or tempfile.gettempdir(), chosen.seconds)
    rows = []
    with tempfile.TemporaryDirectory(dir=chosen.folder) as folder:
        bench = Bench(folder, chosen.seconds)
        for name in chosen.parts or PARTS:
            rows += print_part(PARTS[name], bench)
    print_summary(rows)
    if chosen.plot:
        draw(rows, chosen.plot)


if __name__ == "__main__":
    main(sys.argv[1:])
