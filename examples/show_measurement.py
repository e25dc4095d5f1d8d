#!/usr/bin/env python3
"""Shows a measurement: its parameters in a table, its spectrum in the terminal.

    show_measurement.py FILE

Where matplotlib is installed the spectrum is also saved as a PNG file beside FILE.
"""

import os
import sys

import plot
import pyORV3
from qar import DataSource, describe

CLASSES = (0x2000, 0x2001)  # acquisition, sample


def set_parameters(source):
    """Name, description and value of every parameter of the classes that the file has.

    A code is the class in the high and a number in the low half, so a script can try them all.
    """
    for class_number in CLASSES:
        for number in range(1, 256):
            code = class_number << 16 | number
            status, description = pyORV3.getParameterMetaData(source.handle, code, "")
            if status != 0:
                continue  # the dictionary has no such parameter
            value = source.find(description[0])
            if value is not None:
                yield description[0], description[1], value


def shown(value):
    return f"{value:,.6g}" if isinstance(value, float) else str(value)


def show_parameters(source):
    for name, description, value in set_parameters(source):
        print(f"  {name:<18} {shown(value):<30} {description[:42]}")


def show_calibrations(source):
    for name in ("QAR_D_ENERGYCAL", "QAR_D_SHAPECAL", "QAR_D_EFFICCAL"):
        coefficients = ", ".join(f"{value:g}" for value in source.column(name))
        print(f"  {name:<18} {coefficients:<30} {describe(name)[1][:42]}")


def main(path):
    with DataSource(path) as source:
        channels = source.spectrum()
        energy = source.column("QAR_D_ENERGYCAL")
        title = source.get("QAR_C_MEASNAME")
        print(f"{os.path.basename(path)}: {title}")
        show_parameters(source)
        show_calibrations(source)

    def energy_at(channel):
        return sum(c * channel**power for power, c in enumerate(energy))

    print()
    print("\n".join(plot.terminal_plot(channels, energy_at)))
    picture = os.path.splitext(path)[0] + ".png"
    if plot.save_picture(channels, energy_at, title, picture):
        print(f"{picture}: the same as a picture")


if __name__ == "__main__":
    main(*sys.argv[1:])
