#include "embedded/engines/identification.h"

#include <Eigen/Cholesky>
#include <Eigen/Core>
#include <algorithm>
#include <cmath>
#include <utility>

#include "embedded/engines/joint_fit.h"

namespace embedded::engines {

namespace {

constexpr double toleranceInSigmas = 2.0;  // what the tolerance is for the calibration
constexpr int mostPasses = 3;

// For correcting the energy calibration and an assumed efficiency, of which the power is wrong by
// about this much.
constexpr double powerUncertainty = 0.7;
constexpr double beyondDoubt = 0.8;  // confidence
constexpr int fewestLines = 4;
constexpr double leastScatter = 0.1;  // keV

// Straight line through the differences between lines and peaks, weighted with their certainty, and
// their scatter about it.
std::optional<std::vector<MeasuredPeak>> recalibrated(const JointFit& joint,
                                                      const std::vector<Identification>& found,
                                                      std::span<const MeasuredPeak> measured) {
    Eigen::Matrix2d matrix = Eigen::Matrix2d::Zero();
    Eigen::Vector2d right = Eigen::Vector2d::Zero();
    double squares = 0.0;
    double weights = 0.0;
    int lines = 0;
    for (const Match& match : joint.matches()) {
        const Identification& nuclide = found[match.nuclide];
        if (!match.peak || nuclide.confidence < beyondDoubt || nuclide.peaks.size() < 2 ||
            match.weight * nuclide.activity < 0.5 * joint.area(*match.peak)) {
            continue;
        }
        const MeasuredPeak& peak = measured[*match.peak];
        const double difference = match.line->energy - peak.energy;
        const double uncertainty =
            std::hypot(peak.energyUncertainty, match.line->energyUncertainty, leastScatter);
        const double weight = 1.0 / (uncertainty * uncertainty);
        const Eigen::Vector2d terms(1.0, peak.energy);
        matrix += weight * terms * terms.transpose();
        right += weight * difference * terms;
        squares += weight * difference * difference;
        weights += weight;
        ++lines;
    }
    if (lines < fewestLines) {
        return std::nullopt;
    }
    const Eigen::Vector2d line = matrix.ldlt().solve(right);
    const double remaining = std::max(0.0, squares - right.dot(line));
    const double scatter =
        std::max(leastScatter, std::sqrt(remaining / weights * lines / (lines - 2.0)));
    std::vector<MeasuredPeak> peaks(measured.begin(), measured.end());
    for (MeasuredPeak& peak : peaks) {
        peak.energy += line[0] + line[1] * peak.energy;
        peak.energyUncertainty = std::hypot(peak.energyUncertainty, scatter);
    }
    return peaks;
}

// Least squares of ln(area / expected area) against ln(energy), each nuclide's about its mean.
double efficiencyPower(const JointFit& joint, const std::vector<Identification>& found,
                       double allowance) {
    const double variance = allowance * allowance;
    double products = 0.0;
    double squares = variance / (powerUncertainty * powerUncertainty);
    for (std::size_t nuclide = 0; nuclide < found.size(); ++nuclide) {
        double count = 0.0;
        Eigen::Vector2d sum = Eigen::Vector2d::Zero();
        Eigen::Matrix2d sumOfProducts = Eigen::Matrix2d::Zero();
        for (const Match& match : joint.matches()) {
            const double expected = match.weight * found[nuclide].activity;
            if (match.nuclide != nuclide || !match.peak || expected <= 0.0 ||
                expected < 0.5 * joint.area(*match.peak)) {
                continue;
            }
            const Eigen::Vector2d point(std::log(match.line->energy),
                                        std::log(joint.peaks()[*match.peak].area / expected));
            sum += point;
            sumOfProducts += point * point.transpose();
            ++count;
        }
        if (count >= 3.0) {
            products += sumOfProducts(0, 1) - sum[0] * sum[1] / count;
            squares += sumOfProducts(0, 0) - sum[0] * sum[0] / count;
        }
    }
    return products / squares;
}

// Before anything is identified, the calibration may be off by half the tolerance.
std::vector<MeasuredPeak> uncalibrated(std::span<const MeasuredPeak> measured, double tolerance) {
    std::vector<MeasuredPeak> peaks(measured.begin(), measured.end());
    for (MeasuredPeak& peak : peaks) {
        peak.energyUncertainty = std::hypot(peak.energyUncertainty, tolerance / toleranceInSigmas);
    }
    return peaks;
}

// Which sums there are follows from which nuclides there are.
Findings fitUntilSettled(JointFit& joint, std::size_t nuclides, double tolerance) {
    Findings findings;
    for (int pass = 0; pass < mostPasses; ++pass) {
        auto origins = originsOf(joint.peaks(), findings.assigned, tolerance);
        if (pass > 0 && origins == findings.origins) {
            break;
        }
        findings.origins = std::move(origins);
        joint.fit(findings.origins);
        findings.nuclides.clear();
        for (std::size_t number = 0; number < nuclides; ++number) {
            findings.nuclides.push_back(joint.identification(number));
        }
        findings.assigned = joint.assigned(findings.nuclides);
    }
    return findings;
}

}  // namespace

Findings identify(std::span<const MeasuredPeak> peaks, std::span<const Nuclide> nuclides,
                  const MatchingRules& rules) {
    JointFit joint(uncalibrated(peaks, rules.tolerance), nuclides, rules, 0.0);
    Findings findings = fitUntilSettled(joint, nuclides.size(), rules.tolerance);
    double power = 0.0;
    if (rules.efficiencyIsAssumed) {
        power = efficiencyPower(joint, findings.nuclides, rules.weightAllowance);
        joint = JointFit(joint.peaks(), nuclides, rules, power);
        findings = fitUntilSettled(joint, nuclides.size(), rules.tolerance);
    }
    if (auto corrected = recalibrated(joint, findings.nuclides, peaks)) {
        joint = JointFit(std::move(*corrected), nuclides, rules, power);
        findings = fitUntilSettled(joint, nuclides.size(), rules.tolerance);
    }
    joint.measure(findings.nuclides);
    findings.origins = joint.confirmed(std::move(findings.origins));
    return findings;
}

}  // namespace embedded::engines
