"""The fitted curves of a spectrum, as the engine's fit computes them.

A curve gives the content of each channel of a region: the integral of its peaks over the channel
on the continuum. Chi-square of a curve is that of the region in the table of peaks.
"""

import math
from typing import Dict, Iterable, List, NamedTuple, Optional, Sequence, Tuple

from ..errors import NotFoundError
from ..records import RecordSource
from .calibration import FWHM_PER_SIGMA, Calibration
from .results import Peak

MIN_VARIANCE = 0.5
"""The smallest variance of a channel in residuals and chi-square."""

_OUT_OF_SIGHT = 8.0  # sigma: less than 1e-15 of a Gaussian is beyond
_REACH = 2.0  # FWHM on either side of a peak whose region is not known
_MAX_WORK = 64  # peaks that are evaluated for each channel of the spectrum, on average
_MAX_LENGTH, _MAX_DRIFT = 100.0, 100.0  # sigma
_MAX_VALUE = 1e15  # counts and channels in a sound file are smaller

# Abscissas and weights of Gauss-Legendre quadrature over -1/2 to 1/2 with five points.
_NODES = tuple(
    (sign * abscissa / 2, weight / 2)
    for abscissa, weight, signs in (
        (0.9061798459386640, 0.2369268850561891, (-1, 1)),
        (0.5384693101056831, 0.4786286704993665, (-1, 1)),
        (0.0, 0.5688888888888889, (1,)),
    )
    for sign in signs
)


class Tail(NamedTuple):
    """An exponential tail: its fraction of the area, and its decay length in sigma."""

    fraction: float
    length: float


class Shape(NamedTuple):
    """A peak in channels: a Gaussian with tails, spread by a drift of the centroid."""

    centroid: float  # counted from 1
    fwhm: float
    area: float
    left: Optional[Tail] = None
    right: Optional[Tail] = None
    drift: float = 0.0  # sigma


class Step(NamedTuple):
    """A fall of the continuum toward higher channels, as rounded as a Gaussian."""

    height: float  # counts
    centroid: float
    fwhm: float


class Region(NamedTuple):
    """The model of a region, whose peaks were fitted together."""

    first: int  # channels, counted from 1
    last: int
    peaks: Tuple[int, ...]  # indexes in the results of the analysis
    shapes: Tuple[Shape, ...]  # of these peaks, then those of fitted peaks below the limit
    level: float  # continuum in the middle, counts
    slope: float  # its rise from there to the end
    curvature: float  # its height at the ends above the straight line
    steps: Tuple[Step, ...]
    degrees_of_freedom: Optional[int]
    shape_chi_square: float  # part of chi-square that does not come from the channels
    is_fit: bool  # False: an approximation, because the file has no model of the fit


class Curve(NamedTuple):
    """A region as contents of its channels."""

    region: Region
    model: List[float]  # one item for each channel from region.first to region.last
    continuum: List[float]
    peaks: List[List[float]]  # the net contents of each of region.peaks

    def residuals(self, counts: Sequence[int], excess: Sequence[float] = ()) -> List[float]:
        """Return the counts minus the model in standard deviations.

        counts: of the whole spectrum. excess: see `excess_variance`.
        """
        first = self.region.first
        return [
            (counts[index] - model)
            / math.sqrt(max(model + (excess[index] if excess else 0.0), MIN_VARIANCE))
            for index, model in enumerate(self.model, start=first - 1)
        ]

    def chi_square(self, counts: Sequence[int], excess: Sequence[float] = ()) -> Optional[float]:
        """Return the reduced chi-square, or None if the file has no model of the fit."""
        if not self.region.degrees_of_freedom:
            return None
        squares = sum(residual**2 for residual in self.residuals(counts, excess))
        return (squares + self.region.shape_chi_square) / self.region.degrees_of_freedom


def curves_of(
    source: RecordSource, peaks: Sequence[Peak], counts: Sequence[int], calibration: Calibration
) -> List[Curve]:
    """Return the curve of each fitted region of a source, by rising channel; see `regions_of`."""
    return [curve_of(region) for region in regions_of(source, peaks, counts, calibration)]


def regions_of(
    source: RecordSource, peaks: Sequence[Peak], counts: Sequence[int], calibration: Calibration
) -> List[Region]:
    """Return the fitted regions of a source, by rising channel.

    peaks: the results of the source; counts: its spectrum. Peaks without a model in the file, from
    another engine, get Gaussians on a straight line between the ends of their region.
    """
    regions = [*_fitted_regions(source, peaks, len(counts))]
    drawn = {index for region in regions for index in region.peaks}
    others = [(index, peak) for index, peak in enumerate(peaks) if index not in drawn]
    regions += _estimated_regions(others, counts, calibration)
    return [*_affordable(sorted(regions), len(counts))]


def curve_of(region: Region) -> Curve:
    """Return the contents of a region's channels."""
    continuum = [_continuum(region, channel) for channel in range(region.first, region.last + 1)]
    parts = [_contents(shape, region.first, region.last) for shape in region.shapes]
    model = [sum(items) for items in zip(continuum, *parts)]
    return Curve(region, model, continuum, parts[: len(region.peaks)])


def _affordable(regions: Iterable[Region], channels: int) -> Iterable[Region]:
    """Yield regions up to the work that a damaged file may cause."""
    work = 0
    for region in regions:
        work += (region.last - region.first + 1) * (1 + len(region.shapes))
        if work <= _MAX_WORK * channels:
            yield region


# ---- Reading the model -------------------------------------------------------------------------

_CONTINUUM = ("QAR_D_CONTLEVEL", "QAR_D_CONTSLOPE", "QAR_D_CONTCURVE")
_STEP = ("QAR_D_STEPHEIGHT", "QAR_D_STEPCENTR", "QAR_D_STEPWIDTH")
_EDGE = ("QAR_D_EDGEHEIGHT", "QAR_D_EDGECENTR", "QAR_D_EDGEWIDTH")
_TAILS = ("QAR_D_LEFTTAIL", "QAR_D_LEFTLENGTH", "QAR_D_RIGHTTAIL", "QAR_D_RIGHTLENGTH")
_OWN = (*_TAILS, "QAR_D_PEAKDRIFT", "QAR_D_PEAKBROAD", "QAR_D_PEAKWIDTH")
_PLAIN = {  # the engine leaves out these values
    **dict.fromkeys((*_CONTINUUM, *_STEP, *_EDGE, *_TAILS, "QAR_D_PEAKDRIFT"), 0.0),
    "QAR_D_PEAKBROAD": 1.0,
}
_MINOR = ("QAR_D_MINORCENTR", "QAR_D_MINORWIDTH", "QAR_D_MINORAREA")


def _fitted_regions(source: RecordSource, peaks: Sequence[Peak], channels: int) -> Iterable[Region]:
    """Yield the regions whose model is in the file; peaks of a region have the same values."""
    if not _has_parameters(source):
        return
    members: Dict[Tuple[float, ...], List[int]] = {}
    for index, peak in enumerate(peaks):
        left, right = peak.left or 0, peak.right or 0
        continuum = _values(source, (*_CONTINUUM, *_STEP, *_EDGE), index + 1)
        if continuum and 1 <= left < right <= channels and _shape(source, peak, index + 1):
            members.setdefault((left, right, *continuum), []).append(index)
    for (first, last, level, slope, curvature, *steps), indexes in members.items():
        record = indexes[0] + 1
        shapes = [_shape(source, peaks[index], index + 1) for index in indexes]
        freedom = source.get("QAR_L_PEAKFREEDOM", record)
        shape_chi_square = source.get("QAR_D_SHAPECHISQ", record)
        yield Region(
            int(first),
            int(last),
            tuple(indexes),
            (*filter(None, shapes), *_minor_shapes(source, record, shapes[0])),
            level,
            slope,
            curvature,
            tuple(step for step in (Step(*steps[:3]), Step(*steps[3:])) if step.height != 0),
            freedom if freedom and freedom > 0 else None,
            shape_chi_square if _is_sound(shape_chi_square) else 0.0,
            True,
        )


def _has_parameters(source: RecordSource) -> bool:
    """Return False for a dictionary that lacks the parameters, such as that of the suite."""
    try:
        source.get(_CONTINUUM[0])
    except NotFoundError:
        return False
    return True


def _values(
    source: RecordSource, names: Sequence[str], record: int, entry: int = 1
) -> Optional[Tuple[float, ...]]:
    """Return values of a record, or None if one is not finite or is missing without a default."""
    values = [source.get(name, record, entry, _PLAIN.get(name)) for name in names]
    return tuple(values) if all(map(_is_sound, values)) else None


def _is_sound(value: Optional[float]) -> bool:
    return value is not None and abs(value) <= _MAX_VALUE


def _shape(source: RecordSource, peak: Peak, record: int) -> Optional[Shape]:
    """Return the shape of a peak, or None if its record has none."""
    values = _values(source, _OWN, record)
    if values is None or not (_is_sound(peak.centroid) and _is_sound(peak.area)):
        return None
    left_part, left_length, right_part, right_length, drift, broadening, width = values
    if not (width > 0 and 0.01 <= broadening <= 100 and 0 <= drift <= _MAX_DRIFT):
        return None
    left, right = (
        Tail(fraction, length / broadening) if fraction else None
        for fraction, length in ((left_part, left_length), (right_part, right_length))
    )
    if not all(map(_is_possible, filter(None, (left, right)))):
        return None
    return Shape(peak.centroid, width, peak.area, left, right, drift / broadening)


def _is_possible(tail: Tail) -> bool:
    return 0 <= tail.fraction <= 1 and 0.01 < tail.length < _MAX_LENGTH


def _minor_shapes(source: RecordSource, record: int, like: Optional[Shape]) -> Iterable[Shape]:
    """Yield the fitted peaks of a region that have no record."""
    for entry in range(1, source.entry_count(_MINOR[0], record) + 1):
        values = _values(source, _MINOR, record, entry)
        if values and values[1] > 0 and like:
            yield like._replace(centroid=values[0], fwhm=values[1], area=values[2])


# ---- Regions without a model -------------------------------------------------------------------


def _estimated_regions(
    peaks: Iterable[Tuple[int, Peak]], counts: Sequence[int], calibration: Calibration
) -> List[Region]:
    """Return Gaussians on straight lines; peaks with overlapping regions share one."""
    ends: List[Tuple[int, int, int, Shape]] = []
    for index, peak in peaks:
        width = _width(peak, calibration)
        if width > 0 and _is_sound(peak.area) and 1 <= peak.centroid <= len(counts):
            reach = _REACH * width
            left = peak.left if peak.left is not None else round(peak.centroid - reach)
            right = peak.right if peak.right is not None else round(peak.centroid + reach)
            shape = Shape(peak.centroid, width, peak.area)
            ends.append((max(1, left), min(len(counts), right), index, shape))
    regions: List[Region] = []
    for left, right, index, shape in sorted(ends):
        if regions and left <= regions[-1].last:
            last = regions.pop()
            members = ((*last.peaks, index), (*last.shapes, shape))
            regions.append(_estimated(last.first, max(last.last, right), *members, counts))
        elif left < right:
            regions.append(_estimated(left, right, (index,), (shape,), counts))
    return regions


def _width(peak: Peak, calibration: Calibration) -> float:
    """Return the FWHM in channels; 0 if it is not known."""
    if not calibration.energy or not (math.isfinite(peak.fwhm) and math.isfinite(peak.centroid)):
        return 0.0
    low, high = (calibration.energy_at(peak.centroid + half) for half in (-0.5, 0.5))
    return peak.fwhm / (high - low) if high > low else 0.0


def _estimated(
    left: int, right: int, peaks: Tuple[int, ...], shapes: Tuple[Shape, ...], counts: Sequence[int]
) -> Region:
    low, high = (_mean_around(counts, channel) for channel in (left, right))
    continuum = ((low + high) / 2, (high - low) / 2, 0.0)
    return Region(left, right, peaks, shapes, *continuum, (), None, 0.0, False)


def _mean_around(counts: Sequence[int], channel: int) -> float:
    around = counts[max(0, channel - 2) : channel + 1]
    return sum(around) / len(around)


# ---- The model ---------------------------------------------------------------------------------


def _continuum(region: Region, channel: int) -> float:
    half = (region.last - region.first) / 2
    position = (channel - region.first) / half - 1
    content = region.level + position * (region.slope + position * region.curvature)
    for step in region.steps:
        if step.fwhm > 0:
            distance = (step.centroid - channel) * FWHM_PER_SIGMA / step.fwhm
            content += step.height * _normal_distribution(distance)
    return content


def _contents(shape: Shape, first: int, last: int) -> List[float]:
    """Return the net contents of channels: integrals of the peak over their width."""
    sigma = shape.fwhm / FWHM_PER_SIGMA
    below = [
        _part_below_with_drift((channel - 0.5 - shape.centroid) / sigma, shape)
        for channel in range(first, last + 2)
    ]
    return [shape.area * (high - low) for low, high in zip(below, below[1:])]


def _part_below_with_drift(position: float, shape: Shape) -> float:
    if shape.drift == 0:
        return _part_below(position, shape)
    return sum(
        weight * _part_below(position + shift * shape.drift, shape) for shift, weight in _NODES
    )


def _part_below(position: float, shape: Shape) -> float:
    """Return the part of a peak of unit area below a position in sigma from its centroid."""
    part = _normal_distribution(position)
    if shape.left:
        part += shape.left.fraction * _raised_by_folding(position, shape.left.length)
    if shape.right:
        part -= shape.right.fraction * _raised_by_folding(-position, shape.right.length)
    return part


def _raised_by_folding(position: float, length: float) -> float:
    """Return what folding with an exponential toward lower positions adds to the integral."""
    inverse = 1 / length
    if abs(position) > _OUT_OF_SIGHT and (position > 0 or position * inverse < -3 * _OUT_OF_SIGHT):
        return 0.0
    exponent = inverse * (position + inverse / 2)
    if exponent > 700:  # far in the tail of the Gaussian, which vanishes faster
        return 0.0
    return math.exp(exponent) * _normal_distribution(-position - inverse)


def _normal_distribution(position: float) -> float:
    return math.erfc(-position / math.sqrt(2)) / 2


# ---- Subtracted background ---------------------------------------------------------------------

_BLOCK, _AROUND = 32, 48  # channels
_MEDIAN_CHI_SQUARE = 0.4549  # of one degree of freedom


def excess_variance(counts: Sequence[int]) -> List[float]:
    """Return the variance of each content beyond that of a count.

    It is empty if no content is negative; otherwise a background was subtracted, and the scatter
    of neighbouring channels gives the variance as in the engine.
    """
    if not any(count < 0 for count in counts):
        return []
    excess: List[float] = []
    for first in range(0, len(counts), _BLOCK):
        end = min(len(counts), first + _BLOCK)
        excess += [_excess_around(counts, (first + end) // 2)] * (end - first)
    return excess


def _excess_around(counts: Sequence[int], centre: int) -> float:
    indexes = range(max(centre - _AROUND, 1), min(len(counts) - 1, centre + _AROUND + 1))
    if not indexes:
        return 0.0
    squares = [(counts[i - 1] - 2 * counts[i] + counts[i + 1]) ** 2 / 6 for i in indexes]
    scatter = sorted(squares)[len(squares) // 2] / _MEDIAN_CHI_SQUARE
    counting = max(0, sorted(counts[i] for i in indexes)[len(indexes) // 2])
    return max(0.0, scatter - counting)
