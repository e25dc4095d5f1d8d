// Fit of a model to a region by the maximum likelihood of Poisson statistics: least squares in
// which each channel is weighted with the variance that the current model gives, until the model no
// longer changes. Its areas are unbiased where weights from the contents are not: S. Baker and R.
// D. Cousins, Nucl. Instr. Meth. 221 (1984) 437. That the common width factor is 1 +- 0.05 counts
// as one more observation, so that the calibration rules faint peaks and the data strong ones; so
// does that a tail's length is 1.5 +- 1 sigma.
#ifndef PYORV3_EMBEDDED_ENGINES_LIKELIHOOD_FIT_H
#define PYORV3_EMBEDDED_ENGINES_LIKELIHOOD_FIT_H

#include <Eigen/Core>
#include <algorithm>
#include <cstddef>
#include <vector>

#include "embedded/engines/peak_model.h"
#include "embedded/engines/spectrum.h"

namespace embedded::engines {

// Chi-square scatters wildly where a channel's variance is far below 1, so that it is taken for
// more.
inline constexpr double smallestVarianceOfChiSquare = 0.5;

// One fit under way: the values of the unknowns, the model and the equations at them.
class LikelihoodFit {
  public:
    // Keeps spectrum and model, which must outlive it. Unknowns that the shape has not are fixed.
    LikelihoodFit(const Spectrum& spectrum, const PeakModel& model, const Shape& shape);

    // Keeps an unknown at its first value.
    void fix(Eigen::Index unknown) { fixed_[static_cast<std::size_t>(unknown)] = true; }

    // Fits, from these values on.
    void converge(const Eigen::VectorXd& values);

    const Eigen::VectorXd& values() const { return values_; }
    const Eigen::VectorXd& contents() const { return contents_; }
    // -2 ln of the likelihood, less that of a model which is the contents.
    double unlikelihood() const { return unlikelihood_; }
    double chiSquare() const;
    double freeUnknowns() const { return static_cast<double>(std::ranges::count(fixed_, false)); }
    // Of the unknowns; empty where they cannot be told apart.
    Eigen::VectorXd variances();

  private:
    std::size_t index(Eigen::Index row) const {
        return model_.region().first + static_cast<std::size_t>(row);
    }
    double excess(Eigen::Index row) const { return spectrum_.excessAt(index(row)); }
    double content(Eigen::Index row) const { return spectrum_.contents[index(row)]; }
    double variance(Eigen::Index row) const;
    double unlikelihoodOfAll(const Eigen::VectorXd& values, const Eigen::VectorXd& contents) const;
    Eigen::VectorXd restrained(const Eigen::VectorXd& values) const {
        return values.cwiseMax(model_.lowest()).cwiseMin(model_.highest());
    }
    bool isHeld(Eigen::Index unknown) const;
    void makeEquations();
    void hold(Eigen::Index unknown);

    const Spectrum& spectrum_;
    const PeakModel& model_;
    std::vector<bool> fixed_;
    Eigen::VectorXd values_;
    Eigen::VectorXd contents_;
    Eigen::MatrixXd derivatives_;
    Eigen::MatrixXd matrix_;
    Eigen::VectorXd right_;
    double unlikelihood_ = 0.0;
};

}  // namespace embedded::engines

#endif
