#include "embedded/engines/energy_correction.h"

#include <Eigen/Cholesky>
#include <Eigen/Core>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <string_view>

namespace embedded::engines {

namespace {

// Lines of natural background with their approximate relative intensities.
const LinePattern naturalBackground = {"background",
                                       {{238.632, 3.0},
                                        {351.932, 1.8},
                                        {510.999, 1.5},
                                        {583.187, 1.1},
                                        {609.312, 2.2},
                                        {911.204, 1.0},
                                        {1120.287, 0.7},
                                        {1460.822, 5.0},
                                        {1764.494, 0.7},
                                        {2614.511, 1.0}},
                                       2.0};

// K X-rays that sources and shielding emit, with their approximate relative intensities.
const std::vector<LinePattern> xRays = {
    {"caesium", {{30.85, 1.0}, {35.05, 0.24}}, 3.0},
    {"barium", {{32.06, 1.0}, {36.5, 0.24}}, 3.0},
    {"samarium", {{39.9, 1.0}, {45.5, 0.26}}, 3.0},
    {"lead", {{72.80, 0.6}, {74.97, 1.0}, {84.8, 0.35}, {87.3, 0.1}}, 2.0},
    {"uranium", {{94.65, 0.62}, {98.44, 1.0}, {111.2, 0.36}, {114.5, 0.12}}, 3.0}};

// Nuclides that are often in spectra: calibration sources and natural ones.
constexpr auto commonNuclides = std::to_array<std::string_view>(
    {"Ac-228", "Am-241", "Ba-133", "Bi-214", "Cd-109", "Co-57", "Co-60",  "Cs-137",
     "Eu-152", "I-131",  "Ir-192", "K-40",   "Mn-54",  "Na-22", "Pb-212", "Pb-214",
     "Ra-226", "Th-228", "Tl-208", "U-235",  "U-238",  "Y-88",  "Zn-65"});
constexpr double commonSurprise = 3.0;
constexpr double rareSurprise = 2.3;  // beyond the logarithm of the number of nuclides

constexpr double maxXRayEnergy = 55.0;  // keV; lines of nuclides below are no evidence

struct Deviation {
    double offset;  // keV
    double gain;    // relative
};
constexpr Deviation scatter = {2.0, 0.003};
constexpr Deviation limit = {6.0, 0.008};

constexpr std::size_t minLinesForCorrection = 2;
constexpr double minGain = 7.0;                   // of the score over the calibration as it is
constexpr double minAdvantageOfCorrection = 5.0;  // over any other correction

std::vector<LinePattern> patternsOf(std::span<const LinePattern> nuclides) {
    std::vector<LinePattern> patterns = {naturalBackground};
    patterns.insert(patterns.end(), xRays.begin(), xRays.end());
    const double rare = rareSurprise + std::log(static_cast<double>(nuclides.size() + 1));
    for (const LinePattern& nuclide : nuclides) {
        const bool isCommon =
            std::ranges::find(commonNuclides, nuclide.name) != commonNuclides.end();
        LinePattern pattern = {nuclide.name, {}, isCommon ? std::min(rare, commonSurprise) : rare};
        std::ranges::copy_if(nuclide.lines, std::back_inserter(pattern.lines),
                             [](const PatternLine& line) { return line.energy > maxXRayEnergy; });
        if (!pattern.lines.empty()) {
            patterns.push_back(pattern);
        }
    }
    return patterns;
}

}  // namespace

std::vector<PositionedPeak> positionedPeaks(std::span<const FittedPeak> peaks,
                                            const Calibration& calibration) {
    std::vector<PositionedPeak> result;
    for (const FittedPeak& peak : peaks) {
        const double gain = energyPerChannel(calibration, peak.channel);
        const double width = gain * peak.width;
        const double relative = peak.areaUncertainty / peak.area;
        if (peak.area > 0.0) {
            result.push_back({energyAt(calibration, peak.channel), width / fwhmPerSigma * relative,
                              width, peak.area, peak.areaUncertainty});
        }
    }
    return result;
}

EnergyCorrection energyCorrectionOf(std::span<const PositionedPeak> peaks,
                                    std::span<const LinePattern> nuclides) {
    const RelationLimits limits = {
        {0.0, 1.0}, scatter.offset, scatter.gain, limit.offset, limit.gain};
    const std::vector<LinePattern> patterns = patternsOf(nuclides);
    const LineAssignment assignment(peaks, patterns, limits);
    const std::vector<Assignment> best = assignment.best(2);
    if (best.empty() || best.front().matches.size() < minLinesForCorrection) {
        return {};
    }
    const double unchanged = assignment.assess(limits.expected).score;
    const double other = best.size() > 1 ? best[1].score : 0.0;
    if (best.front().score < unchanged + minGain ||
        best.front().score < other + minAdvantageOfCorrection) {
        return {};
    }
    return {best.front().relation, best.front().matches.size()};
}

Calibration corrected(Calibration calibration, const EnergyRelation& relation) {
    for (double& coefficient : calibration.energy) {
        coefficient *= relation.gain;
    }
    calibration.energy.front() += relation.offset;
    double factor = relation.gain * relation.gain;
    for (double& coefficient : calibration.shape) {
        coefficient *= factor;
        factor /= relation.gain;
    }
    return calibration;
}

namespace {

constexpr double toleranceInSigmas = 2.0;  // of the calibration before it is corrected
constexpr std::size_t minCertainLines = 4;
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
    if (lines.size() < minCertainLines) {
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
    const double scatterOfLines = std::max(minScatter, std::sqrt(variance));
    // In units of the uncertainties of which the weights are made.
    const double enlargement = std::max(1.0, remaining / (number - static_cast<double>(count)));
    std::vector<MeasuredPeak> corrected(peaks.begin(), peaks.end());
    for (MeasuredPeak& peak : corrected) {
        const Eigen::VectorXd terms = powers(peak.energy, count);
        const double ofPolynomial =
            std::sqrt(enlargement * std::max(0.0, terms.dot(factors.solve(terms))));
        const double uncertainty = std::min(std::hypot(scatterOfLines, ofPolynomial), tolerance);
        peak.energy += polynomial.dot(terms);
        peak.energyUncertainty = std::hypot(peak.energyUncertainty, uncertainty);
    }
    return corrected;
}

}  // namespace embedded::engines
