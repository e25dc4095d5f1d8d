// Joint fit of nuclides to the spectrum of a scintillator. See docs/engine.md, "Scintillators".
//
// Each nuclide is a template with an activity that is not negative. The uncertainties of templates,
// detector and continuum are Gaussian, so the likelihood for given activities follows from linear
// algebra. A few passes determine activities and detector state.
#ifndef PYORV3_EMBEDDED_ENGINES_SCINTILLATOR_FIT_H
#define PYORV3_EMBEDDED_ENGINES_SCINTILLATOR_FIT_H

#include <Eigen/Cholesky>
#include <Eigen/Core>
#include <cstddef>
#include <span>
#include <vector>

#include "embedded/engines/scintillator_columns.h"
#include "embedded/engines/scintillator_response.h"

namespace embedded::engines {

// Covariance of the continuum and the noise in a scintillator's spectrum.
//
// Contents = templates + continuum + noise. The continuum is a baseline, clipped under peaks, plus
// a coarse spline that may change most of it and a fine spline of 2 % of the contents. The noise is
// counting statistics and a part of each content. All are Gaussian.
class ScintillatorContinuum {
  public:
    // hasLanthanum: true if the crystal's own radioactivity may give peaks.
    ScintillatorContinuum(const ScintillatorBins& bins, bool hasLanthanum);

    // For each bin.
    const Eigen::VectorXd& baseline() const { return baseline_; }
    const Eigen::VectorXd& smoothed() const { return smoothed_; }

    // Divides columns by the root of the covariance: products of the results are those with its
    // inverse. columns: templates, or contents beyond the baseline.
    Eigen::MatrixXd whitened(const Eigen::MatrixXd& columns) const;

  private:
    Eigen::VectorXd smoothed_;
    Eigen::VectorXd baseline_;
    Eigen::MatrixXd factor_;  // Cholesky factor of the covariance, a band matrix
    Eigen::Index bandwidth_;  // number of diagonals below the main one
};

// Returns L^-1 columns for the Cholesky factor L; the columns may be empty.
Eigen::MatrixXd forwardSubstituted(const Eigen::LLT<Eigen::MatrixXd>& factors,
                                   const Eigen::MatrixXd& columns);

struct ScintillatorModel {
    std::vector<std::size_t> nuclides;  // indices
    Eigen::VectorXd activities;         // of these nuclides
    Eigen::VectorXd variances;          // of the activities
    DetectorState state;
    double misfit = 1.0;     // mean square of the residuals in their deviations, at least 1
    double objective = 0.0;  // -2 ln(likelihood) without a constant
};

// A nuclide that may be missing from a model.
struct Proposal {
    std::size_t nuclide;
    double gain;  // upper limit of the gain in 2 ln(likelihood)
    double activity;
};

class ScintillatorFit {
  public:
    // Keeps references to bins, calibration and nuclides.
    ScintillatorFit(const ScintillatorBins& bins, const Calibration& calibration,
                    const CalibrationDeviations& deviations,
                    std::span<const TemplateNuclide> nuclides);

    // Counts of the whole spectrum.
    double counts() const { return bins_.counts.sum(); }

    // Fits activities and detector state, starting from those of the model.
    void refine(ScintillatorModel& model, int passes) const;

    // Returns the nuclides that are not in the model, the greatest gain first.
    std::vector<Proposal> proposals(const ScintillatorModel& model) const;

  private:
    struct System;
    Eigen::MatrixXd templates(std::span<const std::size_t> nuclides,
                              const DetectorState& state) const;
    Eigen::MatrixXd uncertainties(const ScintillatorModel& model) const;
    Eigen::VectorXd maxActivities(const Eigen::MatrixXd& templates) const;
    Eigen::VectorXd pass(ScintillatorModel& model) const;

    const ScintillatorBins& bins_;
    std::span<const TemplateNuclide> nuclides_;
    ScintillatorContinuum continuum_;
    ScintillatorColumns columns_;
    Eigen::VectorXd observed_;  // beyond the baseline
};

}  // namespace embedded::engines

#endif
