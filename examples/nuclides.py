"""A small library of nuclides: half-lives and their strongest gamma lines.

Rounded from the evaluations of the Decay Data Evaluation Project (DDEP). Where a column of a file
is filled from it: energies in keV, yields in photons per decay, half-lives in seconds.
"""

from typing import NamedTuple, Tuple

DAY = 86400.0
YEAR = 365.242198 * DAY


class Nuclide(NamedTuple):
    name: str
    half_life: float
    lines: Tuple[Tuple[float, float], ...]  # (energy, yield)


LIBRARY = (
    Nuclide("Am-241", 432.6 * YEAR, ((59.541, 0.3592),)),
    Nuclide(
        "Ba-133",
        10.539 * YEAR,
        (
            (80.998, 0.3331),
            (276.399, 0.0713),
            (302.851, 0.1831),
            (356.013, 0.6205),
            (383.849, 0.0894),
        ),
    ),
    Nuclide("Co-57", 271.81 * DAY, ((122.061, 0.8549), (136.474, 0.1071))),
    Nuclide("Co-60", 5.2711 * YEAR, ((1173.228, 0.9985), (1332.492, 0.9998))),
    Nuclide("Cs-137", 30.05 * YEAR, ((661.657, 0.8499),)),
    Nuclide(
        "Eu-152",
        13.522 * YEAR,
        (
            (121.782, 0.2841),
            (344.279, 0.2659),
            (778.905, 0.1297),
            (964.079, 0.1450),
            (1408.013, 0.2085),
        ),
    ),
    Nuclide("I-131", 8.0233 * DAY, ((284.305, 0.0606), (364.490, 0.8120), (636.991, 0.0726))),
    Nuclide("K-40", 1.2504e9 * YEAR, ((1460.822, 0.1055),)),
    Nuclide("Mn-54", 312.19 * DAY, ((834.855, 0.9997),)),
    Nuclide("Na-22", 2.6029 * YEAR, ((1274.537, 0.9994),)),
)
