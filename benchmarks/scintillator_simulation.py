"""Varied spectra of scintillators: detectors, sources, surroundings, errors of the calibration.

The spectrum of each photon comes from scintillator_transport; absorbers, scattering in the
surroundings, coincidence sums, pile-up, background and the crystals' own radioactivity are added.
"""

import csv
import math
from pathlib import Path
from typing import Dict, List, NamedTuple, Tuple

import numpy
from qar.nuclides import builtin_library, coincidences
from scintillator_transport import ELECTRON, Crystal, scattered
from simulated_detector import ATTENUATION, DENSITIES

TABLES = Path(builtin_library.DATA)
LEVELS = 4096  # of light, each 1 keV
LIGHT = numpy.arange(LEVELS) + 0.5

# Emission lines of the natural background, by chain.
CHAINS = (("K-40",), ("Pb-214", "Bi-214"), ("Ac-228", "Pb-212", "Bi-212", "Tl-208"))
BRANCHES = {"Tl-208": 0.36}
LEAD_X_RAYS = ((72.8, 0.28), (75.0, 0.47), (84.9, 0.2), (87.3, 0.05))

# Alpha particles of the Ac-227 chain in lanthanum and cerium bromide: light as keV of gamma rays.
ALPHAS = (
    (1650.0, 0.2),
    (1750.0, 0.25),
    (1850.0, 0.2),
    (2050.0, 0.17),
    (2250.0, 0.18),
    (2580.0, 0.2),
)


class Kind(NamedTuple):
    """A kind of detector with ranges: resolution at 662 keV, radius and length in cm."""

    material: str
    resolution: Tuple[float, float]
    radius: Tuple[float, float]
    statistics: Tuple[float, float]  # part of the variance that is proportional to the energy


KINDS = {
    "NaI": Kind("NaI", (0.06, 0.085), (1.9, 3.9), (0.8, 0.95)),
    "CsI": Kind("CsI", (0.06, 0.10), (0.6, 2.5), (0.8, 0.95)),
    "LaBr3": Kind("LaBr3", (0.026, 0.035), (1.2, 2.6), (0.8, 1.0)),
    "CeBr3": Kind("CeBr3", (0.036, 0.048), (1.2, 2.6), (0.8, 1.0)),
    "BGO": Kind("BGO", (0.09, 0.14), (1.2, 2.6), (0.85, 0.98)),
    "CdZnTe": Kind("CdZnTe", (0.016, 0.025), (0.5, 1.1), (0.3, 0.7)),
    "LSO": Kind("LSO", (0.08, 0.11), (0.5, 2.0), (0.8, 0.95)),
}


class Case(NamedTuple):
    """A simulated spectrum with the calibration that a user has for it."""

    number: int
    kind: str
    sources: Dict[str, float]  # expected counts
    groups: List[List[str]]  # of nuclides, one of which must be found
    background: float  # counts
    shield: str
    counts: List[int]
    energy: List[float]
    shape: List[float]
    offset: float  # keV, by which lines lie too high
    gain: float  # part of its energy by which a line lies too high


def loguniform(random, low, high):
    return float(math.exp(random.uniform(math.log(low), math.log(high))))


class Library:
    """Lines of the nuclides, X-rays included, and their coincidences."""

    def __init__(self):
        self.nuclides = {entry.nuclide.name: entry.nuclide for entry in builtin_library.entries()}
        self.lines = {
            name: [(line.energy, line.photons) for line in one.lines]
            for name, one in self.nuclides.items()
        }
        with open(TABLES / "xrays.csv", encoding="utf-8") as file:
            for row in csv.DictReader(line for line in file if not line.startswith("#")):
                self.lines[row["nuclide"]].append((float(row["energy"]), float(row["photons"])))
        self.pairs = coincidences.pairs()

    def annihilation_only(self):
        """Return the nuclides that have no strong line but that of annihilation."""
        return {
            name
            for name, lines in self.lines.items()
            if any(abs(energy - ELECTRON) < 1.0 for energy, _ in lines)
            and all(abs(energy - ELECTRON) < 1.0 or part < 0.02 for energy, part in lines)
        }

    def family(self, name):
        """Return the nuclides of the same decay chain within the library."""
        chains = [set(chain) for chain in CHAINS if name in chain] or [{name}]
        family = chains[0]
        while True:
            more = {one.name for one in self.nuclides.values() if one.parent in family} | {
                self.nuclides[one].parent for one in family if self.nuclides[one].parent
            }
            if more <= family:
                return family
            family |= more


class Shield(NamedTuple):
    """An absorber between source and detector."""

    material: str
    thickness: float  # mm

    def exponent(self, energy):
        """Return the absorption exponent, by interpolation in logarithms."""
        if self.thickness == 0.0:
            return numpy.zeros_like(energy)
        table = numpy.array(ATTENUATION[self.material]).T
        table = numpy.hstack([[[10.0], [table[1, 0] * (table[0, 0] / 10.0) ** 2.8]], table])
        log = numpy.interp(numpy.log(energy), numpy.log(table[0]), numpy.log(table[1]))
        return numpy.exp(log) * DENSITIES[self.material] * self.thickness / 10.0


class Surroundings(NamedTuple):
    """Scattering around a source."""

    shield: Shield
    backscatter: float  # photons scattered by the wall for each unscattered one
    small_angles: float  # photons that lost a little energy, the same way
    solid_angle: float  # part of the photons that reach the detector
    lead: float  # lead X-rays for each photon above 100 keV


def photons(lines, surroundings, histories, random):
    """Return energies, weights and line numbers of photons that reach the detector."""
    energy = numpy.array([line[0] for line in lines])
    emitted = numpy.array([line[1] for line in lines])
    exponent = surroundings.shield.exponent(energy)
    passed = emitted * numpy.exp(-exponent)
    share = numpy.sqrt(passed / passed.max()) * (passed > 1e-5 * passed.max())
    numbers = numpy.repeat(
        numpy.arange(energy.size), numpy.maximum(1, (histories * share / share.sum()).astype(int))
    )
    weights = (passed / numpy.bincount(numbers, minlength=energy.size))[numbers]
    direct = energy[numbers], weights, numbers
    parts = [direct]
    for kind, amount in (("wall", surroundings.backscatter), ("near", surroundings.small_angles)):
        chosen = random.integers(0, numbers.size, numbers.size // 3)
        before = energy[numbers[chosen]]
        cosine, after = scattered(before, random)
        if kind == "wall":
            kept = cosine < -0.3
            again = random.random(after.size) < 0.35
            after = numpy.where(again, scattered(after, random)[1], after)
            scale = 3.0 / 0.3
        else:
            kept = cosine > 0.3
            scale = 3.0 / 0.4
        kept &= random.random(after.size) < 1.0 / (1.0 + (55.0 / after) ** 3)
        own = amount + (0.7 * exponent[numbers[chosen]] if kind == "near" else 0.0)
        own = numpy.minimum(own, 3.0)
        parts.append(
            (after[kept], (scale * weights[chosen] * own)[kept], numpy.full(int(kept.sum()), -1))
        )
    if surroundings.lead:
        total = float(passed[energy > 100.0].sum()) * surroundings.lead
        for x_ray, part in LEAD_X_RAYS:
            count = 500
            parts.append(
                (
                    numpy.full(count, x_ray),
                    numpy.full(count, total * part / count),
                    numpy.full(count, -1),
                )
            )
    return tuple(numpy.concatenate(values) for values in zip(*parts))


def histogram(light, weights):
    return numpy.histogram(light, bins=LEVELS, range=(0.0, LEVELS), weights=weights)[0]


def convolved(one, other):
    size = 2 * LEVELS
    product = numpy.fft.rfft(one, size) * numpy.fft.rfft(other, size)
    return numpy.maximum(0.0, numpy.fft.irfft(product, size)[:LEVELS])


def nuclide_spectrum(crystal, library, name, surroundings, histories, random):
    """Return the light for one decay per unit of solid angle, with coincidence sums."""
    lines = library.lines[name]
    energy, weights, numbers = photons(lines, surroundings, histories, random)
    light = crystal.deposits(energy, random)
    sum_ = histogram(light, weights)
    pairs = sorted(library.pairs.get(name, ()), key=lambda pair: -pair.probability)[:15]
    single: Dict[int, numpy.ndarray] = {}
    for pair in pairs:
        indices = [
            min(range(len(lines)), key=lambda number: abs(lines[number][0] - one))
            for one in pair.energies
        ]
        for index in indices:
            if index not in single:
                own = numbers == index
                single[index] = histogram(light[own], weights[own]) / max(1e-9, lines[index][1])
        one, other = (single[index] for index in indices)
        part = pair.probability * surroundings.solid_angle
        sum_ = sum_ + part * (convolved(one, other) - one * other[5:].sum() - other * one[5:].sum())
    sum_ = numpy.maximum(sum_, 0.0)
    sum_[:5] = 0.0
    return sum_


def background_spectrum(crystal, library, random, histories=150000):
    """Return the light of the natural background, normalised to 1."""
    total = numpy.zeros(LEVELS)
    for chain in CHAINS:
        weight = loguniform(random, 0.5, 2.0) * (8.0 if chain[0] == "K-40" else 1.0)
        lines = [
            (energy, photons_ * BRANCHES.get(name, 1.0))
            for name in chain
            for energy, photons_ in library.lines[name]
            if energy > 60.0
        ]
        energy = numpy.array([line[0] for line in lines])
        yields = numpy.array([line[1] for line in lines])
        numbers = random.choice(energy.size, histories // len(CHAINS), p=yields / yields.sum())
        current = energy[numbers]
        alive = numpy.ones(current.size, bool)
        times = random.geometric(0.3, current.size) - 1
        for step in range(8):
            again = (times > step) & alive
            current[again] = scattered(current[again], random)[1]
            alive[again] = random.random(int(again.sum())) < 1.0 / (
                1.0 + (60.0 / current[again]) ** 3
            )
        alive &= current > 15.0
        light = crystal.deposits(current[alive], random)
        total += weight * histogram(light, numpy.full(light.size, yields.sum() / numbers.size))
    total[:5] = 0.0
    annihilation = crystal.deposits(numpy.full(5000, ELECTRON), random)
    total += 0.02 * total.sum() * histogram(annihilation, numpy.full(5000, 1 / 5000))
    cosmic = numpy.where(LIGHT > 20, 1.0 / LEVELS, 0.0)
    total += 0.01 * total.sum() * cosmic
    return total / total.sum()


def beta_energies(end, size, random):
    """Return electron energies of an allowed beta decay."""
    grid = numpy.linspace(0.0, end, 200)
    density = numpy.sqrt(grid**2 + 2.0 * grid * ELECTRON) * (grid + ELECTRON) * (end - grid) ** 2
    cumulative = numpy.cumsum(density)
    return numpy.interp(random.random(size), cumulative / cumulative[-1], grid)


def own_spectrum(crystal, kind, random, size=150000):
    """Return the light of the crystal's own radioactivity, normalised to 1; None if it has none."""
    if kind == "LSO":
        light = beta_energies(593.0, size, random)
        for energy, part in ((306.8, 0.94), (201.8, 0.78), (88.3, 0.145)):
            emits = random.random(size) < part
            light[emits] += crystal.deposits(
                numpy.full(int(emits.sum()), energy), random, inside=True
            )
        return histogram(light, numpy.full(size, 1.0 / size))
    if kind not in ("LaBr3", "CeBr3"):
        return None
    alphas = numpy.zeros(LEVELS)
    for energy, part in ALPHAS:
        light = random.normal(energy, 0.012 * energy, 20000)
        alphas += histogram(light, numpy.full(20000, part / 20000))
    if kind == "CeBr3":
        return alphas / alphas.sum()
    captures = int(0.656 * size)
    light = numpy.empty(size)
    x_rays = numpy.where(random.random(captures) < 0.6, 37.4, 5.6)
    light[:captures] = x_rays + crystal.deposits(numpy.full(captures, 1435.8), random, inside=True)
    betas = size - captures
    light[captures:] = beta_energies(255.0, betas, random)
    light[captures:] += crystal.deposits(numpy.full(betas, 788.7), random, inside=True)
    result = histogram(light, numpy.full(size, 1.0 / size))
    return result + loguniform(random, 0.02, 0.5) * alphas / alphas.sum()


class Resolution(NamedTuple):
    """(FWHM / keV)^2 as a polynomial in the energy."""

    noise: float
    statistics: float
    constant: float

    def fwhm(self, energy):
        return numpy.sqrt(self.noise + self.statistics * energy + self.constant * energy**2)


def drawn_resolution(kind, random):
    at_caesium = random.uniform(*kind.resolution) * 661.66
    part = random.uniform(*kind.statistics)
    noise = random.uniform(0.5, 2.5) ** 2
    rest = at_caesium**2 - noise
    return Resolution(noise, part * rest / 661.66, (1.0 - part) * rest / 661.66**2)


def folded(light, resolution):
    """Return the spectrum of the light with the resolution, in levels of 1 keV."""
    sigma = resolution.fwhm(LIGHT) / 2.3548
    result = numpy.zeros(LEVELS)
    for start in range(0, LEVELS, 256):
        own = slice(start, start + 256)
        if not light[own].any():
            continue
        distance = (LIGHT[:, None] - LIGHT[None, own]) / sigma[None, own]
        result += numpy.exp(-0.5 * distance**2) @ (
            light[own] / (sigma[own] * math.sqrt(2.0 * math.pi))
        )
    return result


def in_channels(spectrum, channels, last, offset, gain):
    """Return the contents of channels of equal width up to an energy that the user believes."""
    edges = numpy.linspace(0.0, last, channels + 1)
    true = (edges - offset) / (1.0 + gain)
    cumulative = numpy.concatenate([[0.0], numpy.cumsum(spectrum)])
    return numpy.diff(numpy.interp(true, numpy.arange(LEVELS + 1.0), cumulative))


def is_visible(library, name):
    """True if a nuclide has a line above 30 keV with more than one photon in a thousand decays."""
    return any(energy > 30.0 and part > 1e-3 for energy, part in library.lines[name])


# Nuclides in common use; 60 % of the sources are drawn from them.
COMMON = (
    "Na-22 Mn-54 Co-57 Co-60 Zn-65 Y-88 Cd-109 Ba-133 Cs-134 Cs-137 Ce-139 Eu-152 Eu-154 Se-75 Ir-192 "
    "Yb-169 Am-241 F-18 Ga-67 Tc-99m In-111 I-123 I-131 Lu-177 Tl-201 Xe-133 Bi-214 Tl-208 K-40 U-235 "
    "Np-237 Th-228 U-238 Pu-239 Ag-110m Sb-125 Bi-207"
).split()


def drawn_sources(library, random):
    rest = [
        name
        for name, one in library.nuclides.items()
        if is_visible(library, name)
        and one.half_life
        and one.half_life > 3600.0
        and name not in COMMON
    ]
    count = int(random.choice([1, 2, 3], p=[0.5, 0.3, 0.2]))
    sources: Dict[str, float] = {}
    while len(sources) < count:
        name = str(random.choice(COMMON if random.random() < 0.6 else rest))
        if not any(name in library.family(other) for other in sources):
            sources[name] = 1.0 if not sources else loguniform(random, 0.05, 1.0)
    total = loguniform(random, 300.0, 1e7)
    scale = total / sum(sources.values())
    return {name: part * scale for name, part in sources.items()}


def drawn_surroundings(random, source_energy):
    shield = Shield("iron", 0.0)
    if random.random() < 0.4:
        material = str(random.choice(["iron", "lead"]))
        limit = {"iron": 25.0, "lead": 8.0}[material] * min(1.0, (source_energy / 400.0) ** 1.5)
        shield = Shield(material, round(limit * random.uniform(0.05, 1.0), 2))
    return Surroundings(
        shield,
        loguniform(random, 0.05, 0.6),
        loguniform(random, 0.03, 0.3),
        loguniform(random, 0.003, 0.2),
        loguniform(random, 0.005, 0.04)
        if random.random() < 0.3 or shield.material == "lead"
        else 0.0,
    )


def emission(library, name):
    """Return the nuclides that a source of this name contains, with their relative activities."""
    for chain in CHAINS:
        if name in chain:
            return {one: BRANCHES.get(one, 1.0) for one in chain}
    return {name: 1.0}


def typical_energy(library, sources):
    """Return the lowest of the mean energies of the sources' photons."""
    means = []
    for name in sources:
        lines = [line for line in library.lines[name] if line[0] > 30.0]
        means.append(sum(e * p for e, p in lines) / sum(p for _, p in lines))
    return min(means)


def simulated(library, number, seed, kind=None):
    """Return a case, the same for the same number and seed."""
    random = numpy.random.default_rng([seed, number])
    name = kind or str(random.choice(list(KINDS), p=[0.22, 0.14, 0.2, 0.12, 0.13, 0.13, 0.06]))
    detector = KINDS[name]
    radius = random.uniform(*detector.radius)
    crystal = Crystal(
        detector.material,
        radius,
        radius * random.uniform(1.0, 2.2),
        random.choice([-1, 1]) * random.uniform(0, 0.02),
    )
    sources = drawn_sources(library, random)
    surroundings = drawn_surroundings(random, typical_energy(library, sources))
    histories = int(min(600000, max(60000, sum(sources.values()))))
    light = numpy.zeros(LEVELS)
    for source, counts in sources.items():
        own = sum(
            activity * nuclide_spectrum(crystal, library, one, surroundings, histories // 2, random)
            for one, activity in emission(library, source).items()
        )
        light += counts * own / own.sum()
    pile_up = loguniform(random, 1e-5, 5e-3)
    light = (1.0 - 2.0 * pile_up) * light + pile_up * convolved(light, light) / max(
        light.sum(), 1.0
    )
    background = loguniform(random, 500.0, 1e5) if random.random() < 0.65 else 0.0
    if background:
        light += background * background_spectrum(crystal, library, random)
    own = own_spectrum(crystal, name, random)
    if own is not None:
        light += loguniform(random, 500.0, 5e4) * own
    resolution = drawn_resolution(detector, random)
    channels = int(random.choice([256, 512, 1024, 2048, 4096], p=[0.1, 0.2, 0.4, 0.2, 0.1]))
    last = (
        random.uniform(2800.0, 3300.0) if random.random() < 0.7 else random.uniform(1600.0, 2800.0)
    )
    offset, gain = random.uniform(-5.0, 5.0), random.uniform(-0.02, 0.02)
    if name == "CdZnTe":
        offset, gain = 0.3 * offset, 0.5 * gain
    if name in ("LaBr3", "CeBr3"):
        offset = 0.6 * offset
    means = in_channels(folded(light, resolution), channels, last, offset, gain)
    centres = (numpy.arange(channels) + 0.5) * last / channels
    threshold = random.uniform(12.0, 45.0)
    means /= 1.0 + numpy.exp(-(centres - threshold) / 1.5)
    counts = random.poisson(numpy.maximum(means, 0.0))
    width = last / channels
    error = (1.0 + random.uniform(-0.1, 0.1)) ** 2
    return Case(
        number,
        name,
        {one: round(value) for one, value in sources.items()},
        [sorted(library.family(one)) for one in sources],
        round(background),
        f"{surroundings.shield.thickness} mm {surroundings.shield.material}"
        if surroundings.shield.thickness
        else "",
        [int(value) for value in counts],
        [-0.5 * width, width],
        [float(value * error) for value in resolution],
        offset,
        gain,
    )
