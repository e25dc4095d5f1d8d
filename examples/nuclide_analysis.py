#!/usr/bin/env python3
"""Write a nuclide library into a measurement, run the peak search engine and print a report.

    nuclide_analysis.py FILE

If matplotlib is installed, the analysed spectrum is also saved as a picture beside FILE.
"""

import os
import sys
from typing import Any, Dict, List

import qar
from nuclides import LIBRARY
from qar.display import tables

TOLERANCE = 0.6  # keV
SETTINGS: Dict[str, Any] = {
    "QAR_D_PEAKLIMIT": 5.0,  # sigma
    "QAR_D_MATCHTOL": TOLERANCE,
    "QAR_D_MINCONF": 0.5,
    "QAR_F_CONFIDENCE": 0.95,  # of detection limits
}


def library() -> List[qar.Nuclide]:
    return [
        qar.Nuclide(
            n.name, n.half_life, tuple(qar.GammaLine(*line) for line in n.lines), parent=n.parent
        )
        for n in LIBRARY
    ]


def main(path: str) -> None:
    with qar.open(path, "r+") as source:
        source.set_nuclide_library(library())
        results = source.analyse(**SETTINGS)
        print("\n".join(tables.results(results)))
        show_missing(source, "Fe-60")
    try:
        picture = os.path.splitext(path)[0] + "-peaks.png"
        results.plot(residuals=True).savefig(picture)
        print(f"{picture}: spectrum, fitted peaks and residuals")
    except ImportError as error:
        print(error)


def show_missing(source: qar.DataSource, name: str) -> None:
    """Print the exception of a search for a nuclide that the library does not have."""
    try:
        source.find_nuclide(name)
    except qar.NotFoundError as error:
        print(f"{name} is not in the library: a search for it raises {type(error).__name__}")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    main(sys.argv[1])
