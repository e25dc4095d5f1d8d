#!/usr/bin/env python3
"""Create a QAR file and write parameters, calibrations and a spectrum.

    measurement.py FILE
"""

import sys
from datetime import datetime, timedelta, timezone
from typing import List

import qar
import simulation

PARAMETERS = {
    "QAR_C_MEASNAME": "Mixed nuclide source, 25 cm",
    "QAR_C_OPERATOR": "J. Müller",
    "QAR_C_DETECTOR": "Ge coaxial 40 %",
    "QAR_C_COMMENT": "Window of 300 µm carbon fibre",
    "QAR_C_SAMPLEID": "MIX-0417",
    "QAR_S_ADCBITS": 12,
    "QAR_B_PILEUPREJ": True,
    "QAR_F_AMPGAIN": 12.5,
    "QAR_F_SHAPINGTIME": 6.0,
    "QAR_L_LOWERDISC": 40,
    "QAR_D_QUANTITY": 1.0,
    "QAR_C_SAMPLEUNIT": "piece",
    "QAR_D_DISTANCE": 250.0,
    "QAR_D_REALTIME": simulation.REAL_TIME,
    "QAR_D_LIVETIME": simulation.LIVE_TIME,
    "QAR_F_DEADTIME": 100 * (1 - simulation.LIVE_TIME / simulation.REAL_TIME),
}


def record_measurement(path: str, seed: int = 417) -> List[int]:
    channels = simulation.measure(seed)
    stop = datetime.now(timezone.utc)
    start = stop - timedelta(seconds=simulation.REAL_TIME)
    with qar.open(path, "x") as source:
        source.update(PARAMETERS)
        source["QAR_T_ACQSTART"] = start
        source["QAR_T_ACQSTOP"] = stop
        source["QAR_Q_TOTALCOUNT"] = sum(channels)
        source.set_calibration(simulation.ENERGY, simulation.SHAPE, simulation.EFFICIENCY)
        source.set_spectrum(channels)
        source.flush()  # now the data are on the disk
    return channels


def main(path: str) -> None:
    channels = record_measurement(path)
    print(f"{path}: {len(channels):,} channels, {sum(channels):,} counts")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    main(sys.argv[1])
