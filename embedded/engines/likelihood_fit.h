// Maximum-likelihood fit of a peak model to the counts of a region, with Poisson statistics.
// See docs/engine.md, "Fit".
#ifndef PYORV3_EMBEDDED_ENGINES_LIKELIHOOD_FIT_H
#define PYORV3_EMBEDDED_ENGINES_LIKELIHOOD_FIT_H

#include <Eigen/Core>
#include <cstddef>
#include <vector>

#include "embedded/engines/peak_model.h"
#include "embedded/engines/spectrum.h"

namespace embedded::engines {

// Smallest variance of a channel in chi-square. With variances far below 1 chi-square would scatter
// too much.
inline constexpr double minVarianceOfChiSquare = 0.5;

class LikelihoodFit {
  public:
    // Keeps references to spectrum and model, which must outlive it. Unknowns that the model's
    // shape lacks are fixed.
    LikelihoodFit(const Spectrum& spectrum, const PeakModel& model);

    // Keeps an unknown at its first value.
    void fix(Eigen::Index unknown) { std::erase(free_, unknown); }

    // Fits, beginning with these values.
    void converge(const Eigen::VectorXd& values);

    const Eigen::VectorXd& values() const { return values_; }
    const Eigen::VectorXd& contents() const { return contents_; }
    // -2 ln(likelihood), less that of a model that equals the contents.
    double unlikelihood() const { return unlikelihood_; }
    double chiSquare() const;
    // Returns the number of channels and observations less the number of free unknowns.
    double degreesOfFreedom() const;
    // Returns the variance of each unknown, 0 for a fixed one; empty if the unknowns are
    // degenerate.
    Eigen::VectorXd variances();

  private:
    // Prior knowledge of an unknown, from outside the region.
    struct Observation {
        Eigen::Index unknown;
        Expectation expectation;
    };

    void observe(const Expectation& expectation, Eigen::Index unknown);
    std::size_t index(Eigen::Index row) const {
        return model_.region().first + static_cast<std::size_t>(row);
    }
    double excess(Eigen::Index row) const { return spectrum_.excessAt(index(row)); }
    double content(Eigen::Index row) const { return spectrum_.contents[index(row)]; }
    double variance(Eigen::Index row) const;
    double unlikelihoodOfAll(const Eigen::VectorXd& values, const Eigen::VectorXd& contents) const;
    Eigen::VectorXd restrained(const Eigen::VectorXd& values) const {
        return values.cwiseMax(model_.minValues()).cwiseMin(model_.maxValues());
    }
    Eigen::VectorXd stepped(const Eigen::VectorXd& step) const;
    void makeEquations();
    void holdAtBounds(Eigen::Index end);
    bool isHeld(Eigen::Index position) const;

    const Spectrum& spectrum_;
    const PeakModel& model_;
    std::vector<Eigen::Index> free_;  // unknowns in the order of the equations
    std::vector<Observation> observations_;
    Eigen::VectorXd values_;
    Eigen::VectorXd contents_;
    Eigen::MatrixXd derivatives_;
    Eigen::MatrixXd matrix_;
    Eigen::VectorXd right_;
    double unlikelihood_ = 0.0;
};

}  // namespace embedded::engines

#endif
