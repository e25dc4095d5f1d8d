#!/usr/bin/env python3
"""Analyses a measurement: writes a nuclide library, runs the peak search engine, prints a report.

    nuclide_analysis.py FILE

Where matplotlib is installed the analysed spectrum is also saved as a picture beside FILE.
"""

import os
import sys
from typing import Any, Dict, Iterator, List, Sequence

import plot
import qar
from nuclides import LIBRARY

TOLERANCE = 0.6  # keV
SETTINGS: Dict[str, Any] = {
    "QAR_D_PEAKLIMIT": 5.0,  # sigma
    "QAR_D_MATCHTOL": TOLERANCE,
    "QAR_D_MINCONF": 0.5,
    "QAR_F_CONFIDENCE": 0.95,  # of detection limits
}
BADLY_DESCRIBED = 1.5  # reduced chi-square from which a fit is marked


def library() -> List[qar.Nuclide]:
    return [
        qar.Nuclide(
            n.name, n.half_life, tuple(qar.GammaLine(*line) for line in n.lines), parent=n.parent
        )
        for n in LIBRARY
    ]


def nuclide_at(source: qar.DataSource, energy: float) -> Any:
    """The name of the nuclide with the line nearest to the energy; - without one."""
    try:
        return source["QAR_C_NUCLNAME", source.find_nuclide_at(energy, TOLERANCE)]
    except qar.NotFoundError:
        return "-"


def peak_lines(source: qar.DataSource, peaks: Sequence[qar.Peak]) -> Iterator[str]:
    yield "   energy   FWHM           net area  signif.  chi²     region      is              nearest"
    yield "      keV    keV             counts    sigma          channels                    in library"
    for peak in peaks:
        mark = "!" if peak.chi_square > BADLY_DESCRIBED else " "
        region = f"{peak.left}-{peak.right}"
        yield (
            f"{peak.energy:>9.2f} {peak.fwhm:>6.2f} {peak.area:>9.0f} ±"
            f" {peak.area_uncertainty:>6.0f} {peak.significance:>8.1f} {peak.chi_square:>5.2f}{mark}"
            f" {region:^13} {plot.label_of(peak):<15} {nuclide_at(source, peak.energy)}"
        )


def nuclide_lines(source: qar.DataSource, results: qar.Analysis) -> Iterator[str]:
    yield "  nuclide    lines    confidence     half-life           activity    detection limit"
    yield "                                          days                 Bq                 Bq"
    nuclides = {nuclide.name: nuclide for nuclide in source.nuclide_library()}
    for found in results.nuclides:
        nuclide = nuclides[found.name]
        lines = f"{found.lines} of {len(nuclide.lines)}"
        yield (
            f"  {found.name:<9}  {lines:<8} {found.confidence:>10.2f}"
            f" {nuclide.half_life / 86400:>13.6g} {found.activity:>10.1f} ±"
            f" {found.activity_uncertainty:>5.1f} {found.detection_limit:>18.1f}"
        )


def missing_lines(results: qar.Analysis) -> Iterator[str]:
    """The nuclides that were not found, with the activity that would have been."""
    limits = [f"{n.name:<7} {n.detection_limit:>8.1f}" for n in results.not_found]
    for start in range(0, len(limits), 5):
        yield "  " + "    ".join(limits[start : start + 5])


def main(path: str) -> None:
    with qar.open(path, "r+") as source:
        source.set_nuclide_library(library())
        results = source.analyse(**SETTINGS)
        print(f"{len(LIBRARY)} nuclides in the library")
        print(f"{len(results.peaks)} peaks")
        print("\n".join(peak_lines(source, results.peaks)))
        print(f"{len(results.nuclides)} nuclides identified")
        print("\n".join(nuclide_lines(source, results)))
        print("not found, detection limits in Bq:")
        print("\n".join(missing_lines(results)))
        picture = os.path.splitext(path)[0] + "-peaks.png"
        title = source.get("QAR_C_MEASNAME", default="")
        energy_at = source.calibration().energy_at
        if plot.save_analysis(source.spectrum(), energy_at, results.peaks, title, picture):
            print(f"{picture}: spectrum, peaks and residuals")
        show_missing(source, "Fe-60")


def show_missing(source: qar.DataSource, name: str) -> None:
    """What a failed search looks like."""
    try:
        source.find_nuclide(name)
    except qar.NotFoundError as error:
        print(error)


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    main(sys.argv[1])
