"""The pairs of coincident photons of the built-in library, and the summing factors from them."""

import csv
import functools
import os
from typing import Dict, List, Tuple

from ..analysis import efficiency, summing
from ..analysis.results import GammaLine
from ..analysis.summing import CoincidentPair
from ..records import RecordSource
from .builtin_library import DATA

_LINES = ("QAR_D_LINEENERGY", "QAR_D_LINEYIELD")


@functools.lru_cache(maxsize=None)
def pairs() -> Dict[str, Tuple[CoincidentPair, ...]]:
    """Return the listed pairs of each nuclide that has some."""
    listed: Dict[str, List[CoincidentPair]] = {}
    with open(os.path.join(DATA, "coincidences.csv"), encoding="utf-8", newline="") as file:
        for row in csv.DictReader(line for line in file if not line.startswith("#")):
            energies = float(row["energy_1"]), float(row["energy_2"])
            pair = CoincidentPair(energies, float(row["probability"]))
            listed.setdefault(row["nuclide"], []).append(pair)
    return {name: tuple(own) for name, own in listed.items()}


def write_factors(source: RecordSource) -> None:
    """Write the summing factors of the nuclide library in a source, if it has a total efficiency.

    Nuclides without listed pairs keep their factors. If the source has an efficiency calibration,
    the factors include the counts that sums of two photons add to a line.
    """
    total = efficiency.read_total(source)
    if total is None:
        return
    curve = efficiency.read_curve(source)
    for record in range(1, source.record_count("QAR_C_NUCLNAME") + 1):
        own = pairs().get(source.get("QAR_C_NUCLNAME", record), ())
        if own:
            columns = (source.column(name, record) for name in _LINES)
            lines = [GammaLine(energy, photons) for energy, photons in zip(*columns)]
            factors = summing.factors(lines, own, total, curve and curve.value_within)
            source.set_column("QAR_D_LINESUMFACT", [one.factor for one in factors], record)
            source.set_column("QAR_D_LINESUMUNC", [one.uncertainty for one in factors], record)
