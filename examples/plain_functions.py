#!/usr/bin/env python3
"""Read a file with the functions of pyORV3, without the package qar.

    plain_functions.py FILE

They do not raise exceptions: each returns a status, 0 for success, alone or before its result.
"""

import sys

import pyORV3
from qar.constants import QAR_C_MEASNAME, QAR_D_LIVETIME
from qar.status import describe

READ, FILE = 0x1, 1


def main(path: str) -> int:
    status, handle = pyORV3.open(path, READ, FILE, "")
    if status != 0:
        print(f"open: {describe(status)}")
        return 1
    status, channels = pyORV3.getSpectrum(handle, 0, 0)
    print(f"getSpectrum: status {status}, {len(channels):,} channels, {sum(channels):,} counts")
    for code in (QAR_C_MEASNAME, QAR_D_LIVETIME):
        status, value = pyORV3.getParameter(handle, code, 1, 1)
        print(f"getParameter 0x{code:08X}: status {status}, value {value!r}")
    status = pyORV3.setParameter(handle, QAR_D_LIVETIME, 1.0, 1, 1)
    print(f"setParameter on a source opened for reading returns {describe(status)}")
    return pyORV3.close(handle, 0)


if __name__ == "__main__":
    sys.exit(__doc__ if len(sys.argv) != 2 else main(sys.argv[1]))
