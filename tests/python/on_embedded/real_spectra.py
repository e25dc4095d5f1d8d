"""Real spectra with independent analyses, and how well the engine's peaks agree with them.

The folder that the environment variable PYORV3_SPECTRA names holds the spectra and `spectra.json`,
which says for each how it is calibrated and what another analysis found. Channels count from 1.
"""

import json
import os
import sys

import qar
import support
from qar import formats

import embedded

sys.path.insert(0, str(embedded.EXAMPLES))

import nuclide_analysis  # noqa: E402

CERTAIN = 6.0  # sigma: what the engine must find at its limit of 5
NEAR = 0.75  # widths: how far apart the same peak may lie in two analyses

# What may be found without being in a list: faint in one analysis, not in another, but physically
# there; energies in keV. Sums are true coincidences, of X-rays with lines and of cascades.
TABLE = support.PROJECT / "tests" / "data" / "unlisted_peaks.json"
UNLISTED = json.loads(TABLE.read_text(encoding="utf-8"))


def cases():
    """The names of the spectra and what is known of each."""
    with open(os.path.join(support.SPECTRA, "spectra.json"), encoding="utf-8") as file:
        return json.load(file)


def contents(name, case):
    """The contents of all channels, channel 1 first."""
    spectra = formats.read(os.path.join(support.SPECTRA, name))
    return next(one.counts for one in spectra if one.detector == case.get("detector", one.detector))


def fwhm(case, energy):
    return sum(value * energy**power for power, value in enumerate(case["shape"])) ** 0.5


def analysed(name, path):
    """Writes a spectrum with its calibration into a new file at the path, searches it for peaks at
    5 sigma and identifies the nuclides of the examples' library.

    Returns what is known of the spectrum, and the results as qar gives them.
    """
    case = cases()[name]
    with qar.open(path, "x") as source:
        source.set_spectrum(contents(name, case))
        source.set_column("QAR_D_ENERGYCAL", case["energy"])
        source.set_column("QAR_D_SHAPECAL", case["shape"])
        source["QAR_L_FIRSTCHAN"] = case["first_channel"]
        source["QAR_L_LASTCHAN"] = case["last_channel"]
        source.set_nuclide_library(nuclide_analysis.library())
        return case, source.analyse(QAR_D_PEAKLIMIT=5.0)


def match(listed, found, case):
    """Pairs (number in listed, number in found) one to one, the nearest first."""
    near = sorted(
        (abs(one["energy"] - other.energy), number, place)
        for number, one in enumerate(listed)
        for place, other in enumerate(found)
        if abs(one["energy"] - other.energy) <= NEAR * fwhm(case, one["energy"])
    )
    pairs, left, right = [], set(), set()
    for _, number, place in near:
        if number not in left and place not in right:
            pairs.append((number, place))
            left.add(number)
            right.add(place)
    return pairs


def reason(name, case, energy):
    """Why a peak that is in no list may be there; None for a false one."""
    for what in UNLISTED["in"].get(name, []) + UNLISTED["everywhere"]:
        if any(
            abs(line - energy) <= NEAR * fwhm(case, energy) for line in UNLISTED["energies"][what]
        ):
            return what
    return None


class Comparison:
    """The engine's peaks, as qar gives them, against the lists."""

    def __init__(self, name, case, found):
        self.case, self.found = case, found
        self.pairs = match(case["peaks"], found, case)
        matched = {number for number, _ in self.pairs}
        certain = {
            number
            for number, peak in enumerate(case["peaks"])
            if peak["significance"] >= CERTAIN and "optional" not in peak.get("note", "")
        }
        self.certain = len(certain)
        self.missing = [case["peaks"][number] for number in sorted(certain - matched)]
        places = {place for _, place in self.pairs}
        unlisted = [peak for place, peak in enumerate(found) if place not in places]
        self.explained = [(peak, reason(name, case, peak.energy)) for peak in unlisted]
        self.false = [peak for peak, why in self.explained if why is None]

    def annihilation(self):
        """How many peaks lie about 511 keV, and whether one is certainly there."""
        listed = [peak for peak in self.case["peaks"] if abs(peak["energy"] - 511) < 1]
        found = [peak for peak in self.found if abs(peak.energy - 511) < 3]
        return len(found), any(peak["significance"] >= CERTAIN for peak in listed)

    def areas(self):
        """(what, area, other area, difference as a part of what is allowed) of areas that were
        measured in another way.
        """
        for area in self.case["model_free_areas"]:
            peak = min(self.found, key=lambda one: abs(one.energy - area["energy"]))
            allowed = 0.015 * area["area"] + 3 * area["uncertainty"]
            part = (peak.area - area["area"]) / allowed
            yield "sum at {energy} keV".format(**area), peak.area, area["area"], part
        for fit in self.case["published_fits"]:
            peak = min(self.found, key=lambda one: abs(one.centroid - fit["channel"]))
            combined = (fit["uncertainty"] ** 2 + peak.area_uncertainty**2) ** 0.5
            part = (peak.area - fit["area"]) / (3 * combined)
            yield "published fit at {channel}".format(**fit), peak.area, fit["area"], part
