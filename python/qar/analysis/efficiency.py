"""The efficiency as a function of the energy: a polynomial in the logarithms with its covariance.

docs/efficiency.md has the formulas.
"""

import math
from fractions import Fraction
from typing import Any, Dict, List, NamedTuple, Optional, Sequence, Tuple

from ..errors import NotFoundError
from ..records import RecordSource
from . import least_squares
from .calibration import PARAMETERS, polynomial
from .least_squares import Matrix, PolynomialFit
from .summing import USUAL_UNCERTAINTY, SummingFactor, TotalEfficiency

MAX_DEGREE = 6
"""The highest degree of a polynomial; its covariance has 28 elements, of which 32 are read."""

MARKED = 0.01
"""Points whose area changes by more than this part by summing are marked."""

EFFICIENCY_PARAMETERS = (
    *(PARAMETERS["efficiency"], "QAR_D_EFFICCOVAR", "QAR_D_EFFICUNC", "QAR_T_EFFICTIME"),
    *("QAR_D_EFFICMIN", "QAR_D_EFFICMAX", "QAR_C_CALGEOMETRY"),
    *("QAR_D_TOTALENERGY", "QAR_D_TOTALEFFIC", "QAR_D_TOTALUNC"),
)
"""The parameters of an efficiency calibration, which belong together."""

_COVARIANCE = "QAR_D_EFFICCOVAR"
_TOTAL = ("QAR_D_TOTALENERGY", "QAR_D_TOTALEFFIC", "QAR_D_TOTALUNC")
_MIN_WEIGHT = 1e-3  # of a degree in the mean of several
_SAMPLES = 200  # energies at which a curve is tested for turning points


class EfficiencyCurve(NamedTuple):
    """The logarithm of the efficiency as a polynomial in the logarithm of the energy in keV."""

    coefficients: Tuple[float, ...] = ()  # lowest order first
    # Lower triangular matrix L, row by row; the covariance of the coefficients is L L^T.
    covariance_root: Tuple[float, ...] = ()
    min_energy: float = 0.0  # keV
    max_energy: float = 0.0  # keV

    def value_at(self, energy: float) -> float:
        """Return the counts in the full-energy peak per emitted photon at an energy in keV."""
        return math.exp(polynomial(self.coefficients, math.log(energy)))

    def value_within(self, energy: float) -> float:
        """Return the efficiency at an energy in keV, or at the nearer end of the range."""
        if self.max_energy > 0:
            energy = max(self.min_energy, min(self.max_energy, energy))
        return self.value_at(energy)

    def covariance(self, energy: float, other: float) -> float:
        """Return the relative covariance of the efficiencies at two energies in keV."""
        return math.fsum(a * b for a, b in zip(self._shares(energy), self._shares(other)))

    def uncertainty_at(self, energy: float) -> float:
        """Return the relative standard uncertainty of the efficiency at an energy in keV."""
        return math.sqrt(self.covariance(energy, energy))

    def _shares(self, energy: float) -> List[float]:
        """Return L^T (1, x, x^2, ...), whose square is the relative variance."""
        x, size, shares = math.log(energy), 0, [0.0] * len(self.coefficients)
        for order in range(len(self.coefficients)):
            row = self.covariance_root[size : size + order + 1]
            size += order + 1
            for column, item in enumerate(row):
                shares[column] += item * x**order
        return shares


class CurveFit(NamedTuple):
    """A fitted efficiency curve and its quality."""

    curve: EfficiencyCurve
    residuals: Tuple[float, ...]  # logarithm of each point minus that of the curve
    deletion_residuals: Tuple[float, ...]  # over the uncertainty, without the point in the fit
    degree: int  # with the smallest criterion
    weights: Dict[int, float]  # of each degree in the mean
    chi_square: float  # of this degree, before `scatter` is added
    degrees_of_freedom: int
    scatter: float  # relative, added to each point so that chi-square is not too large


class EfficiencyPoint(NamedTuple):
    """A peak of the certified source."""

    energy: float  # keV, of its lines
    nuclides: str  # separated by "+"
    area: float  # counts
    area_uncertainty: float  # one sigma, counts
    photons: float  # emitted by the lines of the peak during the live time
    factor: SummingFactor  # of the peak
    efficiency: float  # corrected with the factor if the total efficiency is known
    uncertainty: float  # relative, one sigma, with the common parts
    residual: float  # the logarithm of the efficiency minus that of the curve
    reason: str = ""  # why the point is not used; empty: it is used

    @property
    def has_summing(self) -> bool:
        """True if coincidence summing changes the area by more than MARKED."""
        return abs(self.factor.factor - 1) > MARKED


class EfficiencyCalibration(NamedTuple):
    """An efficiency calibration and its points."""

    fit: CurveFit
    points: Tuple[EfficiencyPoint, ...]
    total: Optional[TotalEfficiency]  # with which summing was corrected; None: it was not

    @property
    def curve(self) -> EfficiencyCurve:
        return self.fit.curve


def fit_curve(
    energies: Sequence[float],
    efficiencies: Sequence[float],
    covariance: Matrix,
    degree: Optional[int] = None,
) -> CurveFit:
    """Return the curve through measured efficiencies.

    energies: keV. covariance: the relative one of the efficiencies. degree: of the polynomial;
    default: the mean of the polynomials of several degrees, each with the weight that the
    corrected Akaike information criterion gives it. Their spread is part of the uncertainty.

    Raises ValueError if there are too few points.
    """
    xs, ys = [list(map(math.log, values)) for values in (energies, efficiencies)]
    candidates = [PolynomialFit(xs, ys, covariance, one) for one in _degrees(xs, degree)]
    possible = [fit for fit in candidates[1:] if degree or _turning_points(fit, xs) <= 1]
    best = min([candidates[0], *possible], key=_criterion)
    freedom = len(xs) - best.degree - 1
    scatter = _scatter(xs, ys, covariance, best.degree) if best.chi_square > freedom > 0 else 0.0
    widened = _widened(covariance, scatter)
    fits = [PolynomialFit(xs, ys, widened, one.degree) for one in [candidates[0], *possible]]
    coefficients, root, weights = _mean(fits)
    curve = EfficiencyCurve(coefficients, root, min(energies), max(energies))
    return CurveFit(
        curve,
        tuple(y - polynomial(coefficients, x) for x, y in zip(xs, ys)),
        tuple(best.deletion_residuals()),
        *(best.degree, weights, best.chi_square, freedom, scatter),
    )


def _degrees(xs: Sequence[float], degree: Optional[int]) -> Sequence[int]:
    """Return the given degree, or those with at least two points for each coefficient but one."""
    if degree is not None:
        return [degree]
    return range(1, max(1, min(MAX_DEGREE, (len(set(xs)) - 1) // 2)) + 1)


def _criterion(fit: PolynomialFit) -> float:
    """Return the corrected Akaike information criterion."""
    size, spare = fit.degree + 1, len(fit.residuals) - fit.degree - 2
    correction = 2 * size * (size + 1) / spare if spare > 0 else 0.0
    return fit.chi_square + 2 * size + correction


def _mean(
    fits: Sequence[PolynomialFit],
) -> Tuple[Tuple[float, ...], Tuple[float, ...], Dict[int, float]]:
    """Return the mean coefficients of fits, the root of their covariance, and the weights.

    The covariance includes the spread of the fits.
    """
    lowest = min(map(_criterion, fits))
    weights = {fit.degree: math.exp((lowest - _criterion(fit)) / 2) for fit in fits}
    used = [fit for fit in fits if weights[fit.degree] > _MIN_WEIGHT]
    total = sum(weights[fit.degree] for fit in used)
    weights = {fit.degree: weights[fit.degree] / total for fit in used}
    size = max(weights) + 1
    padded = [fit.coefficients() + [Fraction(0)] * (size - fit.degree - 1) for fit in used]
    parts = [Fraction(weights[fit.degree]) for fit in used]
    mean = [
        sum((part * row[i] for part, row in zip(parts, padded)), Fraction(0)) for i in range(size)
    ]
    covariance = [[Fraction(0)] * size for _ in range(size)]
    for part, fit, row in zip(parts, used, padded):
        own = fit.covariance()
        shift = [item - middle for item, middle in zip(row, mean)]
        for i in range(size):
            for j in range(size):
                inside = own[i][j] if max(i, j) <= fit.degree else Fraction(0)
                covariance[i][j] += part * (inside + shift[i] * shift[j])
    root = least_squares.exact_cholesky(covariance)
    return tuple(map(float, mean)), tuple(item for row in root for item in row), weights


def _turning_points(fitted: PolynomialFit, xs: Sequence[float]) -> int:
    low, step = min(xs), (max(xs) - min(xs)) / _SAMPLES
    values = [fitted.value_at(low + number * step) for number in range(_SAMPLES + 1)]
    rises = [after > before for before, after in zip(values, values[1:])]
    return sum(before != after for before, after in zip(rises, rises[1:]))


def _scatter(xs: Sequence[float], ys: Sequence[float], covariance: Matrix, degree: int) -> float:
    """Return the relative scatter of the points with which chi-square is as large as expected."""
    freedom = len(xs) - degree - 1
    low, high = 0.0, 1.0
    for _ in range(20):
        middle = (low + high) / 2
        widened = _widened(covariance, middle)
        is_wide = PolynomialFit(xs, ys, widened, degree).chi_square < freedom
        low, high = (low, middle) if is_wide else (middle, high)
    return high


def _widened(covariance: Matrix, scatter: float) -> Matrix:
    return [
        [item + (scatter**2 if i == j else 0.0) for j, item in enumerate(row)]
        for i, row in enumerate(covariance)
    ]


# ---- In a source -------------------------------------------------------------------------------


def read_curve(source: RecordSource) -> Optional[EfficiencyCurve]:
    """Return the efficiency curve of a source, or None if it has none.

    Without a stored covariance, the relative uncertainty is the same at all energies.
    """
    coefficients = source.column(PARAMETERS["efficiency"])
    if not any(coefficients):
        return None
    root = _known_column(source, _COVARIANCE)
    size = len(coefficients) * (len(coefficients) + 1) // 2
    if not any(root):
        root = [source.get("QAR_D_EFFICUNC", default=0.0)]
    root = (root + [0.0] * size)[:size]
    limits = (source.get(name, default=0.0) for name in ("QAR_D_EFFICMIN", "QAR_D_EFFICMAX"))
    return EfficiencyCurve(tuple(coefficients), tuple(root), *limits)


def forget_uncertainty(source: RecordSource) -> None:
    """Delete the covariance of an efficiency that is about to be replaced."""
    if any(_known_column(source, _COVARIANCE)):
        source.set_column(_COVARIANCE, ())


def copy_to(source: RecordSource, destination: RecordSource) -> None:
    """Copy everything that belongs to an efficiency calibration, and the total efficiency."""
    for name in EFFICIENCY_PARAMETERS:
        column = _known_column(source, name)
        if column:
            destination.set_column(name, column)


def read_total(source: RecordSource) -> Optional[TotalEfficiency]:
    """Return the total efficiency of a source, or None if it has none."""
    energies, values = (_known_column(source, name) for name in _TOTAL[:2])
    rising = [e for e, before in zip(energies, [0.0, *energies]) if e > before]
    count = next((i for i, e in enumerate(rising) if e != energies[i]), len(rising))
    count = min(count, len(values))
    if count == 0 or not all(0 < value <= 1 for value in values[:count]):
        return None
    uncertainty = source.get(_TOTAL[2], default=USUAL_UNCERTAINTY)
    return TotalEfficiency(tuple(energies[:count]), tuple(values[:count]), uncertainty)


def write_total(source: RecordSource, total: TotalEfficiency) -> None:
    """Write a total efficiency into a source."""
    source.set_column(_TOTAL[0], total.energies)
    source.set_column(_TOTAL[1], total.efficiencies)
    source[_TOTAL[2]] = total.uncertainty


def _known_column(source: RecordSource, name: str) -> List[Any]:
    """Return a column, empty if the dictionary of another suite does not have the parameter."""
    try:
        return source.column(name)
    except NotFoundError:
        return []
