#!/usr/bin/env python3
"""Shows a measurement: its parameters in a table, its spectrum in the terminal.

    show_measurement.py FILE

Where matplotlib is installed the spectrum is also saved as a PNG file beside FILE.
"""

import os
import sys
import textwrap
from typing import Any

import plot
import qar

CLASSES = ("QAR_CLS_MEASUREMENT", "QAR_CLS_SAMPLE", "QAR_CLS_CALIBRATION")


def text_of(value: Any) -> str:
    if isinstance(value, list):
        return ", ".join(map(text_of, value))
    return f"{value:,.6g}" if isinstance(value, float) else str(value)


def show_parameters(source: qar.DataSource) -> None:
    for class_name in CLASSES:
        for parameter, value in source.parameters(class_name):
            description = textwrap.shorten(parameter.description, 44, placeholder=" …")
            print(f"  {parameter.name:<18} {text_of(value):<30} {description}")


def main(path: str) -> None:
    with qar.open(path) as source:
        title = source.get("QAR_C_MEASNAME", default="without a title")
        print(f"{os.path.basename(path)}: {title}")
        show_parameters(source)
        calibration = source.calibration()
        if "QAR_L_CHANNELS" not in source:
            print("It has no spectrum.")
            return
        channels = source.spectrum()
    if not calibration.energy:
        calibration = qar.Calibration(energy=(0, 1))
    unit = "keV" if calibration.energy != (0, 1) else "channels"
    print()
    print("\n".join(plot.terminal_plot(channels, calibration.energy_at, unit)))
    picture = os.path.splitext(path)[0] + ".png"
    if plot.save_picture(channels, calibration.energy_at, unit, title, picture):
        print(f"{picture}: the same as a picture")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    main(sys.argv[1])
