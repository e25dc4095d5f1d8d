"""Monte Carlo transport of photons in the crystals of scintillators and of CdZnTe.

Cross sections: Klein and Nishina for scattering; photoelectric absorption and pair production from power
laws through tabulated values at 100 keV and 3 MeV. Knows nothing of the engine's templates.
"""

from typing import NamedTuple, Tuple

import numpy

ELECTRON = 510.999  # keV
SHELL_PART = 0.83  # of the absorptions above the K edge happen in the K shell
MIN_ENERGY = 8.0  # keV, absorbed where the photon is
GRID = numpy.geomspace(5.0, 4000.0, 400)  # keV


class Element(NamedTuple):
    """An element: absorption in cm2/g at 100 keV, K edge with its jump, mean K X-ray and its yield."""

    number: int
    mass: float
    absorption: float
    edge: float
    jump: float
    x_ray: float
    fluorescence: float


ELEMENTS = {
    "Na": Element(11, 23.0, 0.012, 1.07, 10.0, 1.0, 0.02),
    "Si": Element(14, 28.1, 0.027, 1.84, 10.0, 1.7, 0.05),
    "O": Element(8, 16.0, 0.0043, 0.54, 10.0, 0.5, 0.01),
    "Ge": Element(32, 72.6, 0.40, 11.1, 7.0, 10.0, 0.53),
    "Br": Element(35, 79.9, 0.52, 13.5, 6.9, 12.1, 0.62),
    "Cd": Element(48, 112.4, 1.40, 26.7, 6.0, 23.6, 0.84),
    "Te": Element(52, 127.6, 1.68, 31.8, 5.8, 27.9, 0.87),
    "I": Element(53, 126.9, 1.78, 33.2, 5.7, 29.2, 0.88),
    "Cs": Element(55, 132.9, 1.97, 36.0, 5.6, 31.6, 0.89),
    "La": Element(57, 138.9, 2.15, 38.9, 5.5, 34.2, 0.90),
    "Ce": Element(58, 140.1, 2.25, 40.4, 5.4, 35.5, 0.91),
    "Lu": Element(71, 175.0, 3.70, 63.3, 4.6, 55.3, 0.95),
    "Bi": Element(83, 209.0, 5.30, 90.5, 4.1, 78.9, 0.96),
}


class Material(NamedTuple):
    """A crystal: density in g/cm3 and the mass of each element in a formula unit."""

    density: float
    elements: Tuple[Tuple[str, float], ...]


MATERIALS = {
    "NaI": Material(3.67, (("Na", 23.0), ("I", 126.9))),
    "CsI": Material(4.51, (("Cs", 132.9), ("I", 126.9))),
    "LaBr3": Material(5.08, (("La", 138.9), ("Br", 239.7))),
    "CeBr3": Material(5.10, (("Ce", 140.1), ("Br", 239.7))),
    "BGO": Material(7.13, (("Bi", 836.0), ("Ge", 217.8), ("O", 192.0))),
    "CdZnTe": Material(5.80, (("Cd", 112.4), ("Te", 127.6))),
    "LSO": Material(7.40, (("Lu", 350.0), ("Si", 28.1), ("O", 80.0))),
}


def photoelectric(element, energy):
    """Return the photoelectric absorption in cm2/g."""
    power = 2.85 - 0.003 * (element.number - 53)
    value = element.absorption * (100.0 / energy) ** power
    if element.edge > 100.0:
        value /= element.jump
    value = numpy.where(energy > 250.0, value * (energy / 250.0) ** 0.25, value)
    value = numpy.where(energy > 700.0, value * (energy / 700.0) ** 0.45, value)
    return numpy.where(energy < element.edge, value / element.jump, value)


def klein_nishina(energy):
    """Return the total scattering cross section of an electron in barn."""
    a = energy / ELECTRON
    b = 1.0 + 2.0 * a
    first = (1.0 + a) / a**2 * (2.0 * (1.0 + a) / b - numpy.log(b) / a)
    return 0.49893 * (first + numpy.log(b) / (2.0 * a) - (1.0 + 3.0 * a) / b**2)


def pair_production(element, energy):
    """Return pair production in cm2/g."""
    above = numpy.maximum(energy - 2.0 * ELECTRON, 0.0) / 1978.0
    return 0.00038 * element.number**2 / element.mass * above**1.5


def scattered(energy, random):
    """Return cosines and energies of photons after scattering (Kahn's method)."""
    a = energy / ELECTRON
    ratio = numpy.empty_like(energy)
    open_ = numpy.arange(energy.size)
    while open_.size:
        one, two, three = random.random((3, open_.size))
        part = a[open_]
        is_low = one <= (2.0 * part + 1.0) / (2.0 * part + 9.0)
        trial = numpy.where(
            is_low, 1.0 + 2.0 * part * two, (2.0 * part + 1.0) / (1.0 + 2.0 * part * two)
        )
        cosine = 1.0 - (trial - 1.0) / part
        accepted = numpy.where(
            is_low,
            three <= 4.0 * (1.0 / trial - 1.0 / trial**2),
            three <= 0.5 * (cosine**2 + 1.0 / trial),
        )
        ratio[open_[accepted]] = trial[accepted]
        open_ = open_[~accepted]
    return 1.0 - (ratio - 1.0) / a, energy / ratio


def isotropic(size, random):
    """Return unit vectors as an array of 3 rows."""
    cosine = 2.0 * random.random(size) - 1.0
    angle = 2.0 * numpy.pi * random.random(size)
    sine = numpy.sqrt(1.0 - cosine**2)
    return numpy.array([sine * numpy.cos(angle), sine * numpy.sin(angle), cosine])


def turned(direction, cosine, random):
    """Return directions at an angle with this cosine to the given ones."""
    angle = 2.0 * numpy.pi * random.random(cosine.size)
    sine = numpy.sqrt(numpy.maximum(0.0, 1.0 - cosine**2))
    helper = numpy.zeros_like(direction)
    along = numpy.abs(direction[2]) > 0.9
    helper[0, along] = 1.0
    helper[2, ~along] = 1.0
    side = numpy.cross(direction, helper, axis=0)
    side /= numpy.linalg.norm(side, axis=0)
    other = numpy.cross(direction, side, axis=0)
    return cosine * direction + sine * (numpy.cos(angle) * side + numpy.sin(angle) * other)


class Crystal:
    """A cylinder of a material whose light is not exactly proportional to the energy."""

    def __init__(self, material, radius, length, nonproportionality):
        """radius, length: cm. nonproportionality: excess of light at 66 keV over that at 662 keV."""
        self.radius, self.length = radius, length
        self._nonproportionality = nonproportionality
        density, parts = MATERIALS[material]
        total = sum(mass for _, mass in parts)
        elements = [(ELEMENTS[name], mass / total) for name, mass in parts]
        photo = [density * part * photoelectric(one, GRID) for one, part in elements]
        electrons = sum(part * one.number / one.mass for one, part in elements) * 0.60221 * density
        self._compton = electrons * klein_nishina(GRID)
        self._pair = sum(density * part * pair_production(one, GRID) for one, part in elements)
        self._photo = sum(photo)
        heavy = sorted(range(len(elements)), key=lambda number: -elements[number][0].absorption)[:2]
        self._x_rays = [(elements[number][0], photo[number] / self._photo) for number in heavy]

    def _at(self, table, energy):
        return numpy.interp(numpy.log(energy), numpy.log(GRID), table)

    def light(self, energy):
        """Return the light of an electron as an energy; exact at 662 keV."""
        octaves = numpy.log10(662.0 / numpy.maximum(energy, 5.0))
        excess = octaves * numpy.exp(-0.5 * numpy.maximum(octaves, 0.0) ** 2) / 0.607
        return energy * (1.0 + self._nonproportionality * excess)

    def deposits(self, energy, random, inside=False):
        """Return the light of photons, as energies; 0 for those that pass through.

        Photons enter the front face, nearly parallel, or begin inside.
        """
        energy = numpy.array(energy, dtype=float)
        size = energy.size
        light = numpy.zeros(size)
        radius = self.radius * numpy.sqrt(random.random(size))
        angle = 2.0 * numpy.pi * random.random(size)
        depth = self.length * random.random(size) if inside else numpy.zeros(size)
        position = numpy.array([radius * numpy.cos(angle), radius * numpy.sin(angle), depth])
        direction = isotropic(size, random)
        if not inside:
            direction = turned(
                numpy.tile([[0.0], [0.0], [1.0]], size), 1.0 - 0.1 * random.random(size), random
            )
        state = numpy.arange(size), energy, position, direction
        while state[0].size:
            state = self._step(light, state, random)
        return light

    def _step(self, light, state, random):
        """Move all photons to their next interaction and return those that are left."""
        photo, compton, pair = (
            self._at(table, state[1]) for table in (self._photo, self._compton, self._pair)
        )
        total = photo + compton + pair
        position = state[2] - numpy.log(1.0 - random.random(total.size)) / total * state[3]
        stays = (position[0] ** 2 + position[1] ** 2 < self.radius**2) & (position[2] > 0.0)
        stays &= position[2] < self.length
        choice = (random.random(total.size) * total)[stays]
        photo, compton = photo[stays], compton[stays]
        number, energy, position, direction = (
            state[0][stays], state[1][stays], position[:, stays], state[3][:, stays]
        )  # fmt: skip
        is_absorbed = (choice < photo) | (energy < MIN_ENERGY)
        is_pair = ~is_absorbed & (choice >= photo + compton)
        is_scattered = ~is_absorbed & ~is_pair
        parts = [
            self._absorb(light, number, energy, position, is_absorbed, random),
            self._scatter(light, number, energy, position, direction, is_scattered, random),
            self._annihilate(light, number, energy, position, is_pair, random),
        ]
        return tuple(numpy.concatenate(values, axis=-1) for values in zip(*parts))

    def _absorb(self, light, number, energy, position, chosen, random):
        number, energy, position = number[chosen], energy[chosen], position[:, chosen]
        x_ray = numpy.zeros(energy.size)
        draw, emits = random.random((2, energy.size))
        lower = numpy.zeros(energy.size)
        for element, table in self._x_rays:
            upper = lower + self._at(table, energy)
            own = (draw >= lower) & (draw < upper) & (energy > element.edge)
            own &= emits < SHELL_PART * element.fluorescence
            x_ray[own] = element.x_ray
            lower = upper
        numpy.add.at(light, number, self.light(energy - x_ray))
        left = x_ray > MIN_ENERGY
        numpy.add.at(light, number[~left], x_ray[~left])
        return number[left], x_ray[left], position[:, left], isotropic(int(left.sum()), random)

    def _scatter(self, light, number, energy, position, direction, chosen, random):
        number, energy = number[chosen], energy[chosen]
        cosine, left = scattered(energy, random)
        numpy.add.at(light, number, self.light(energy - left))
        return number, left, position[:, chosen], turned(direction[:, chosen], cosine, random)

    def _annihilate(self, light, number, energy, position, chosen, random):
        number, energy, position = number[chosen], energy[chosen], position[:, chosen]
        numpy.add.at(light, number, self.light(energy - 2.0 * ELECTRON))
        direction = isotropic(number.size, random)
        return (
            numpy.concatenate([number, number]),
            numpy.full(2 * number.size, ELECTRON),
            numpy.concatenate([position, position], axis=1),
            numpy.concatenate([direction, -direction], axis=1),
        )
