#include "embedded/engines/nonnegative_fit.h"

#include <Eigen/Cholesky>
#include <algorithm>
#include <limits>
#include <vector>

namespace embedded::engines {

namespace {

constexpr double smallestGradient = 1e-9;  // of columns of length 1
constexpr double smallestPivot = 1e-10;

class ActiveSet {
  public:
    // matrix, right: of the normal equations, with 1 on the diagonal.
    ActiveSet(Eigen::MatrixXd matrix, Eigen::VectorXd right)
        : matrix_(std::move(matrix)),
          right_(std::move(right)),
          values_(Eigen::VectorXd::Zero(right_.size())),
          excluded_(static_cast<std::size_t>(right_.size()), false) {}

    void solve();
    const Eigen::VectorXd& values() const { return values_; }
    Eigen::VectorXd variances() const;

  private:
    bool enter();
    void settle();
    Eigen::MatrixXd freeMatrix() const { return matrix_(free_, free_); }

    Eigen::MatrixXd matrix_;
    Eigen::VectorXd right_;
    Eigen::VectorXd values_;
    std::vector<Eigen::Index> free_;
    std::vector<bool> excluded_;
};

// Frees the unknown that would lower the sum of squares most.
bool ActiveSet::enter() {
    const Eigen::VectorXd gradient = right_ - matrix_ * values_;
    const double least = smallestGradient * right_.cwiseAbs().maxCoeff();
    Eigen::Index best = -1;
    for (Eigen::Index unknown = 0; unknown < gradient.size(); ++unknown) {
        const bool isFree = std::ranges::find(free_, unknown) != free_.end();
        if (!isFree && !excluded_[static_cast<std::size_t>(unknown)] && gradient[unknown] > least &&
            (best < 0 || gradient[unknown] > gradient[best])) {
            best = unknown;
        }
    }
    if (best < 0) {
        return false;
    }
    free_.push_back(best);
    const Eigen::LDLT<Eigen::MatrixXd> factors(freeMatrix());
    if (factors.vectorD().minCoeff() < smallestPivot) {
        free_.pop_back();
        excluded_[static_cast<std::size_t>(best)] = true;
    }
    return true;
}

// The best values of the free unknowns; those that would be negative go back to 0.
void ActiveSet::settle() {
    while (!free_.empty()) {
        const Eigen::VectorXd best = freeMatrix().ldlt().solve(right_(free_).eval());
        double step = 1.0;
        for (std::size_t place = 0; place < free_.size(); ++place) {
            const double wanted = best[static_cast<Eigen::Index>(place)];
            const double now = values_[free_[place]];
            if (wanted <= 0.0) {
                step = std::min(step, now / (now - wanted + std::numeric_limits<double>::min()));
            }
        }
        for (std::size_t place = 0; place < free_.size(); ++place) {
            double& value = values_[free_[place]];
            value += step * (best[static_cast<Eigen::Index>(place)] - value);
        }
        const auto isOut = [&](Eigen::Index unknown) {
            const auto place = std::ranges::find(free_, unknown) - free_.begin();
            return best[place] <= 0.0 && values_[unknown] <= 1e-12 * values_.maxCoeff();
        };
        std::vector<Eigen::Index> out;
        std::ranges::copy_if(free_, std::back_inserter(out), isOut);
        if (out.empty()) {
            return;
        }
        for (const Eigen::Index unknown : out) {
            values_[unknown] = 0.0;
            std::erase(free_, unknown);
        }
    }
}

void ActiveSet::solve() {
    // Each unknown comes and goes a few times at most; more is rounding error going in circles.
    for (Eigen::Index turn = 0; turn < 3 * right_.size() && enter(); ++turn) {
        settle();
    }
}

Eigen::VectorXd ActiveSet::variances() const {
    Eigen::VectorXd variances = Eigen::VectorXd::Zero(right_.size());
    if (!free_.empty()) {
        const auto size = static_cast<Eigen::Index>(free_.size());
        const Eigen::MatrixXd inverse =
            freeMatrix().ldlt().solve(Eigen::MatrixXd::Identity(size, size));
        variances(free_) = inverse.diagonal();
    }
    return variances;
}

}  // namespace

NonnegativeFit fitNonnegative(const Eigen::MatrixXd& design, const Eigen::VectorXd& observed) {
    const Eigen::VectorXd lengths = design.colwise().norm().transpose();
    const Eigen::VectorXd scale =
        (lengths.array() > 0.0).select(lengths.cwiseMax(1e-300).cwiseInverse(), 0.0);
    const Eigen::MatrixXd scaled = design * scale.asDiagonal();
    ActiveSet set(scaled.transpose() * scaled, scaled.transpose() * observed);
    set.solve();
    return {set.values().cwiseProduct(scale), set.variances().cwiseProduct(scale.cwiseAbs2())};
}

}  // namespace embedded::engines
