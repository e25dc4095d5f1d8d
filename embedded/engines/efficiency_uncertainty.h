// The range of an efficiency calibration and its relative uncertainty as a function of the energy.
#ifndef PYORV3_EMBEDDED_ENGINES_EFFICIENCY_UNCERTAINTY_H
#define PYORV3_EMBEDDED_ENGINES_EFFICIENCY_UNCERTAINTY_H

#include <Eigen/Core>
#include <limits>
#include <vector>

namespace embedded::engines {

struct EfficiencyUncertainty {
    // Lower triangular matrix whose product with its transpose is the covariance of the
    // coefficients of ln(efficiency); empty: `relative` applies to all energies.
    Eigen::MatrixXd factor;
    double relative = 0.0;
    double minEnergy = 0.0;  // keV
    double maxEnergy = std::numeric_limits<double>::infinity();

    bool covers(double energy) const { return energy >= minEnergy && energy <= maxEnergy; }

    // Returns the relative deviations that the independent causes bring about at an energy, each of
    // one standard deviation. All lines share the causes.
    Eigen::VectorXd deviations(double energy) const;
};

// Returns the matrix from its elements, row by row; empty if they are all 0.
// size: number of rows. Missing elements are 0.
Eigen::MatrixXd lowerTriangle(const std::vector<double>& elements, std::size_t size);

}  // namespace embedded::engines

#endif
