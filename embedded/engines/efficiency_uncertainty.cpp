#include "embedded/engines/efficiency_uncertainty.h"

#include <cmath>
#include <cstddef>

namespace embedded::engines {

Eigen::VectorXd EfficiencyUncertainty::deviations(double energy) const {
    if (factor.size() == 0) {
        return Eigen::VectorXd::Constant(1, relative);
    }
    Eigen::VectorXd powers(factor.rows());
    double power = 1.0;
    for (double& value : powers) {
        value = power;
        power *= std::log(energy);
    }
    return factor.transpose() * powers;
}

Eigen::MatrixXd lowerTriangle(const std::vector<double>& elements, std::size_t size) {
    const auto count = static_cast<Eigen::Index>(size);
    Eigen::MatrixXd matrix = Eigen::MatrixXd::Zero(count, count);
    std::size_t next = 0;
    for (Eigen::Index row = 0; row < count; ++row) {
        for (Eigen::Index column = 0; column <= row && next < elements.size(); ++column) {
            matrix(row, column) = elements[next++];
        }
    }
    return matrix.isZero(0.0) || !matrix.allFinite() ? Eigen::MatrixXd() : matrix;
}

}  // namespace embedded::engines
