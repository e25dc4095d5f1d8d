"""True coincidence summing: the factors by which it changes the peak areas of lines.

docs/efficiency.md has the formulas and their limits.
"""

import bisect
import math
from typing import Callable, Dict, FrozenSet, List, NamedTuple, Optional, Sequence, Tuple

from .results import GammaLine

MATCH = 0.5
"""The maximum distance in keV of a listed photon, or the sum of two, from its line."""

USUAL_UNCERTAINTY = 0.1
"""The relative uncertainty of a total efficiency that is given without one."""

ANNIHILATION = 510.999  # keV
_MIN_LEFT = 0.05  # the smallest part of a peak that is left; the formulas do not hold below
_SAME = 0.005  # keV between two spellings of one energy in the list of pairs
_TABLE_POINTS = 40


class CoincidentPair(NamedTuple):
    """Two photons that a nuclide emits in the same decay."""

    energies: Tuple[float, float]  # keV
    probability: float  # per decay, that both are emitted


class SummingFactor(NamedTuple):
    """The peak area of a line with coincidence summing, divided by that without."""

    factor: float = 1.0
    # One sigma, relative, negative if the factor falls when the total efficiency rises. It comes
    # from the total efficiency and is common to all lines.
    uncertainty: float = 0.0


class TotalEfficiency(NamedTuple):
    """The probability that a photon deposits any energy in the detector, as a table.

    It is 0 below the lowest energy, constant above the highest, and linear in the logarithms
    between.
    """

    energies: Tuple[float, ...]  # keV, ascending
    efficiencies: Tuple[float, ...]
    uncertainty: float = USUAL_UNCERTAINTY  # relative, one sigma, common to all energies

    def value_at(self, energy: float) -> float:
        """Return the total efficiency at an energy in keV."""
        if energy < self.energies[0]:
            return 0.0
        return _interpolated(self.energies, self.efficiencies, energy)


def total_of_peaks(
    efficiency_at: Callable[[float], float],
    ratio_at: Callable[[float], float],
    energies: Tuple[float, float],
    uncertainty: float,
) -> TotalEfficiency:
    """Return the total efficiency as the full-energy peak efficiency times a ratio.

    ratio_at: the ratio of total to peak counts at an energy. energies: the range of the table.
    """
    low, high = map(math.log, energies)
    steps = [low + (high - low) * step / _TABLE_POINTS for step in range(_TABLE_POINTS + 1)]
    grid = sorted({math.exp(step) for step in steps})
    values = (min(1.0, efficiency_at(energy) * ratio_at(energy)) for energy in grid)
    return TotalEfficiency(tuple(grid), tuple(values), uncertainty)


def typical_ratio(energy: float) -> float:
    """Return the ratio of total to peak counts of a typical coaxial germanium detector.

    It is 1 below 100 keV, about 3 at 662 keV and 5 at 1,332 keV.
    """
    return float(max(1.0, (energy / 100) ** 0.6))


def measured_ratio(points: Sequence[Tuple[float, float]]) -> Callable[[float], float]:
    """Return the ratio of total to peak counts from measured ones at energies in keV.

    It is linear in the logarithms between the energies and constant outside them.
    """
    energies, ratios = zip(*sorted(points))
    return lambda energy: _interpolated(energies, ratios, max(energy, energies[0]))


def _interpolated(xs: Sequence[float], ys: Sequence[float], x: float) -> float:
    """Return the value at x >= xs[0], linear in the logarithms; constant above the last x."""
    after = bisect.bisect_right(xs, x)
    if after == len(xs):
        return ys[-1]
    part = math.log(x / xs[after - 1]) / math.log(xs[after] / xs[after - 1])
    return float(ys[after - 1] * (ys[after] / ys[after - 1]) ** part)


def factors(
    lines: Sequence[GammaLine],
    pairs: Sequence[CoincidentPair],
    total: TotalEfficiency,
    efficiency_at: Optional[Callable[[float], float]] = None,
) -> List[SummingFactor]:
    """Return the factor of each line of a nuclide.

    pairs: all listed pairs of the nuclide. efficiency_at: the full-energy peak efficiency at an
    energy in keV; without it, counts that sums of two photons add to a line are left out.
    """
    partners = _partners(lines, pairs)
    coincident = _coincident(pairs)
    added = [0.0] * len(lines)
    if efficiency_at is not None:
        added = _summed_in(lines, pairs, efficiency_at)
    result = []
    for own, gain in zip(partners, added):
        first, second = _losses(own, coincident, total)
        factor = max(_MIN_LEFT, 1.0 - first + second) + gain
        slope = 2.0 * second - first  # the derivative by the logarithm of the total efficiency
        result.append(SummingFactor(factor, slope / factor * total.uncertainty))
    return result


def _losses(
    partners: Dict[float, float], coincident: FrozenSet[Tuple[float, float]], total: TotalEfficiency
) -> Tuple[float, float]:
    """Return the probability that a partner is detected, and the correction for two of them.

    partners: for each coincident photon its probability per photon of the line.
    """
    detected = {e: probability * total.value_at(e) for e, probability in partners.items()}
    energies = sorted(detected)
    second = sum(
        detected[low] * detected[high]
        for number, high in enumerate(energies)
        for low in energies[:number]
        if (low, high) in coincident
    )
    return sum(detected.values()), second


def _partners(
    lines: Sequence[GammaLine], pairs: Sequence[CoincidentPair]
) -> List[Dict[float, float]]:
    """Return the coincident photons of each line, each with its probability per photon."""
    names = _names(pairs)
    partners: List[Dict[float, float]] = [{} for _ in lines]
    for pair in pairs:
        for energy, other in (pair.energies, pair.energies[::-1]):
            number = _matching(lines, energy)
            if number is not None:
                # Each positron gives two annihilation photons.
                most = 2.0 if abs(other - ANNIHILATION) < MATCH else 1.0
                share = min(most, pair.probability / lines[number].photons)
                partners[number][names[other]] = share
    return partners


def _coincident(pairs: Sequence[CoincidentPair]) -> FrozenSet[Tuple[float, float]]:
    """Return the energies of all pairs, the lower one first."""
    names = _names(pairs)
    ordered = (sorted(names[energy] for energy in pair.energies) for pair in pairs)
    return frozenset((low, high) for low, high in ordered)


def _names(pairs: Sequence[CoincidentPair]) -> Dict[float, float]:
    """Return one energy for all spellings of it, such as 244.697 for 244.6974."""
    names: Dict[float, float] = {}
    last = -math.inf
    for energy in sorted({energy for pair in pairs for energy in pair.energies}):
        last = last if energy - last < _SAME else energy
        names[energy] = last
    return names


def _summed_in(
    lines: Sequence[GammaLine],
    pairs: Sequence[CoincidentPair],
    efficiency_at: Callable[[float], float],
) -> List[float]:
    """Return the counts that sums of two photons add to each line, relative to its own."""
    added = [0.0] * len(lines)
    for pair in pairs:
        number = _matching(lines, sum(pair.energies))
        if number is not None:
            first, second = map(efficiency_at, pair.energies)
            alone = lines[number].photons * efficiency_at(lines[number].energy)
            added[number] += pair.probability * first * second / alone if alone else 0.0
    return added


def _matching(lines: Sequence[GammaLine], energy: float) -> Optional[int]:
    """Return the number of the nearest line with photons, or None if none is near enough."""
    near = [
        (abs(line.energy - energy), number)
        for number, line in enumerate(lines)
        if abs(line.energy - energy) <= MATCH and line.photons > 0
    ]
    return min(near)[1] if near else None
