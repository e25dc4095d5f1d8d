#!/usr/bin/env python3
"""Store an analysis sequence in a template and copy it into a new measurement.

    analysis_sequence.py FOLDER

The measurement gets the steps of the analysis, the processing settings and the calibration that the
template refers to. It keeps its own settings of the report.
"""

import os
import sys
from typing import Any, Dict, Tuple

import qar
import simulation

CALIBRATION = {
    "QAR_F_CALTEMPER": 22.5,
    "QAR_C_CALGEOMETRY": "point source, 25 cm",
    "QAR_T_CALDATE": "2026-03-02T08:15:00.000Z",
    "QAR_C_CALTITLE": "Ge coaxial 40 %, point source at 25 cm",
}

TEMPLATE = {
    "QAR_C_SEQUENCE": "Environmental, long",
    "QAR_C_ANSEQUENCE": "Environmental, long",
    "QAR_D_PEAKLIMIT": 4.5,
    "QAR_D_MATCHTOL": 0.8,
    "QAR_F_CALTEMPER": 20.0,  # these two apply if there is no calibration file
    "QAR_C_CALGEOMETRY": "beaker, 1 l",
    "QAR_C_REPORTTITLE": "Template",
    "QAR_B_REPORTPRINT": True,
    "QAR_D_REPORTLIMIT": 0.5,
    "QAR_S_REPORTCOPIES": 2,
    "QAR_B_USECALFILE": True,
}

MEASUREMENT = {
    "QAR_C_MEASNAME": "Soil, field 7",
    "QAR_C_REPORTTITLE": "Soil survey",
    "QAR_B_REPORTPRINT": False,
    "QAR_D_REPORTLIMIT": 12.0,
    "QAR_S_REPORTCOPIES": 1,
}

SHOWN = {
    "copied": (
        "QAR_C_SEQUENCE",
        "QAR_D_PEAKLIMIT",
        "QAR_D_MATCHTOL",
        "QAR_F_CALTEMPER",
        "QAR_C_CALGEOMETRY",
        "QAR_C_CALTITLE",
        "QAR_T_CALDATE",
    ),
    "kept": (
        "QAR_C_MEASNAME",
        "QAR_C_REPORTTITLE",
        "QAR_B_REPORTPRINT",
        "QAR_D_REPORTLIMIT",
        "QAR_S_REPORTCOPIES",
    ),
}


def create(path: str, parameters: Dict[str, Any]) -> None:
    with qar.open(path, "x") as source:
        source.update(parameters)


def values_of(source: qar.DataSource) -> Dict[str, Any]:
    """Return the shown parameters; None for one without a value."""
    return {name: source.get(name) for names in SHOWN.values() for name in names}


def copy_sequence(
    template_path: str, measurement_path: str
) -> Tuple[Dict[str, Any], Dict[str, Any]]:
    """Copy the sequence; return the measurement's parameters before and after it."""
    with qar.open(template_path) as template, qar.open(measurement_path, "r+") as measurement:
        before = values_of(measurement)
        template.copy_analysis_sequence_to(measurement)
        return before, values_of(measurement)


def main(folder: str) -> None:
    paths = {name: os.path.join(folder, name + ".qar") for name in ("ge40", "template", "soil")}
    calibration = {"QAR_D_ENERGYCAL": simulation.ENERGY, "QAR_D_SHAPECAL": simulation.SHAPE}
    create(paths["ge40"], {**CALIBRATION, **calibration})
    create(paths["template"], {**TEMPLATE, "QAR_C_CALFILE": paths["ge40"]})
    create(paths["soil"], MEASUREMENT)
    before, after = copy_sequence(paths["template"], paths["soil"])
    for heading, names in SHOWN.items():
        print(f"  {heading:<20} {'before':<20} after")
        for name in names:
            print(f"    {name:<18} {before[name]!s:<20} {after[name]}")
    with qar.open(paths["soil"]) as measurement:
        energy = ", ".join(f"{c:g}" for c in measurement.column("QAR_D_ENERGYCAL"))
        print(f"  energy calibration from ge40.qar: {energy}")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    main(sys.argv[1])
