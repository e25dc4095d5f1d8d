#!/usr/bin/env python3
"""Analyses a measurement: writes a nuclide library, runs the peak search engine, prints a report.

    nuclide_analysis.py FILE
"""

import sys
from typing import Any, Dict, Iterator, List, Sequence, Tuple

import qar
from nuclides import LIBRARY

TOLERANCE = 0.6  # keV
SETTINGS: Dict[str, Any] = {
    "QAR_D_PEAKLIMIT": 5.0,  # sigma
    "QAR_D_MATCHTOL": TOLERANCE,
    # A line of Eu-152 lies under one of Co-57; with its others missing it does not get so far.
    "QAR_D_MINCONF": 0.8,
}


def library() -> List[qar.Nuclide]:
    return [
        qar.Nuclide(n.name, n.half_life, tuple(qar.GammaLine(*line) for line in n.lines))
        for n in LIBRARY
    ]


def nuclide_at(source: qar.DataSource, energy: float) -> Any:
    """The name of the nuclide with the line nearest to the energy; - without one."""
    try:
        return source["QAR_C_NUCLNAME", source.find_nuclide_at(energy, TOLERANCE)]
    except qar.NotFoundError:
        return "-"


def peak_lines(source: qar.DataSource, peaks: Sequence[qar.Peak]) -> Iterator[str]:
    yield "     energy    FWHM           net area   continuum   signif.   assigned   nearest"
    yield "        keV     keV             counts      counts     sigma   to         in library"
    for peak in peaks:
        yield (
            f"{peak.energy:>11.2f} {peak.fwhm:>7.2f} {peak.area:>9.0f} ±"
            f" {peak.area_uncertainty:>6.0f} {peak.continuum:>11.0f} {peak.significance:>9.1f}  "
            f" {peak.nuclide:<9}  {nuclide_at(source, peak.energy)}"
        )


def activity(
    source: qar.DataSource, peaks: Sequence[qar.Peak], nuclide: qar.Nuclide
) -> Tuple[float, float]:
    """The activity of a nuclide in Bq and its uncertainty: the weighted mean over its peaks.

    Of a peak it is the area by efficiency, yield and live time. The uncertainty is that of the
    areas alone.
    """
    efficiency_at = source.calibration().efficiency_at
    live_time = source["QAR_D_LIVETIME"]
    weights = weighted = 0.0
    for peak in peaks:
        line = min(nuclide.lines, key=lambda line: abs(line.energy - peak.energy))
        if abs(line.energy - peak.energy) > TOLERANCE:
            continue
        becquerel_per_count = 1 / (efficiency_at(line.energy) * line.photons * live_time)
        value = peak.area * becquerel_per_count
        weight = (peak.area_uncertainty * becquerel_per_count) ** -2
        weights += weight
        weighted += weight * value
    return weighted / weights, weights**-0.5


def nuclide_lines(source: qar.DataSource, results: qar.Analysis) -> Iterator[str]:
    yield "  nuclide    lines    confidence     half-life           activity"
    yield "                                          days                 Bq"
    nuclides = {nuclide.name: nuclide for nuclide in source.nuclide_library()}
    for found in results.nuclides:
        nuclide = nuclides[found.name]
        lines = f"{found.lines} of {len(nuclide.lines)}"
        value, uncertainty = activity(source, results.peaks, nuclide)
        yield (
            f"  {found.name:<9}  {lines:<8} {found.confidence:>10.2f}"
            f" {nuclide.half_life / 86400:>13.6g} {value:>10.1f} ± {uncertainty:>5.1f}"
        )


def main(path: str) -> None:
    with qar.open(path, "r+") as source:
        source.set_nuclide_library(library())
        results = source.analyse(**SETTINGS)
        print(f"{len(LIBRARY)} nuclides in the library")
        print(f"{len(results.peaks)} peaks")
        print("\n".join(peak_lines(source, results.peaks)))
        print(f"{len(results.nuclides)} nuclides identified")
        print("\n".join(nuclide_lines(source, results)))
        show_missing(source, "Fe-59")


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
