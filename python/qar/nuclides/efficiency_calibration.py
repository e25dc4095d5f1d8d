"""The efficiency calibration with a certified source.

docs/efficiency.md describes the method.
"""

import math
from datetime import datetime, timezone
from typing import AbstractSet, Dict, List, NamedTuple, Optional, Sequence, Tuple

from ..analysis import efficiency, results, summing
from ..analysis.calibration import PARAMETERS
from ..analysis.certified_source import (
    Acquisition,
    CertifiedActivity,
    PeakLines,
    SourceLine,
    peaks_with_lines,
    plain_name,
    source_lines,
)
from ..analysis.efficiency import CurveFit, EfficiencyCalibration, EfficiencyCurve, EfficiencyPoint
from ..analysis.results import Nuclide, Peak
from ..analysis.summing import SummingFactor, TotalEfficiency
from ..records import RecordSource
from ..scratch import copy_of
from ..values import datetime_of
from . import coincidences

MIN_ENERGY = 40.0
"""keV. The efficiency falls so steeply below that no polynomial describes it well up to 2 MeV."""

_AREA_UNCERTAINTY = 0.003  # relative, of every area: the shape of real peaks
_OUTLIER = 5.0  # in standard deviations, for a point without the curve through it
_OUTLIER_SIZE = 0.05  # relative
_ROUNDS = 3  # the factors depend on the curve, and the curve on the factors

Ratios = Tuple[Tuple[float, float], ...]


class Method(NamedTuple):
    """How an efficiency calibration is made."""

    degree: Optional[int] = None  # of the polynomial; None: chosen by the residuals
    leave_out: Tuple[str, ...] = ()  # nuclides whose lines are not used
    min_energy: float = MIN_ENERGY  # keV, of the lines that are used
    total: Optional[TotalEfficiency] = None
    ratios: Ratios = ()  # energies in keV with the ratio of total to peak counts, without `total`


def calibrate(
    source: RecordSource,
    certificate: Sequence[CertifiedActivity],
    nuclides: Sequence[Nuclide],
    method: Method = Method(),
) -> EfficiencyCalibration:
    """Return the efficiency calibration from the spectrum of a certified source.

    certificate: each nuclide once. nuclides: a library that contains them. The source is not
    changed. Raises ValueError if times are missing, a nuclide is unknown or decayed, or there are
    too few usable peaks; QarError if the spectrum cannot be analysed.
    """
    certified = {plain_name(entry.nuclide) for entry in certificate}
    unknown = [name for name in method.leave_out if plain_name(name) not in certified]
    if unknown:
        raise ValueError(f"the nuclide {unknown[0]!r} to leave out is not in the certificate")
    lines = source_lines(certificate, nuclides, acquisition_of(source))
    own = [nuclide for nuclide in nuclides if plain_name(nuclide.name) in certified]
    candidates = peaks_with_lines(_peaks(source, own), lines)
    left_out = set(map(plain_name, method.leave_out))
    return _fitted(
        [_selected(peak, left_out, method.min_energy) for peak in candidates], own, method
    )


def write(source: RecordSource, calibration: EfficiencyCalibration) -> None:
    """Write an efficiency calibration into a source, with range, time and uncertainty."""
    curve = calibration.curve
    energies = [point.energy for point in calibration.points if not point.reason]
    source.set_column(PARAMETERS["efficiency"], curve.coefficients)
    source.set_column("QAR_D_EFFICCOVAR", curve.covariance_root)
    source["QAR_D_EFFICUNC"] = max(map(curve.uncertainty_at, energies))
    source["QAR_D_EFFICMIN"], source["QAR_D_EFFICMAX"] = curve.min_energy, curve.max_energy
    source["QAR_T_EFFICTIME"] = datetime.now(timezone.utc)
    if calibration.total is not None:
        efficiency.write_total(source, calibration.total)


def acquisition_of(source: RecordSource) -> Acquisition:
    """Return the times of a measurement. Raises ValueError if one is missing."""
    live_time, start = source.get("QAR_D_LIVETIME"), source.get("QAR_T_ACQSTART")
    if not live_time or not 0 < live_time < math.inf:
        raise ValueError("no live time; give one with --live-time")
    if not start:
        raise ValueError("no start of the measurement; give one with --start")
    real_time = source.get("QAR_D_REALTIME")
    is_possible = real_time is not None and live_time <= real_time < math.inf
    return Acquisition(datetime_of(start), real_time if is_possible else live_time, live_time)


def _peaks(source: RecordSource, nuclides: Sequence[Nuclide]) -> Tuple[Peak, ...]:
    """Return the peaks of an analysis with a nuclide library, which the source does not store."""
    with copy_of(source) as copy:
        results.write_nuclide_library(copy, nuclides)
        results.run_engine(copy)
        return results.results(copy).peaks


def _selected(peak: PeakLines, left_out: AbstractSet[str], min_energy: float) -> PeakLines:
    """Return a peak with the reason if it shall not be used."""
    strongest = max(peak.lines, key=lambda line: line.photons)
    if plain_name(strongest.nuclide) in left_out:
        return peak._replace(reason="left out")
    is_low = strongest.energy < min_energy
    return peak._replace(reason=f"below {min_energy:g} keV") if is_low else peak


# ---- The fit -----------------------------------------------------------------------------------


def _fitted(
    peaks: List[PeakLines], nuclides: Sequence[Nuclide], method: Method
) -> EfficiencyCalibration:
    """Return the calibration; peaks far from the curve are left out, the worst one first."""
    allowed = sum(not peak.reason for peak in peaks) // 5
    while True:
        calibration = _curve_of(peaks, nuclides, method)
        worst = _outlier(calibration)
        if worst is None or allowed == 0:
            return calibration
        allowed -= 1
        peaks[worst] = peaks[worst]._replace(reason="far from the curve")


def _outlier(calibration: EfficiencyCalibration) -> Optional[int]:
    """Return the number of the point that is too far from the curve, or None."""
    used = [number for number, point in enumerate(calibration.points) if not point.reason]
    far = [
        (abs(deviation), number)
        for number, deviation in zip(used, calibration.fit.deletion_residuals)
        if abs(deviation) > _OUTLIER and abs(calibration.points[number].residual) > _OUTLIER_SIZE
    ]
    return max(far)[1] if far else None


def _curve_of(
    peaks: Sequence[PeakLines], nuclides: Sequence[Nuclide], method: Method
) -> EfficiencyCalibration:
    """Return the calibration with the factors of its own curve."""
    used = [peak for peak in peaks if not peak.reason]
    if len(used) < 2:
        raise ValueError(f"{len(used)} usable peaks of the certified nuclides; expected at least 2")
    total, factors = method.total, [SummingFactor()] * len(used)
    is_known = total is not None or bool(method.ratios)
    fit = _fit(used, factors, False, method.degree)
    for _ in range(_ROUNDS):
        total = method.total or _total_of(fit.curve, method.ratios)
        of_lines = _factors_of_lines(nuclides, total, fit.curve)
        factors = [_factor_of(peak.lines, of_lines) for peak in used]
        fit = _fit(used, factors, is_known, method.degree)
    points = [_point(peak, of_lines, is_known, fit) for peak in peaks]
    return EfficiencyCalibration(fit, tuple(points), total if is_known else None)


def _total_of(curve: EfficiencyCurve, ratios: Ratios) -> TotalEfficiency:
    """Return the total efficiency from the curve and measured or usual ratios."""
    ratio_at = summing.measured_ratio(ratios) if ratios else summing.typical_ratio
    limits = curve.min_energy, curve.max_energy
    return summing.total_of_peaks(curve.value_at, ratio_at, limits, summing.USUAL_UNCERTAINTY)


def _factors_of_lines(
    nuclides: Sequence[Nuclide], total: TotalEfficiency, curve: EfficiencyCurve
) -> Dict[Tuple[str, int], SummingFactor]:
    """Return the factor of each line by the nuclide and the number of the line."""
    return {
        (nuclide.name, number): factor
        for nuclide in nuclides
        for number, factor in enumerate(
            summing.factors(
                nuclide.lines, coincidences.pairs().get(nuclide.name, ()), total, curve.value_within
            )
        )
    }


def _factor_of(
    lines: Sequence[SourceLine], factors: Dict[Tuple[str, int], SummingFactor]
) -> SummingFactor:
    """Return the factor of a peak, the mean over its lines."""
    photons = sum(line.photons for line in lines)
    own = [(line.photons / photons, factors[line.nuclide, line.number]) for line in lines]
    mean = sum(share * one.factor for share, one in own)
    change = sum(share * one.factor * one.uncertainty for share, one in own)
    return SummingFactor(mean, change / mean)


def _fit(
    peaks: Sequence[PeakLines],
    factors: Sequence[SummingFactor],
    is_corrected: bool,
    degree: Optional[int],
) -> CurveFit:
    energies = [_energy_of(peak.lines) for peak in peaks]
    values = [_efficiency(peak, factor, is_corrected) for peak, factor in zip(peaks, factors)]
    changes = [_summing_uncertainty(factor, is_corrected) for factor in factors]
    covariance = [
        [
            _covariance(one, other) + changes[i] * changes[j]
            if i != j
            else _variance(one) + changes[i] ** 2
            for j, other in enumerate(peaks)
        ]
        for i, one in enumerate(peaks)
    ]
    return efficiency.fit_curve(energies, values, covariance, degree)


def _summing_uncertainty(factor: SummingFactor, is_corrected: bool) -> float:
    """Return the signed relative uncertainty due to summing, common to all peaks.

    Without a correction it is the whole estimated change.
    """
    return factor.uncertainty if is_corrected else factor.factor - 1


def _efficiency(peak: PeakLines, factor: SummingFactor, is_corrected: bool) -> float:
    photons = sum(line.photons for line in peak.lines)
    return peak.peak.area / photons / (factor.factor if is_corrected else 1.0)


def _energy_of(lines: Sequence[SourceLine]) -> float:
    """Return the mean energy of the lines of a peak."""
    photons = sum(line.photons for line in lines)
    return sum(line.energy * line.photons for line in lines) / photons


def _shares(peak: PeakLines) -> Dict[str, Tuple[float, float]]:
    """Return the share of each nuclide in the photons of a peak, and its relative uncertainty."""
    photons = sum(line.photons for line in peak.lines)
    shares: Dict[str, Tuple[float, float]] = {}
    for line in peak.lines:
        share, _ = shares.get(line.nuclide, (0.0, 0.0))
        shares[line.nuclide] = share + line.photons / photons, line.activity_uncertainty
    return shares


def _covariance(one: PeakLines, other: PeakLines) -> float:
    """Return the relative covariance of two efficiencies, from the certificate."""
    left, right = _shares(one), _shares(other)
    return sum(
        left[name][0] * right[name][0] * left[name][1] ** 2 for name in left if name in right
    )


def _variance(peak: PeakLines) -> float:
    """Return the relative variance of an efficiency: area, yields and certificate."""
    photons = sum(line.photons for line in peak.lines)
    yields = sum((line.photons / photons * line.yield_uncertainty) ** 2 for line in peak.lines)
    area = (peak.peak.area_uncertainty / peak.peak.area) ** 2 + _AREA_UNCERTAINTY**2
    return area + yields + _covariance(peak, peak)


def _point(
    peak: PeakLines,
    factors: Dict[Tuple[str, int], SummingFactor],
    is_corrected: bool,
    fit: CurveFit,
) -> EfficiencyPoint:
    factor = _factor_of(peak.lines, factors)
    energy, value = _energy_of(peak.lines), _efficiency(peak, factor, is_corrected)
    variance = _variance(peak) + _summing_uncertainty(factor, is_corrected) ** 2
    names = sorted(_shares(peak), key=lambda name: -_shares(peak)[name][0])
    return EfficiencyPoint(
        *(energy, "+".join(names), peak.peak.area, peak.peak.area_uncertainty),
        *(sum(line.photons for line in peak.lines), factor, value, math.sqrt(variance)),
        *(math.log(value / fit.curve.value_at(energy)), peak.reason),
    )
