#include "embedded/engines/normal_equations.h"

#include <cmath>
#include <utility>

namespace embedded::engines {

namespace {

// A pivot that elimination left with less than this part of its diagonal is rounding error.
constexpr double smallestPivot = 1e-12;

}  // namespace

NormalEquations::NormalEquations(std::size_t unknowns)
    : size_(unknowns), matrix_(unknowns * unknowns, 0.0), right_(unknowns, 0.0) {}

void NormalEquations::add(std::span<const double> derivatives, double residual, double weight) {
    for (std::size_t row = 0; row < size_; ++row) {
        const double weighted = derivatives[row] * weight;
        right_[row] += weighted * residual;
        for (std::size_t column = 0; column <= row; ++column) {
            matrix_[row * size_ + column] += weighted * derivatives[column];
        }
    }
}

// Cholesky factor: matrix = lower * transposed lower.
std::optional<NormalEquations::Matrix> NormalEquations::factor(double damping) const {
    Matrix lower(matrix_);
    for (std::size_t row = 0; row < size_; ++row) {
        for (std::size_t column = 0; column <= row; ++column) {
            double value = matrix_[row * size_ + column] * (row == column ? 1.0 + damping : 1.0);
            const double diagonal = value;
            for (std::size_t inner = 0; inner < column; ++inner) {
                value -= lower[row * size_ + inner] * lower[column * size_ + inner];
            }
            if (row != column) {
                value /= lower[column * size_ + column];
            } else if (value > diagonal * smallestPivot) {
                value = std::sqrt(value);
            } else {
                return std::nullopt;
            }
            lower[row * size_ + column] = value;
        }
    }
    return lower;
}

std::vector<double> NormalEquations::solve(const Matrix& lower, std::vector<double> right) const {
    for (std::size_t row = 0; row < size_; ++row) {
        for (std::size_t inner = 0; inner < row; ++inner) {
            right[row] -= lower[row * size_ + inner] * right[inner];
        }
        right[row] /= lower[row * size_ + row];
    }
    for (std::size_t row = size_; row-- > 0;) {
        for (std::size_t inner = row + 1; inner < size_; ++inner) {
            right[row] -= lower[inner * size_ + row] * right[inner];
        }
        right[row] /= lower[row * size_ + row];
    }
    return right;
}

std::optional<std::vector<double>> NormalEquations::step(double damping) const {
    const auto lower = factor(damping);
    if (!lower) {
        return std::nullopt;
    }
    return solve(*lower, right_);
}

std::optional<std::vector<double>> NormalEquations::variances() const {
    const auto lower = factor(0.0);
    if (!lower) {
        return std::nullopt;
    }
    std::vector<double> variances(size_);
    for (std::size_t unknown = 0; unknown < size_; ++unknown) {
        std::vector<double> unit(size_, 0.0);
        unit[unknown] = 1.0;
        variances[unknown] = solve(*lower, std::move(unit))[unknown];
    }
    return variances;
}

}  // namespace embedded::engines
