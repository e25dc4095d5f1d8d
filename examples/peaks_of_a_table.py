#!/usr/bin/env python3
"""Find the peaks of a spectrum in a table with two columns, channel and counts.

    peaks_of_a_table.py TABLE FILE

The script calibrates with the lines of simulation.py and the channels near their peaks.
"""

import csv
import sys

import qar


def main(table: str, path: str) -> None:
    counts = [int(row[1]) for row in csv.reader(open(table))]
    with qar.open(path, "x") as source:
        source.set_spectrum(counts)
        source.calibrate({59.541: 119, 661.657: 1327, 1332.492: 2673})
        for peak in source.analyse().peaks:
            print(f"{peak.energy:8.2f} keV  {peak.area:7.0f} ± {peak.area_uncertainty:.0f}")


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    main(*sys.argv[1:])
