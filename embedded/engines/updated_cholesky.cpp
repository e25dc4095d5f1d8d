#include "embedded/engines/updated_cholesky.h"

#include <Eigen/Jacobi>
#include <algorithm>
#include <cmath>

namespace embedded::engines {

namespace {

constexpr double minPivot = 1e-10;
constexpr Eigen::Index firstCapacity = 16;

}  // namespace

bool UpdatedCholesky::append(const Eigen::VectorXd& elements, double diagonal) {
    const Eigen::VectorXd row = factor().triangularView<Eigen::Lower>().solve(elements);
    const double pivot = diagonal - row.squaredNorm();
    if (!(pivot >= minPivot)) {
        return false;
    }
    if (size_ == factor_.rows()) {
        const Eigen::Index capacity = std::max(firstCapacity, 2 * size_);
        factor_.conservativeResize(capacity, capacity);
    }
    factor_.row(size_).head(size_) = row.transpose();
    factor_(size_, size_) = std::sqrt(pivot);
    ++size_;
    return true;
}

// Without its row the factor has elements beyond the diagonal; each rotation of two columns removes
// one of them.
void UpdatedCholesky::remove(Eigen::Index position) {
    --size_;
    for (Eigen::Index row = position; row < size_; ++row) {
        factor_.row(row).head(row + 2) = factor_.row(row + 1).head(row + 2);
    }
    for (Eigen::Index column = position; column < size_; ++column) {
        Eigen::JacobiRotation<double> rotation;
        rotation.makeGivens(factor_(column, column), factor_(column, column + 1));
        factor_.middleRows(column, size_ - column).applyOnTheRight(column, column + 1, rotation);
        if (factor_(column, column) < 0.0) {
            factor_.col(column).segment(column, size_ - column) *= -1.0;
        }
    }
}

Eigen::VectorXd UpdatedCholesky::solve(const Eigen::VectorXd& right) const {
    const auto lower = factor().triangularView<Eigen::Lower>();
    const Eigen::VectorXd forward = lower.solve(right);
    return lower.transpose().solve(forward);
}

Eigen::VectorXd UpdatedCholesky::inverseDiagonal() const {
    const Eigen::MatrixXd inverse =
        factor().triangularView<Eigen::Lower>().solve(Eigen::MatrixXd::Identity(size_, size_));
    return inverse.colwise().squaredNorm().transpose();
}

}  // namespace embedded::engines
