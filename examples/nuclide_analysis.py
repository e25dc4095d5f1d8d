#!/usr/bin/env python3
"""Analyses a measurement: writes a nuclide library, runs the peak search engine, prints a report.

    nuclide_analysis.py FILE
"""

import math
import sys

import pyORV3
from nuclides import LIBRARY
from qar import READ, WRITE, DataSource, QarError, check, code_of, polynomial, run_engine

ENGINE, ENTRY_POINT = "peak_search", "searchPeaks"
TOLERANCE = 0.6  # keV
SETTINGS = {
    "QAR_D_PEAKLIMIT": 5.0,  # sigma
    "QAR_D_MATCHTOL": TOLERANCE,
    # A line of Eu-152 lies under one of Co-57; with its others missing it does not get so far.
    "QAR_D_MINCONF": 0.8,
}


def write_library(source):
    """One record for each nuclide, one entry for each of its lines."""
    check(pyORV3.deleteBlock(source.handle, code_of("QAR_C_NUCLNAME")), "deleting the library")
    for record, nuclide in enumerate(LIBRARY, start=1):
        source.set("QAR_C_NUCLNAME", nuclide.name, record)
        source.set("QAR_D_HALFLIFE", nuclide.half_life, record)
        energies, yields = zip(*nuclide.lines)
        source.set_column("QAR_D_LINEENERGY", energies, record)
        source.set_column("QAR_D_LINEYIELD", yields, record)


def prepare(source):
    write_library(source)
    for name, value in SETTINGS.items():
        source.set(name, value)


def nuclide_at(source, energy):
    """The name of the nuclide with the line nearest to the energy; - without one."""
    status, record = pyORV3.findNuclideByEnergy(source.handle, energy, TOLERANCE, 0)
    return source.get("QAR_C_NUCLNAME", record) if status == 0 else "-"


def peak_lines(source):
    yield "     energy    FWHM           net area   continuum   signif.   assigned   nearest"
    yield "        keV     keV             counts      counts     sigma   to         in library"
    for peak in range(1, source.records("QAR_D_PEAKENERGY") + 1):
        energy, fwhm, area, uncertainty, continuum, significance = (
            source.get("QAR_D_PEAK" + what, peak)
            for what in ("ENERGY", "FWHM", "AREA", "AREAU", "CONT", "SIGNIF")
        )
        yield (
            f"{energy:>11.2f} {fwhm:>7.2f} {area:>9.0f} ± {uncertainty:>6.0f} {continuum:>11.0f}"
            f" {significance:>9.1f}   {source.get('QAR_C_PEAKNUCL', peak):<9}"
            f"  {nuclide_at(source, energy)}"
        )


def efficiency_at(source, energy):
    return math.exp(polynomial(source.column("QAR_D_EFFICCAL"), math.log(energy)))


def activity(source, name):
    """The activity of a nuclide in Bq and its uncertainty: the weighted mean over its peaks.

    Of a peak it is the area by efficiency, yield and live time. The uncertainty is that of the
    areas alone.
    """
    record = check(pyORV3.findNuclideByName(source.handle, name, 1), f"nuclide {name}")
    energies = source.column("QAR_D_LINEENERGY", record)
    lines = list(zip(energies, source.column("QAR_D_LINEYIELD", record)))
    live_time = source.get("QAR_D_LIVETIME")
    weights = weighted = 0.0
    for peak in range(1, source.records("QAR_D_PEAKENERGY") + 1):
        energy = source.get("QAR_D_PEAKENERGY", peak)
        line_energy, photons = min(lines, key=lambda line: abs(line[0] - energy))
        if abs(line_energy - energy) > TOLERANCE:
            continue
        becquerel_per_count = 1 / (efficiency_at(source, line_energy) * photons * live_time)
        value = source.get("QAR_D_PEAKAREA", peak) * becquerel_per_count
        weight = (source.get("QAR_D_PEAKAREAU", peak) * becquerel_per_count) ** -2
        weights += weight
        weighted += weight * value
    return weighted / weights, weights**-0.5


def nuclide_lines(source):
    yield "  nuclide    lines    confidence     half-life           activity"
    yield "                                          days                 Bq"
    for result in range(1, source.records("QAR_C_RESNUCLIDE") + 1):
        name = source.get("QAR_C_RESNUCLIDE", result)
        record = check(pyORV3.findNuclideByName(source.handle, name, 1), f"nuclide {name}")
        of_all = source.entries("QAR_D_LINEENERGY", record)
        lines = f"{source.get('QAR_L_RESLINES', result)} of {of_all}"
        days = source.get("QAR_D_HALFLIFE", record) / 86400
        value, uncertainty = activity(source, name)
        confidence = source.get("QAR_D_RESCONF", result)
        yield (
            f"  {name:<9}  {lines:<8} {confidence:>10.2f} {days:>13.6g}"
            f" {value:>10.1f} ± {uncertainty:>5.1f}"
        )


def main(path):
    with DataSource(path, READ | WRITE) as source:
        prepare(source)
        run_engine(ENGINE, ENTRY_POINT, source)
        print(f"{source.records('QAR_C_NUCLNAME')} nuclides in the library")
        print(f"{source.records('QAR_D_PEAKENERGY')} peaks")
        print("\n".join(peak_lines(source)))
        print(f"{source.records('QAR_C_RESNUCLIDE')} nuclides identified")
        print("\n".join(nuclide_lines(source)))
        show_missing(source, "Fe-59")


def show_missing(source, name):
    """What a failed search looks like: a status, which the layer of the examples raises."""
    try:
        check(pyORV3.findNuclideByName(source.handle, name, 1), f"searching for {name}")
    except QarError as error:
        print(error)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]) if len(sys.argv) == 2 else __doc__)
