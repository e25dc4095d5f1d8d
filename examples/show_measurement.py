#!/usr/bin/env python3
"""Shows a measurement: its parameters in a table, its spectrum in the terminal.

    show_measurement.py FILE

Where matplotlib is installed the spectrum is also saved as a PNG file beside FILE.
"""

import os
import sys
import textwrap

import plot
import pyORV3
from qar import DataSource, describe, polynomial

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


def show_row(name, value, description):
    text = f"{value:,.6g}" if isinstance(value, float) else str(value)
    print(f"  {name:<18} {text:<30} {textwrap.shorten(description, 44, placeholder=' …')}")


def show_parameters(source):
    for name, description, value in set_parameters(source):
        show_row(name, value, description)


def show_calibrations(source):
    for name in ("QAR_D_ENERGYCAL", "QAR_D_SHAPECAL", "QAR_D_EFFICCAL"):
        coefficients = ", ".join(f"{value:g}" for value in source.column(name))
        show_row(name, coefficients, describe(name)[1])


def main(path):
    with DataSource(path) as source:
        channels = source.spectrum()
        energy = source.column("QAR_D_ENERGYCAL")
        title = source.get("QAR_C_MEASNAME")
        print(f"{os.path.basename(path)}: {title}")
        show_parameters(source)
        show_calibrations(source)

    def position(channel):
        return polynomial(energy or (0, 1), channel)

    unit = "keV" if energy else "channels"
    print()
    print("\n".join(plot.terminal_plot(channels, position, unit)))
    picture = os.path.splitext(path)[0] + ".png"
    if plot.save_picture(channels, position, unit, title, picture):
        print(f"{picture}: the same as a picture")


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]) if len(sys.argv) == 2 else __doc__)
