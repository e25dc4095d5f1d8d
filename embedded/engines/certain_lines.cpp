#include "embedded/engines/certain_lines.h"

#include <Eigen/Cholesky>
#include <Eigen/Core>
#include <algorithm>
#include <cmath>
#include <cstddef>

namespace embedded::engines {

namespace {

constexpr double toleranceInSigmas = 2.0;  // of the calibration before it is corrected
constexpr std::size_t minLines = 4;
constexpr std::size_t linesForParabola = 10;
constexpr double minScatter = 0.15;  // keV

// Powers of the energy in MeV.
Eigen::VectorXd powers(double energy, Eigen::Index count) {
    Eigen::VectorXd terms(count);
    double power = 1.0;
    for (Eigen::Index order = 0; order < count; ++order) {
        terms[order] = power;
        power *= 1e-3 * energy;
    }
    return terms;
}

}  // namespace

std::vector<MeasuredPeak> withUncertainCalibration(std::span<const MeasuredPeak> peaks,
                                                   double tolerance) {
    std::vector<MeasuredPeak> uncertain(peaks.begin(), peaks.end());
    for (MeasuredPeak& peak : uncertain) {
        peak.energyUncertainty = std::hypot(peak.energyUncertainty, tolerance / toleranceInSigmas);
    }
    return uncertain;
}

std::vector<MeasuredPeak> withCorrectedEnergies(std::span<const MeasuredPeak> peaks,
                                                std::span<const CertainLine> lines,
                                                double tolerance) {
    if (lines.size() < minLines) {
        return withUncertainCalibration(peaks, tolerance);
    }
    const Eigen::Index count = lines.size() < linesForParabola ? 2 : 3;
    Eigen::MatrixXd matrix = Eigen::MatrixXd::Zero(count, count);
    Eigen::VectorXd right = Eigen::VectorXd::Zero(count);
    double squares = 0.0;
    double weights = 0.0;
    for (const CertainLine& line : lines) {
        const double difference = line.expected - line.measured;
        const double weight = std::pow(std::hypot(line.uncertainty, minScatter), -2);
        const Eigen::VectorXd terms = powers(line.measured, count);
        matrix += weight * terms * terms.transpose();
        right += weight * difference * terms;
        squares += weight * difference * difference;
        weights += weight;
    }
    const Eigen::LDLT<Eigen::MatrixXd> factors(matrix);
    const Eigen::VectorXd polynomial = factors.solve(right);
    const auto number = static_cast<double>(lines.size());
    const double remaining = std::max(0.0, squares - right.dot(polynomial));
    const double variance = remaining / weights * number / (number - static_cast<double>(count));
    const double scatter = std::max(minScatter, std::sqrt(variance));
    // In units of the uncertainties of which the weights are made.
    const double enlargement = std::max(1.0, remaining / (number - static_cast<double>(count)));
    std::vector<MeasuredPeak> corrected(peaks.begin(), peaks.end());
    for (MeasuredPeak& peak : corrected) {
        const Eigen::VectorXd terms = powers(peak.energy, count);
        const double ofPolynomial =
            std::sqrt(enlargement * std::max(0.0, terms.dot(factors.solve(terms))));
        const double uncertainty = std::min(std::hypot(scatter, ofPolynomial), tolerance);
        peak.energy += polynomial.dot(terms);
        peak.energyUncertainty = std::hypot(peak.energyUncertainty, uncertainty);
    }
    return corrected;
}

}  // namespace embedded::engines
