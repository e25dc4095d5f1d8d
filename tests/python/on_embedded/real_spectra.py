"""Compare the engine's peaks with independent analyses of real spectra.

The environment variable PYORV3_SPECTRA is the folder of the spectra and of `spectra.json`, which
contains the calibration and the independent results of each. Channels count from 1.
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

CERTAIN = 6.0  # sigma; the engine must find these peaks at its limit of 5
NEAR = 0.75  # maximum distance of the same peak in two analyses, in widths

# Peaks that exist but are in no list because they are faint in one of the analyses; energies in keV.
# Sums are true coincidences, of X-rays with lines and of cascades.
TABLE = support.PROJECT / "tests" / "data" / "unlisted_peaks.json"
UNLISTED = json.loads(TABLE.read_text(encoding="utf-8"))


def cases():
    """Return the names of the spectra and the data of each."""
    with open(os.path.join(support.SPECTRA, "spectra.json"), encoding="utf-8") as file:
        return json.load(file)


def contents(name, case):
    """Return the contents of all channels, channel 1 first."""
    spectra = formats.read(os.path.join(support.SPECTRA, name))
    return next(one.counts for one in spectra if one.detector == case.get("detector", one.detector))


def fwhm(case, energy):
    return sum(value * energy**power for power, value in enumerate(case["shape"])) ** 0.5


def analysed(name, path):
    """Write a spectrum with its calibration into a new file and analyse it at 5 sigma.

    The nuclide library is that of the examples. Returns the data of the spectrum and the results.
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
    """Return pairs of indices (listed, found), one to one, the nearest first."""
    near = sorted(
        (abs(one["energy"] - other.energy), number, index)
        for number, one in enumerate(listed)
        for index, other in enumerate(found)
        if abs(one["energy"] - other.energy) <= NEAR * fwhm(case, one["energy"])
    )
    pairs, left, right = [], set(), set()
    for _, number, index in near:
        if number not in left and index not in right:
            pairs.append((number, index))
            left.add(number)
            right.add(index)
    return pairs


def reason(name, case, energy):
    """Return the explanation of a peak that is in no list, or None for a false peak."""
    for kind in UNLISTED["in"].get(name, []) + UNLISTED["everywhere"]:
        lines = UNLISTED["energies"][kind]
        if any(abs(line - energy) <= NEAR * fwhm(case, energy) for line in lines):
            return kind
    return None


class Comparison:
    """The engine's peaks compared with the lists."""

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
        matched = {index for _, index in self.pairs}
        unlisted = [peak for index, peak in enumerate(found) if index not in matched]
        self.explained = [(peak, reason(name, case, peak.energy)) for peak in unlisted]
        self.false = [peak for peak, why in self.explained if why is None]

    def annihilation(self):
        """Return the number of peaks near 511 keV and True if one certainly exists."""
        listed = [peak for peak in self.case["peaks"] if abs(peak["energy"] - 511) < 1]
        found = [peak for peak in self.found if abs(peak.energy - 511) < 3]
        return len(found), any(peak["significance"] >= CERTAIN for peak in listed)

    def areas(self):
        """Yield (name, area, other area, difference over its limit) of areas from other methods."""
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
