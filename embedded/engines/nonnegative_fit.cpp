#include "embedded/engines/nonnegative_fit.h"

#include <Eigen/Cholesky>
#include <algorithm>
#include <cstddef>
#include <limits>
#include <optional>

namespace embedded::engines {

namespace {

constexpr double minGradient = 1e-9;  // of columns of length 1
constexpr double minPivot = 1e-10;

}  // namespace

// The free unknowns have the values that fit best, the others are held at 0.
class ActiveSetMethod {
  public:
    ActiveSetMethod(NonnegativeFit& fit, std::optional<Eigen::Index> excluded);

    void startWith(const Eigen::VectorXd& values);
    void solve();
    const Eigen::VectorXd& values() const { return values_; }
    Eigen::VectorXd variances() const;

  private:
    void factorise();
    bool freeBest();
    void moveToBest();
    void addFree(Eigen::Index unknown);
    void removeFree(Eigen::Index unknown);
    Eigen::VectorXd gradient() const;
    Eigen::MatrixXd freeMatrix() const;

    NonnegativeFit& fit_;
    Eigen::VectorXd values_;
    std::vector<Eigen::Index> free_;
    std::vector<bool> isFree_;
    std::vector<bool> isExcluded_;
    Eigen::LDLT<Eigen::MatrixXd> factors_;  // of the matrix of the free unknowns
};

ActiveSetMethod::ActiveSetMethod(NonnegativeFit& fit, std::optional<Eigen::Index> excluded)
    : fit_(fit),
      values_(Eigen::VectorXd::Zero(fit.right_.size())),
      isFree_(static_cast<std::size_t>(fit.right_.size()), false),
      isExcluded_(static_cast<std::size_t>(fit.right_.size()), false) {
    if (excluded) {
        isExcluded_[static_cast<std::size_t>(*excluded)] = true;
    }
}

void ActiveSetMethod::addFree(Eigen::Index unknown) {
    fit_.normalColumn(unknown);
    free_.push_back(unknown);
    isFree_[static_cast<std::size_t>(unknown)] = true;
}

void ActiveSetMethod::removeFree(Eigen::Index unknown) {
    std::erase(free_, unknown);
    isFree_[static_cast<std::size_t>(unknown)] = false;
}

// The negative gradient of half the sum of squares.
Eigen::VectorXd ActiveSetMethod::gradient() const {
    Eigen::VectorXd gradient = fit_.right_;
    for (const Eigen::Index unknown : free_) {
        gradient -= values_[unknown] * fit_.normalColumn(unknown);
    }
    return gradient;
}

Eigen::MatrixXd ActiveSetMethod::freeMatrix() const {
    const auto size = static_cast<Eigen::Index>(free_.size());
    Eigen::MatrixXd matrix(size, size);
    for (Eigen::Index column = 0; column < size; ++column) {
        matrix.col(column) = fit_.normalColumn(free_[static_cast<std::size_t>(column)])(free_);
    }
    return matrix;
}

void ActiveSetMethod::factorise() {
    if (!free_.empty()) {
        factors_.compute(freeMatrix());
    }
}

// Frees the unknown that reduces the sum of squares most. False if none does.
bool ActiveSetMethod::freeBest() {
    const Eigen::VectorXd slope = gradient();
    const double minSlope = minGradient * fit_.right_.cwiseAbs().maxCoeff();
    Eigen::Index best = -1;
    for (Eigen::Index unknown = 0; unknown < slope.size(); ++unknown) {
        const auto position = static_cast<std::size_t>(unknown);
        if (!isFree_[position] && !isExcluded_[position] && slope[unknown] > minSlope &&
            (best < 0 || slope[unknown] > slope[best])) {
            best = unknown;
        }
    }
    if (best < 0) {
        return false;
    }
    addFree(best);
    factorise();
    if (factors_.vectorD().minCoeff() < minPivot) {
        removeFree(best);
        isExcluded_[static_cast<std::size_t>(best)] = true;
        factorise();
    }
    return true;
}

// Moves the free unknowns to their best values; negative ones return to 0.
void ActiveSetMethod::moveToBest() {
    while (!free_.empty()) {
        const Eigen::VectorXd best = factors_.solve(fit_.right_(free_).eval());
        double step = 1.0;
        for (std::size_t position = 0; position < free_.size(); ++position) {
            const double next = best[static_cast<Eigen::Index>(position)];
            const double now = values_[free_[position]];
            if (next <= 0.0) {
                step = std::min(step, now / (now - next + std::numeric_limits<double>::min()));
            }
        }
        std::vector<Eigen::Index> out;
        for (std::size_t position = 0; position < free_.size(); ++position) {
            double& value = values_[free_[position]];
            const double next = best[static_cast<Eigen::Index>(position)];
            value += step * (next - value);
            if (next <= 0.0 && value <= 1e-12 * values_.maxCoeff()) {
                out.push_back(free_[position]);
            }
        }
        if (out.empty()) {
            return;
        }
        for (const Eigen::Index unknown : out) {
            values_[unknown] = 0.0;
            removeFree(unknown);
        }
        factorise();
    }
}

void ActiveSetMethod::startWith(const Eigen::VectorXd& values) {
    for (Eigen::Index unknown = 0; unknown < values.size(); ++unknown) {
        if (values[unknown] > 0.0 && !isExcluded_[static_cast<std::size_t>(unknown)]) {
            values_[unknown] = values[unknown];
            addFree(unknown);
        }
    }
    factorise();
    moveToBest();
}

void ActiveSetMethod::solve() {
    // Each unknown is freed and held a few times at most; more often means a cycle of rounding
    // errors.
    for (Eigen::Index turn = 0; turn < 3 * values_.size() && freeBest(); ++turn) {
        moveToBest();
    }
}

Eigen::VectorXd ActiveSetMethod::variances() const {
    Eigen::VectorXd variances = Eigen::VectorXd::Zero(values_.size());
    if (!free_.empty()) {
        const auto size = static_cast<Eigen::Index>(free_.size());
        const Eigen::MatrixXd inverse =
            freeMatrix().ldlt().solve(Eigen::MatrixXd::Identity(size, size));
        variances(free_) = inverse.diagonal();
    }
    return variances;
}

NonnegativeFit::NonnegativeFit(const NonnegativeProblem& problem)
    : normalColumns_(static_cast<std::size_t>(problem.design.cols())) {
    const Eigen::VectorXd lengths =
        (problem.design.colwise().squaredNorm().transpose() + problem.penalties).cwiseSqrt();
    scale_ = (lengths.array() > 0.0).select(lengths.cwiseMax(1e-300).cwiseInverse(), 0.0);
    design_ = problem.design * scale_.asDiagonal();
    penalties_ = problem.penalties.cwiseProduct(scale_.cwiseAbs2());
    right_ = design_.transpose() * problem.observed;
    ActiveSetMethod method(*this, std::nullopt);
    method.solve();
    scaledValues_ = method.values();
    values_ = scaledValues_.cwiseProduct(scale_);
    variances_ = method.variances().cwiseProduct(scale_.cwiseAbs2());
}

const Eigen::VectorXd& NonnegativeFit::normalColumn(Eigen::Index unknown) {
    Eigen::VectorXd& column = normalColumns_[static_cast<std::size_t>(unknown)];
    if (column.size() == 0) {
        column = design_.transpose() * design_.col(unknown);
        column[unknown] += penalties_[unknown];
    }
    return column;
}

Eigen::VectorXd NonnegativeFit::valuesWithout(Eigen::Index unknown) {
    ActiveSetMethod method(*this, unknown);
    method.startWith(scaledValues_);
    method.solve();
    return method.values().cwiseProduct(scale_);
}

}  // namespace embedded::engines
