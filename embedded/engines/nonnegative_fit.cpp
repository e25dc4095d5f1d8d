#include "embedded/engines/nonnegative_fit.h"

#include <Eigen/Jacobi>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

namespace embedded::engines {

namespace {

constexpr double minPivotOfFactor = 1e-10;
constexpr Eigen::Index firstCapacity = 16;

}  // namespace

bool UpdatedCholesky::append(const Eigen::VectorXd& elements, double diagonal) {
    const Eigen::VectorXd row = factor().triangularView<Eigen::Lower>().solve(elements);
    const double pivot = diagonal - row.squaredNorm();
    if (!(pivot >= minPivotOfFactor)) {
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

namespace {

constexpr double minGradient = 1e-9;  // of columns of length 1

}  // namespace

// Changes the active set of a fit until it is the best one.
class ActiveSetMethod {
  public:
    ActiveSetMethod(const NonnegativeFit& fit, NonnegativeFit::ActiveSet& set);

    void exclude(Eigen::Index unknown);
    void solve();

  private:
    bool freeBest();
    void moveToBest();
    bool addFree(Eigen::Index unknown);
    void removeFree(std::size_t position);
    Eigen::VectorXd gradient() const;

    const NonnegativeFit& fit_;
    NonnegativeFit::ActiveSet& set_;
    std::vector<bool> isCandidate_;  // to become free
};

ActiveSetMethod::ActiveSetMethod(const NonnegativeFit& fit, NonnegativeFit::ActiveSet& set)
    : fit_(fit), set_(set), isCandidate_(static_cast<std::size_t>(fit.right_.size()), true) {
    for (const Eigen::Index unknown : set.free) {
        isCandidate_[static_cast<std::size_t>(unknown)] = false;
    }
    for (const Eigen::Index unknown : fit.excluded_) {
        isCandidate_[static_cast<std::size_t>(unknown)] = false;
    }
}

// Frees an unknown unless it depends linearly on the free ones.
bool ActiveSetMethod::addFree(Eigen::Index unknown) {
    const Eigen::VectorXd column = fit_.design_.col(unknown);
    Eigen::VectorXd elements(static_cast<Eigen::Index>(set_.free.size()));
    for (std::size_t position = 0; position < set_.free.size(); ++position) {
        elements[static_cast<Eigen::Index>(position)] =
            fit_.design_.col(set_.free[position]).dot(column);
    }
    if (!set_.factor.append(elements, column.squaredNorm() + fit_.penalties_[unknown])) {
        return false;
    }
    set_.free.push_back(unknown);
    isCandidate_[static_cast<std::size_t>(unknown)] = false;
    return true;
}

void ActiveSetMethod::removeFree(std::size_t position) {
    const Eigen::Index unknown = set_.free[position];
    set_.factor.remove(static_cast<Eigen::Index>(position));
    set_.free.erase(set_.free.begin() + static_cast<std::ptrdiff_t>(position));
    set_.values[unknown] = 0.0;
    isCandidate_[static_cast<std::size_t>(unknown)] = true;
}

// The negative gradient of half the sum of squares.
Eigen::VectorXd ActiveSetMethod::gradient() const {
    const Eigen::VectorXd residuals = fit_.observed_ - fit_.design_ * set_.values;
    return fit_.design_.transpose() * residuals - fit_.penalties_.cwiseProduct(set_.values);
}

// Frees the unknown that reduces the sum of squares most. False if none does.
bool ActiveSetMethod::freeBest() {
    const Eigen::VectorXd slope = gradient();
    const double minSlope = minGradient * fit_.right_.cwiseAbs().maxCoeff();
    Eigen::Index best = -1;
    for (Eigen::Index unknown = 0; unknown < slope.size(); ++unknown) {
        if (isCandidate_[static_cast<std::size_t>(unknown)] && slope[unknown] > minSlope &&
            (best < 0 || slope[unknown] > slope[best])) {
            best = unknown;
        }
    }
    if (best < 0) {
        return false;
    }
    if (!addFree(best)) {
        isCandidate_[static_cast<std::size_t>(best)] = false;
    }
    return true;
}

// Moves the free unknowns to their best values; negative ones return to 0.
void ActiveSetMethod::moveToBest() {
    while (!set_.free.empty()) {
        const Eigen::VectorXd best = set_.factor.solve(fit_.right_(set_.free));
        double step = 1.0;
        for (std::size_t position = 0; position < set_.free.size(); ++position) {
            const double next = best[static_cast<Eigen::Index>(position)];
            const double now = set_.values[set_.free[position]];
            if (next <= 0.0) {
                step = std::min(step, now / (now - next + std::numeric_limits<double>::min()));
            }
        }
        bool isBest = true;
        const double smallest = 1e-12 * set_.values.maxCoeff();
        for (std::size_t position = set_.free.size(); position-- > 0;) {
            double& value = set_.values[set_.free[position]];
            const double next = best[static_cast<Eigen::Index>(position)];
            value += step * (next - value);
            if (next <= 0.0 && value <= smallest) {
                removeFree(position);
                isBest = false;
            }
        }
        if (isBest) {
            return;
        }
    }
}

void ActiveSetMethod::exclude(Eigen::Index unknown) {
    const auto position = std::ranges::find(set_.free, unknown);
    if (position != set_.free.end()) {
        removeFree(static_cast<std::size_t>(position - set_.free.begin()));
    }
    isCandidate_[static_cast<std::size_t>(unknown)] = false;
    moveToBest();
}

void ActiveSetMethod::solve() {
    // Each unknown is freed and held a few times at most; more often means a cycle of rounding
    // errors.
    for (Eigen::Index turn = 0; turn < 3 * set_.values.size() && freeBest(); ++turn) {
        moveToBest();
    }
}

NonnegativeFit::NonnegativeFit(const NonnegativeProblem& problem) : observed_(problem.observed) {
    lengths_ = (problem.design.colwise().squaredNorm().transpose() + problem.penalties).cwiseSqrt();
    scale_ = (lengths_.array() > 0.0).select(lengths_.cwiseMax(1e-300).cwiseInverse(), 0.0);
    design_ = Eigen::MatrixXd(problem.design * scale_.asDiagonal()).sparseView();
    penalties_ = problem.penalties.cwiseProduct(scale_.cwiseAbs2());
    right_ = design_.transpose() * observed_;
    solution_.values = Eigen::VectorXd::Zero(right_.size());
    ActiveSetMethod(*this, solution_).solve();
    values_ = solution_.values.cwiseProduct(scale_);
}

Eigen::VectorXd NonnegativeFit::variances() const {
    Eigen::VectorXd variances = Eigen::VectorXd::Zero(values_.size());
    variances(solution_.free) = solution_.factor.inverseDiagonal();
    return variances.cwiseProduct(scale_.cwiseAbs2());
}

Eigen::VectorXd NonnegativeFit::valuesWithout(Eigen::Index unknown) const {
    ActiveSet set = solution_;
    ActiveSetMethod method(*this, set);
    method.exclude(unknown);
    method.solve();
    return set.values.cwiseProduct(scale_);
}

void NonnegativeFit::exclude(Eigen::Index unknown) {
    excluded_.push_back(unknown);
    ActiveSetMethod method(*this, solution_);
    method.exclude(unknown);
    method.solve();
    values_ = solution_.values.cwiseProduct(scale_);
}

Eigen::VectorXd NonnegativeFit::residuals(const Eigen::VectorXd& values) const {
    return design_ * values.cwiseProduct(lengths_) - observed_;
}

}  // namespace embedded::engines
