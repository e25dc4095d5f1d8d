"""Generalised least squares: a polynomial through points with a full covariance matrix."""

import math
from fractions import Fraction
from typing import List, Sequence, Union

Matrix = List[List[float]]


class PolynomialFit:
    """The polynomial of a degree with the smallest chi-square.

    covariance: of the ys, positive definite. Raises ValueError if there are too few different xs.
    """

    def __init__(
        self, xs: Sequence[float], ys: Sequence[float], covariance: Matrix, degree: int
    ) -> None:
        if len(set(xs)) <= degree:
            raise ValueError(f"a polynomial of degree {degree} needs {degree + 1} points")
        self.degree = degree
        # Powers of a centred variable of about 1 keep the normal equations well conditioned.
        self._middle = (min(xs) + max(xs)) / 2
        self._scale = (max(xs) - min(xs)) / 2 or 1.0
        powers = [self._powers(x, degree) for x in xs]
        self._root = cholesky(covariance)
        self._columns = [forward(self._root, column) for column in zip(*powers)]
        normal = [[_dot(left, right) for right in self._columns] for left in self._columns]
        self._covariance = _inverse(normal)
        whitened = forward(self._root, ys)
        right_side = [_dot(column, whitened) for column in self._columns]
        self._scaled = [_dot(row, right_side) for row in self._covariance]
        self.residuals = [y - _dot(row, self._scaled) for row, y in zip(powers, ys)]
        self._whitened_residuals = forward(self._root, self.residuals)
        self.chi_square = _dot(self._whitened_residuals, self._whitened_residuals)

    def value_at(self, x: float) -> float:
        return _dot(self._powers(x, len(self._scaled) - 1), self._scaled)

    def coefficients(self) -> List[Fraction]:
        """Return the coefficients of the powers of x, lowest order first."""
        return [_exact_dot(self._scaled, column) for column in self._expanded()]

    def covariance(self) -> List[List[Fraction]]:
        """Return the covariance of the coefficients; exact, because it is almost singular."""
        size, expanded = len(self._scaled), self._expanded()
        symmetric = [
            [self._covariance[max(i, j)][min(i, j)] for j in range(size)] for i in range(size)
        ]
        half = [[_exact_dot(row, column) for column in expanded] for row in symmetric]
        return [[_exact_dot(row, column) for column in zip(*half)] for row in expanded]

    def deletion_residuals(self) -> List[float]:
        """Return the residual of each point to a fit without it, over its uncertainty.

        Its square is the decrease of chi-square without the point.
        """
        count, result = len(self.residuals), []
        for point in range(count):
            weight = forward(self._root, [float(point == other) for other in range(count)])
            shares = [_dot(column, weight) for column in self._columns]
            explained = _dot(shares, [_dot(row, shares) for row in self._covariance])
            all_of_it = _dot(weight, weight)
            variance = all_of_it - explained
            is_free = variance > 1e-9 * all_of_it
            deviation = _dot(weight, self._whitened_residuals)
            result.append(deviation / math.sqrt(variance) if is_free else 0.0)
        return result

    def _powers(self, x: float, degree: int) -> List[float]:
        return [((x - self._middle) / self._scale) ** order for order in range(degree + 1)]

    def _expanded(self) -> List[List[Fraction]]:
        """Return, for each order of x, its coefficients in the powers of the scaled variable."""
        slope = 1 / Fraction(self._scale)
        constant = -Fraction(self._middle) * slope
        power = [Fraction(1)] + [Fraction(0)] * (len(self._scaled) - 1)
        powers = [power]
        for _ in self._scaled[1:]:
            power = [constant * a + slope * b for a, b in zip(power, [Fraction(0), *power])]
            powers.append(power)
        return [list(column) for column in zip(*powers)]


def cholesky(matrix: Matrix) -> Matrix:
    """Return the lower triangular matrix L with L L^T equal to a positive definite matrix."""
    root: Matrix = []
    for i, row in enumerate(matrix):
        new: List[float] = []
        for j in range(i):
            new.append((row[j] - _dot(new, root[j])) / root[j][j])
        root.append([*new, math.sqrt(row[i] - _dot(new, new))])
    return root


def forward(root: Matrix, values: Sequence[float]) -> List[float]:
    """Return the solution of L x = values for a lower triangular matrix."""
    result: List[float] = []
    for row, value in zip(root, values):
        result.append((value - _dot(result, row)) / row[-1])
    return result


def exact_cholesky(matrix: Sequence[Sequence[Fraction]]) -> Matrix:
    """Return L with L L^T equal to an exact matrix that may be almost singular.

    The factors are computed without rounding and rounded once at the end.
    """
    size = len(matrix)
    lower = [[Fraction(int(i == j)) for j in range(size)] for i in range(size)]
    diagonal: List[Fraction] = []
    for j in range(size):
        known = sum((lower[j][k] ** 2 * diagonal[k] for k in range(j)), Fraction(0))
        diagonal.append(matrix[j][j] - known)
        for i in range(j + 1, size):
            known = sum((lower[i][k] * lower[j][k] * diagonal[k] for k in range(j)), Fraction(0))
            lower[i][j] = (matrix[i][j] - known) / diagonal[j]
    roots = [math.sqrt(value) for value in diagonal]
    return [[float(lower[i][j]) * roots[j] for j in range(i + 1)] for i in range(size)]


def _inverse(matrix: Matrix) -> Matrix:
    root = cholesky(matrix)
    size = len(matrix)
    columns = [forward(root, [float(i == j) for i in range(size)]) for j in range(size)]
    return [[_dot(left, right) for right in columns] for left in columns]


def _dot(left: Sequence[float], right: Sequence[float]) -> float:
    """Return the sum of the products; the longer sequence is cut."""
    return math.fsum(a * b for a, b in zip(left, right))


def _exact_dot(left: Sequence[Union[float, Fraction]], right: Sequence[Fraction]) -> Fraction:
    return sum((Fraction(a) * b for a, b in zip(left, right)), Fraction(0))
