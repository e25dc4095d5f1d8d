#!/usr/bin/env python3
"""Measure which nuclides are found in simulated mixtures, with many sources, detectors and absorbers.

    mixture_results.py [--spectra N] [--seed N] [--records]

Each spectrum has one to five sources whose strongest peaks have 300 to 300,000 counts: nuclides of the
laboratory, medicine, industry, fission and activation, natural chains in and out of equilibrium, and
nuclear material. Prints tables in Markdown. PYTHONPATH names the directory with the built package.
"""

import argparse
import math
import os
import random
import tempfile
from typing import NamedTuple, Tuple

import nuclide_results
import simulated_detector
from qar.analysis.calibration import FWHM_PER_SIGMA
from qar.analysis.results import results, run_engine
from qar.nuclides import builtin_library, coincidences
from qar.source import open as open_source
from simulated_detector import ELECTRON_MASS, Detector, Spectrum, transmission

# ---- Sources -----------------------------------------------------------------------------------

THORIUM_228 = {
    "Th-228": 1, "Ra-224": 1, "Rn-220": 1, "Pb-212": 1, "Bi-212": 1, "Tl-208": 0.359,
}  # fmt: skip
THORIUM = {"Th-232": 1, "Ra-228": 1, "Ac-228": 1, **THORIUM_228}
RADON = {"Rn-222": 1, "Pb-214": 1, "Bi-214": 1, "Po-214": 1}
RADIUM = {"Ra-226": 1, **RADON}
ACTINIUM = {
    "Ac-227": 1, "Th-227": 0.986, "Ra-223": 1, "Rn-219": 1, "Pb-211": 1, "Bi-211": 1, "Tl-207": 1,
}  # fmt: skip


def scaled(factor, activities):
    return {name: factor * value for name, value in activities.items()}


def uranium(enrichment):
    """Return the relative activities of separated uranium; enrichment: part of the atoms."""
    u235 = 6.43 * enrichment / (1 - enrichment)
    return {"U-238": 1, "U-235": u235, "Th-231": u235, "U-234": 25 * u235}


# Relative activities; each source is drawn with a random generator.
MIXED_SOURCES = {
    "thorium": lambda rng: THORIUM,
    "thorium, separated": lambda rng: {
        "Th-232": 1,
        **scaled(rng.uniform(0.05, 1), {"Ra-228": 1, "Ac-228": 1}),
        **scaled(rng.uniform(0.3, 1), THORIUM_228),
    },
    "thorium-228": lambda rng: THORIUM_228,
    "radium": lambda rng: {**RADIUM, "Pb-210": rng.uniform(0, 1)},
    "radon daughters": lambda rng: {"Pb-214": 1, "Bi-214": rng.uniform(0.5, 1.2)},
    "lead-210": lambda rng: {"Pb-210": 1},
    "uranium ore": lambda rng: {
        **uranium(0.0072), "Th-230": 1, **RADIUM, "Pb-210": 1, "Pa-231": 0.046,
        **scaled(0.046, ACTINIUM),
    },
    "uranium": lambda rng: uranium(0.0072),
    "depleted uranium": lambda rng: uranium(0.002),
    "enriched uranium": lambda rng: uranium(rng.choice((0.03, 0.2, 0.93))),
    "plutonium": lambda rng: {
        "Pu-239": 1, "Pu-240": rng.uniform(0.2, 1), "Pu-241": rng.uniform(1, 40),
        "Pu-238": rng.uniform(0.01, 1), "Am-241": rng.uniform(0.05, 2),
    },
    "neptunium": lambda rng: {"Np-237": 1, "Pa-233": 1},
    "americium-243": lambda rng: {"Am-243": 1, "Np-239": 1},
    "actinium": lambda rng: ACTINIUM,
    "actinium-225": lambda rng: {"Ac-225": 1, "Fr-221": 1, "Bi-213": 1, "Tl-209": 0.021},
    "fission, weeks": lambda rng: scaled_each(
        rng, ("I-131", "Te-132", "I-132", "Mo-99", "Ba-140", "La-140", "Ru-103", "Zr-95", "Nb-95",
              "Ce-141", "Ce-143", "Nd-147", "Cs-136", "Cs-137"),
    ),
    "fission, years": lambda rng: scaled_each(
        rng, ("Zr-95", "Nb-95", "Ru-106", "Cs-134", "Cs-137", "Ce-144", "Sb-125", "Eu-154"),
    ),
    "activated steel": lambda rng: scaled_each(
        rng, ("Co-60", "Mn-54", "Co-58", "Fe-59", "Cr-51", "Zn-65", "Ag-110m", "Sb-124"),
    ),
    "activated concrete": lambda rng: scaled_each(rng, ("Eu-152", "Eu-154", "Co-60", "Cs-134")),
    "calibration mixture": lambda rng: scaled_each(
        rng, ("Am-241", "Cd-109", "Co-57", "Ce-139", "Sn-113", "Sr-85", "Cs-137", "Y-88", "Co-60"),
    ),
}  # fmt: skip
GROUPS = ("calibration", "calibration", "medical", "industrial", "fission", "activation")
MIN_HALF_LIFE = 1800.0  # s, of a nuclide that is a source by itself
MIN_AREA = 0.5  # counts of a peak that is simulated


def scaled_each(rng, names):
    """Return activities within a factor of three of each other, some of them missing."""
    kept = [name for name in names if rng.random() < 0.8] or names
    return {name: 3 ** rng.uniform(-1, 1) for name in kept}


class Library:
    """The built-in library, with the photons that a source really emits."""

    def __init__(self):
        entries = builtin_library.entries()
        self.nuclides = [entry.nuclide for entry in entries]
        emitted = builtin_library.load(short_lived=True, x_rays=True)
        self.emitted = {nuclide.name: nuclide for nuclide in emitted}
        natural = {entry.nuclide.name for entry in entries if "natural" in entry.groups}
        self.of_groups = {
            group: sorted(
                entry.nuclide.name
                for entry in entries
                if group in entry.groups
                and entry.nuclide.half_life >= MIN_HALF_LIFE
                and entry.nuclide.active is not False
                and entry.nuclide.name not in natural
            )
            for group in set(GROUPS)
        }
        self._parents = {one.name: {one.parent} for one in self.nuclides if one.parent}
        for entry in entries:  # daughters whose lines are listed under the parent
            if entry.remark.startswith("with "):
                for daughter in entry.remark[5:].split(" in ")[0].split(" and "):
                    self._parents.setdefault(daughter, set()).add(entry.nuclide.name)

    def relatives(self, name):
        """Return the nuclide with the ancestors and descendants that may be named for it."""
        found = {name}
        size = 0
        while size < len(found):
            size = len(found)
            found |= {parent for one in found for parent in self._parents.get(one, ())}
        below = {name}
        size = 0
        while size < len(below):
            size = len(below)
            below |= {one for one, parents in self._parents.items() if parents & below}
        return found | below

    def draw_source(self, rng):
        """Return the activities of a source, in relation to each other."""
        if rng.random() < 0.35:
            return dict(MIXED_SOURCES[rng.choice(sorted(MIXED_SOURCES))](rng))
        return {rng.choice(self.of_groups[rng.choice(GROUPS)]): 1.0}


# ---- Scenes ------------------------------------------------------------------------------------

BACKGROUND = {"K-40": 4.0, **THORIUM, **RADIUM}
LEAD_X_RAYS = ((72.80, 0.6), (74.97, 1.0), (84.94, 0.23), (87.30, 0.07))


class Scene(NamedTuple):
    """A detector and everything that contributes to its spectrum."""

    detector: Detector
    absorber: Tuple[str, float]  # material and thickness in mm
    sources: Tuple  # activities by nuclide and the counts of the strongest peak
    background: float  # counts of its strongest peak; 0: none
    continuum: float  # counts per keV at 0 keV that no line causes
    known_energy: Tuple[float, ...]  # the calibration in the file
    known_shape: Tuple[float, ...]  # empty: none


def draw_detector(rng):
    channels = rng.choice((4096, 8192, 16384))
    end = rng.choice((1500.0, 2000.0, 2800.0, 3000.0)) if channels < 16384 else 2900.0
    width = rng.uniform(0.9, 2.5)  # keV at 1,332 keV
    noise = min(rng.uniform(0.5, 1.1), 0.7 * width)
    thin = rng.random() < 0.4
    windows = (("aluminium", 0.1),) if thin else (("aluminium", 1.0), ("germanium", 0.7))
    return Detector(
        channels=channels,
        energy=(rng.uniform(-0.5, 0.5), end / channels, 0.0),
        shape=(noise**2, (width**2 - noise**2) / 1332.5),
        crystal=rng.uniform(20, 35) if thin else rng.uniform(45, 75),
        windows=windows,
        solid_angle=10 ** rng.uniform(-3.5, -0.9),
        left_tail=(rng.choice((0.0, rng.uniform(0, 0.06))), rng.uniform(0.8, 2.5)),
        right_tail=(rng.choice((0.0, 0.0, rng.uniform(0, 0.03))), rng.uniform(0.8, 2.5)),
        step=rng.uniform(0.0, 0.004),
        escape=rng.uniform(0.1, 0.3),
    )


def draw_scene(library, rng):
    detector = draw_detector(rng)
    sources = tuple(
        (library.draw_source(rng), 10 ** rng.uniform(2.5, 5.5))
        for _ in range(rng.choice((1, 1, 2, 2, 3, 4, 5)))
    )
    absorber = rng.choice((("lead", 0.0), (rng.choice(("lead", "iron")), rng.uniform(0, 10))))
    offset, gain, curve = rng.gauss(0, 0.15), rng.gauss(0, 0.15), rng.gauss(0, 0.05)
    first, second, _ = detector.energy
    half = detector.channels / 2
    known = (first + offset - curve, second + (gain + 2 * curve) / half, -curve / half**2)
    shape = tuple(rng.uniform(0.9, 1.1) * value for value in detector.shape)
    return Scene(
        detector,
        absorber,
        sources,
        rng.choice((0.0, 10 ** rng.uniform(2, 4.5))),
        10 ** rng.uniform(-1, 2.5),
        known,
        rng.choice(((), shape)),
    )


class Line(NamedTuple):
    nuclide: str
    energy: float
    area: float


class Simulation:
    """The expected spectrum of a scene, and its lines."""

    def __init__(self, library, scene, rng):
        self.library, self.scene, self.rng = library, scene, rng
        self.spectrum = Spectrum(scene.detector)
        self.lines = []
        self.end = scene.detector.energy[0] + scene.detector.energy[1] * scene.detector.channels
        for activities, counts in scene.sources:
            self._add_source(activities, counts, scene.absorber, scene.detector)
        if scene.background:
            # From all sides through the shield: hardly any summing.
            distant = scene.detector._replace(solid_angle=1e-6)
            self._add_source(BACKGROUND, scene.background, ("lead", 5.0), distant)
        self._add_continuum()
        self.means = self.spectrum.finished()

    def _add_source(self, activities, counts, absorber, detector):
        def seen(energy):
            return detector.efficiency(energy) * transmission(*absorber, energy)

        emitted = {}
        for name, activity in activities.items():
            lines = self.library.emitted.get(name)
            for line in lines.lines if lines else ():
                photons = max(0.0, self.rng.gauss(line.photons, line.photons_uncertainty or 0.0))
                if 11 < line.energy < self.end - 5:
                    emitted[name, line.energy] = activity * photons
        strongest = max(photons * seen(energy) for (_, energy), photons in emitted.items())
        decays = counts / strongest
        areas = {key: decays * photons * seen(key[1]) for key, photons in emitted.items()}
        for name, activity in activities.items():
            self._sum_coincidences(name, decays * activity, areas, seen, absorber)
        for (name, energy), area in areas.items():
            self._add_line(name, energy, area, absorber)

    def _sum_coincidences(self, name, decays, areas, seen, absorber):
        """Move counts of pairs of photons from their lines to the sums."""
        total = self.scene.detector.total_efficiency
        kept = dict.fromkeys((key for key in areas if key[0] == name), 1.0)
        sums = {}
        for (first, second), probability in coincidences.pairs().get(name, ()):
            sums[first + second] = sums.get(first + second, 0.0) + (
                decays * probability * seen(first) * seen(second)
            )
            for one, other in ((first, second), (second, first)):
                for key in kept:
                    if abs(key[1] - one) < 0.5:
                        photons = areas[key] / decays / seen(key[1]) if areas[key] > 0 else 1
                        lost = total(other) * transmission(*absorber, other)
                        kept[key] -= min(1.0, probability / photons) * lost
        for key, part in kept.items():
            areas[key] *= max(0.2, part)
        for energy, area in sums.items():
            same = next((key for key in kept if abs(key[1] - energy) < 0.5), None)
            if same:
                areas[same] += area
            elif energy < self.end - 5:
                self._add_peak("sum", energy, area)

    def _add_line(self, name, energy, area, absorber):
        if area < MIN_AREA:
            return
        broadening = 0.9 if abs(energy - ELECTRON_MASS) < 0.1 else 0.0
        part = self.scene.detector.peak_part(energy)
        scattered = min(2.0, 0.3 / transmission(*absorber, energy) - 0.3) / part
        self._add_peak(name, energy, area, broadening, scattered * area)
        if area > 20:
            self.spectrum.add_compton(energy, area)
        over = (energy - 2 * ELECTRON_MASS) / (2614.5 - 2 * ELECTRON_MASS)
        if over > 0:
            escaped = self.scene.detector.escape * over * area
            self._add_peak("escape", energy - ELECTRON_MASS, escaped)
            self._add_peak("escape", energy - 2 * ELECTRON_MASS, 0.8 * escaped)
            self._add_peak("annihilation", ELECTRON_MASS, 0.1 * escaped, 0.9)

    def _add_peak(self, name, energy, area, broadening=0.0, scattered=0.0):
        if area >= MIN_AREA:
            self.lines.append(Line(name, energy, area))
            self.spectrum.add_peak(energy, area, broadening, scattered)

    def _add_continuum(self):
        level = self.scene.continuum
        self.spectrum.add_continuum(400 * level, lambda one: math.exp(-one / 400), self.end)
        own = [line for line in self.lines if line.area > 0]
        scattered = sum(line.area for line in own)
        shield = (self.scene.absorber[0] == "lead") * min(1.0, self.scene.absorber[1]) + (
            0.5 if self.scene.background else 0.0
        )
        for energy, part in LEAD_X_RAYS:
            self._add_peak("lead", energy, 0.03 * shield * part * scattered)
        strongest = sorted(own, key=lambda line: -line.area)[:6]
        pile_up = 10 ** self.rng.uniform(-5, -3)
        for number, line in enumerate(strongest):
            for other in strongest[number:]:
                area = pile_up * line.area * other.area / scattered
                if line.energy + other.energy < self.end - 5:
                    self._add_peak("pile-up", line.energy + other.energy, area)

    # ---- What can be found ---------------------------------------------------------------------

    def visible_lines(self, name):
        """Return (line, ratio of its area to the detection limit) of all lines that stand alone."""
        visible = []
        detector = self.scene.detector
        for line in self.lines:
            width = FWHM_PER_SIGMA * detector.sigma(line.energy)
            if line.nuclide != name or abs(line.energy - ELECTRON_MASS) < 2 * width:
                continue
            near = [one for one in self.lines if abs(one.energy - line.energy) < 1.2 * width]
            if sum(one.area for one in near if one.nuclide != name) > 0.3 * line.area:
                continue
            reach = 1.25 * width
            channels = self.spectrum.channels_near(line.energy - reach, line.energy + reach)
            content = sum(self.means[channel] for channel in channels)
            under = max(2.0, content - sum(one.area for one in near))
            critical = 5 * math.sqrt(2 * under)
            limit = critical + 2.7 + 1.645 * math.sqrt(critical + 2 * under + 0.7)
            visible.append((line, line.area / limit))
        return visible

    def present(self):
        names = {name for activities, _ in self.scene.sources for name in activities}
        return names | set(BACKGROUND) if self.scene.background else names

    def expected(self):
        """Return the names of which the identification should find one, for each visible nuclide."""
        expected = {}
        for name in self.present():
            lines = [line for line in self.visible_lines(name) if line[0].energy > 45]
            ratios = [ratio for _, ratio in lines]
            if sum(ratio > 1.5 for ratio in ratios) > 1 or max(ratios, default=0) > 5:
                expected[name] = {name} | self._lookalikes(
                    [line for line, ratio in lines if ratio > 1]
                )
        return expected

    def _lookalikes(self, lines):
        """Return the nuclides that have these lines, one of which is their strongest."""

        def has(nuclide_lines, energy):
            tolerance = max(0.35, 0.7 * self.scene.detector.sigma(energy))
            return any(abs(one.energy - energy) < tolerance for one in nuclide_lines)

        alike = set()
        for nuclide in self.library.emitted.values():
            if all(has(nuclide.lines, line.energy) for line in lines):
                strongest = max(
                    (one for one in nuclide.lines if one.energy > 45),
                    key=lambda one: one.photons * self.scene.detector.efficiency(one.energy),
                )
                if any(has((strongest,), line.energy) for line in lines):
                    alike.add(nuclide.name)
        return alike

    def possible(self):
        """Return the nuclides that may be named."""
        return {relative for name in self.present() for relative in self.library.relatives(name)}


# ---- Analysis ----------------------------------------------------------------------------------


class Outcome(NamedTuple):
    scene: Scene
    expected: dict  # names by visible nuclide, see Simulation.expected
    wrong: list  # results
    missed: list  # (name, result or None)
    peaks: int


def write_spectrum(path, simulation, library, rng):
    with open_source(path, "x") as source:
        source.set_spectrum(simulated_detector.counted(simulation.means, rng))
        source.set_column("QAR_D_ENERGYCAL", simulation.scene.known_energy)
        if simulation.scene.known_shape:
            source.set_column("QAR_D_SHAPECAL", simulation.scene.known_shape)
        source.set_nuclide_library(library.nuclides)


def outcome_of(simulation, analysis):
    expected, possible = simulation.expected(), simulation.possible()
    possible |= {name for names in expected.values() for name in names}
    found = {one.name for one in analysis.nuclides}
    everything = {one.name: one for one in (*analysis.nuclides, *analysis.not_found)}
    return Outcome(
        simulation.scene,
        expected,
        [one for one in analysis.nuclides if one.name not in possible],
        [(name, everything.get(name)) for name in sorted(expected) if not expected[name] & found],
        len(analysis.peaks),
    )


def simulated(library, seed):
    rng = random.Random(seed)
    return Simulation(library, draw_scene(library, rng), rng), rng


def measure(library, seed, directory):
    simulation, rng = simulated(library, seed)
    path = os.path.join(directory, f"{seed}.qar")
    write_spectrum(path, simulation, library, rng)
    with open_source(path, "r+") as source:
        run_engine(source)
        return outcome_of(simulation, results(source))


def describe(seed, outcome):
    scene = outcome.scene
    sources = "; ".join(
        f"{', '.join(activities)} ({counts:.0f})" for activities, counts in scene.sources
    )
    print(
        f"\n{seed}: {sources}; background {scene.background:.0f}; "
        f"{scene.absorber[1]:.1f} mm of {scene.absorber[0]}; {outcome.peaks} peaks"
    )
    for one in outcome.wrong:
        print(f"    wrong {one.name} {one.confidence:.2f}, {one.lines} lines, {one.energy:.1f} keV")
    for name, one in outcome.missed:
        print(f"    missed {name} " + (f"{one.confidence:.2f}: {one.reason}" if one else "no line"))


def show_totals(outcomes):
    nuclide_results.row("sources", "spectra", "visible nuclides", "found", "wrong")
    nuclide_results.row(*["---"] * 5)
    for title, group in (
        *((str(n), [one for one in outcomes if len(one.scene.sources) == n]) for n in range(1, 6)),
        ("all", outcomes),
    ):
        expected = sum(len(one.expected) for one in group)
        missed = sum(len(one.missed) for one in group)
        wrong = sum(len(one.wrong) for one in group)
        nuclide_results.row(title, len(group), expected, expected - missed, wrong)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--spectra", type=int, default=100)
    parser.add_argument("--seed", type=int, default=1, help="of the first spectrum")
    parser.add_argument(
        "--records", action="store_true", help="also print wrong and missed nuclides"
    )
    arguments = parser.parse_args()
    library = Library()
    outcomes = []
    with tempfile.TemporaryDirectory() as directory:
        for seed in range(arguments.seed, arguments.seed + arguments.spectra):
            outcomes.append(measure(library, seed, directory))
            if arguments.records:
                describe(seed, outcomes[-1])
    show_totals(outcomes)


if __name__ == "__main__":
    main()
