#!/usr/bin/env python3
"""Show a measurement: its parameters as a table, its spectrum as a plot in the terminal.

    show_measurement.py FILE

If matplotlib is installed, the spectrum is also saved as a PNG file beside FILE.
"""

import os
import sys
import textwrap

import qar
from qar.display import layout, terminal
from qar.display.printable import printable, value_text

CLASSES = ("QAR_CLS_MEASUREMENT", "QAR_CLS_SAMPLE", "QAR_CLS_CALIBRATION")


def show_parameters(source: qar.DataSource) -> None:
    for class_name in CLASSES:
        for parameter, value in source.parameters(class_name):
            description = textwrap.shorten(parameter.description, 44, placeholder=" …")
            print(f"  {parameter.name:<18} {value_text(value):<30} {description}")


def main(path: str) -> None:
    with qar.open(path) as source:
        title = source.get("QAR_C_MEASNAME", default="without a title")
        print(f"{os.path.basename(path)}: {printable(title)}")
        show_parameters(source)
        if "QAR_L_CHANNELS" not in source:
            print("It has no spectrum.")
            return
        axis = layout.axis_of(source.calibration())
        print()
        print("\n".join(terminal.plot(source.spectrum(), axis)))
        picture = os.path.splitext(path)[0] + ".png"
        try:
            source.plot().savefig(picture)
            print(f"{picture}: the same plot as a picture")
        except ImportError as error:
            print(error)


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    main(sys.argv[1])
