"""Real spectra with independent analyses, and how well the engine's peaks agree with them.

The folder that the environment variable PYORV3_SPECTRA names holds the spectra and `spectra.json`,
which says for each how it is calibrated and what another analysis found. Channels count from 1.
"""

import json
import os
import sys

import embedded
import qar
from qar import formats

sys.path.insert(0, str(embedded.EXAMPLES))

import nuclide_analysis  # noqa: E402

FOLDER = os.environ.get("PYORV3_SPECTRA", "")
CERTAIN = 6.0  # sigma: what the engine must find at its limit of 5
NEAR = 0.75  # widths: how far apart the same peak may lie in two analyses

# What may be found without being in a list, with its energy in keV: faint in one analysis, not in
# another, but physically there.
NATURAL = {
    "Pb-210": (46.54,),
    "Th-234": (63.29, 92.38, 92.80, 112.81),
    "U-235": (143.76, 163.36, 185.72, 205.31),
    "Ra-226": (186.21,),
    "Ra-224": (240.99,),
    "Pb-212": (115.18, 238.63, 300.09),
    "Pb-214": (53.23, 241.99, 258.87, 274.80, 295.22, 351.93, 480.43, 785.96, 839.04),
    "Ac-228": (
        *(99.51, 129.07, 153.98, 209.25, 270.25, 321.65, 328.00, 338.32, 409.46, 463.00),
        *(562.50, 755.31, 772.29, 794.95, 830.49, 835.71, 840.38, 904.20, 911.20, 964.77),
        *(968.97, 1247.08, 1459.14, 1495.91, 1580.53, 1588.20, 1630.63),
    ),
    "Bi-212": (39.86, 288.20, 452.98, 727.33, 785.37, 893.41, 1078.63, 1512.70, 1620.50),
    "Tl-208": (252.61, 277.37, 510.77, 583.19, 763.13, 860.56, 2614.51),
    "Bi-214": (
        *(389.10, 454.85, 609.32, 665.45, 703.11, 719.86, 768.36, 806.17, 934.06, 1052.0),
        *(1070.0, 1120.29, 1155.21, 1207.68, 1238.11, 1280.96, 1377.67, 1385.31, 1401.50),
        *(1407.98, 1509.23, 1538.50, 1583.22, 1594.73, 1599.31, 1661.28, 1684.0, 1729.60),
        *(1764.49, 1838.36, 1847.43, 1873.16, 2118.51, 2204.06, 2293.40, 2447.70),
    ),
    "Pa-234m": (742.81, 766.36, 786.27, 1001.03, 1737.73, 1831.5),
    "K-40": (1460.82,),
    "Cs-137 fallout": (661.66,),
    "Co-60 in steel": (1173.23, 1332.49),
    "Pb X-rays": (72.80, 74.97, 84.45, 84.94, 87.30),
    "Bi X-rays": (74.81, 77.11, 86.83, 87.35, 89.78),
    "annihilation": (511.00,),
    "escape of 2614.5 keV": (1592.53, 2103.51),
    "neutrons in germanium": (53.44, 66.72, 139.68, 175.05, 198.39, 595.85, 691.40, 834.01),
    "neutrons in lead and iron": (569.70, 803.06, 846.77),
    "cosmic-ray Be-7, Zn-65, Co-58, Mn-54": (477.60, 1115.54, 810.76, 834.85),
}

EU_152 = (
    *(121.78, 148.01, 207.6, 212.43, 237.3, 239.4, 244.70, 251.63, 271.13, 275.45, 295.94),
    *(315.17, 324.83, 329.43, 340.4, 344.28, 351.7, 367.79, 385.69, 411.12, 416.05, 443.97),
    *(482.31, 488.68, 493.8, 496.3, 503.47, 520.24, 523.1, 526.88, 534.25, 556.48, 557.8),
    *(563.99, 566.44, 571.8, 586.26, 616.05, 644.37, 656.49, 671.3, 674.68, 678.62, 686.61),
    *(688.67, 696.8, 703.5, 712.84, 719.35, 728.03, 764.90, 768.96, 778.90, 794.8, 805.8),
    *(810.45, 839.36, 841.57, 867.38, 896.58, 901.2, 906.0, 919.34, 926.32, 930.58, 937.1),
    *(958.6, 963.39, 964.08, 974.1, 990.19, 1001.1, 1005.27, 1084.0, 1085.87, 1089.74),
    *(1109.2, 1112.08, 1170.9, 1206.1, 1212.95, 1249.94, 1261.34, 1292.78, 1299.14, 1348.1),
    *(1363.8, 1390.4, 1408.01, 1457.64, 1528.10, 1605.6, 1608.4),
)
EU_154 = (123.07, 247.93, 591.76, 723.30, 756.80, 873.18, 996.26, 1004.72, 1274.43)
SM_GD_X_RAYS = (39.52, 40.12, 42.31, 43.00, 45.29, 45.41, 46.58, 46.70, 48.70, 49.96)
# True coincidence sums of Sm K X-rays (40.1, 45.4 keV) with the strongest lines, and of cascades.
EU_152_SUMS = (
    *(161.8, 167.1, 284.6, 366.5, 366.9, 444.5, 1009.5, 1123.3, 1147.8, 1153.2, 1233.8, 1447.9),
)

SOURCE = {
    "ba133-portal.n42": {
        "Ba-133": (53.16, 79.61, 81.00, 160.61, 223.24, 276.40, 302.85, 356.01, 383.85),
        "Cs X-rays": (30.63, 30.97, 34.92, 34.99, 35.82),
        "Ba-133 sums with X-rays and 81 keV": (61.7, 65.9, 111.9, 116.0, 162.0, 357.4, 437.0),
    },
    "bi207-1cm.txt": {
        "Bi-207": (328.10, 569.70, 897.77, 1063.66, 1442.2, 1770.23),
        "sums of X-rays and lines": (
            *(145.6, 147.4, 149.6, 157.2, 159.5, 162.0, 642.5, 644.5, 654.4, 657.0),
            *(1136.2, 1138.3, 1148.4, 1633.4, 1706.0, 1708.0, 1718.0, 1844.0),
        ),
        "escapes of 1770.2 keV": (748.2, 1259.2),
    },
    "eu152-7cm.spe": {
        "Eu-152": EU_152,
        "Eu-154": EU_154,
        "Sm and Gd X-rays": SM_GD_X_RAYS,
        "Ge escape of 40.1 and 45.4 keV": (29.2, 30.2, 34.5, 35.5, 36.7),
        "sums": EU_152_SUMS,
        "W and Ta X-rays": (57.53, 59.32, 67.2, 68.9),
    },
    "eu152-point.txt": {
        "Eu-152": EU_152,
        "Eu-154": EU_154,
        "sums": EU_152_SUMS,
    },
    "mixture.txt": {
        "Ba and La X-rays": (31.82, 32.19, 36.30, 36.38, 37.26, 37.45),
        "sum of 661.7 keV with X-rays": (693.5, 698.0),
        "pile-up of 661.7 keV": (1323.3,),
        "backscatter": (184.3,),
    },
    "standard-1k.spe": {
        "mixed standard": (
            *(59.54, 88.03, 122.06, 136.47, 165.86, 279.20, 391.70, 514.00, 661.66, 898.04),
            *(1173.23, 1332.49, 1836.06),
        ),
    },
}


def cases():
    """The names of the spectra and what is known of each."""
    with open(os.path.join(FOLDER, "spectra.json"), encoding="utf-8") as file:
        return json.load(file)


def contents(name, case):
    """The contents of all channels, channel 1 first."""
    spectra = formats.read(os.path.join(FOLDER, name))
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
    for table in (SOURCE.get(name, {}), NATURAL):
        for what, energies in table.items():
            if any(abs(line - energy) <= NEAR * fwhm(case, energy) for line in energies):
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
