// Covariance of the continuum and the noise in a scintillator's spectrum.
//
// Contents = templates + continuum + noise. The continuum is a baseline, clipped under peaks, plus
// a coarse spline that may change most of it and a fine spline of 2 % of the contents. The noise is
// counting statistics and a part of each content. All are Gaussian.
#ifndef PYORV3_EMBEDDED_ENGINES_SCINTILLATOR_CONTINUUM_H
#define PYORV3_EMBEDDED_ENGINES_SCINTILLATOR_CONTINUUM_H

#include <Eigen/Cholesky>
#include <Eigen/Core>

#include "embedded/engines/scintillator_bins.h"

namespace embedded::engines {

class ScintillatorContinuum {
  public:
    explicit ScintillatorContinuum(const ScintillatorBins& bins);

    // For each bin.
    const Eigen::VectorXd& baseline() const { return baseline_; }
    const Eigen::VectorXd& smoothed() const { return smoothed_; }

    // Divides columns by the root of the covariance: products of the results are those with its
    // inverse. columns: templates, or contents beyond the baseline.
    Eigen::MatrixXd whitened(const Eigen::MatrixXd& columns) const;

  private:
    Eigen::VectorXd smoothed_;
    Eigen::VectorXd baseline_;
    Eigen::LLT<Eigen::MatrixXd> covariance_;
};

// Returns L^-1 columns for the Cholesky factor L; the columns may be empty.
Eigen::MatrixXd forwardSubstituted(const Eigen::LLT<Eigen::MatrixXd>& factors,
                                   const Eigen::MatrixXd& columns);

}  // namespace embedded::engines

#endif
