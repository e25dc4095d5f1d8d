#include "embedded/engines/energy_calibration.h"

#include <Eigen/Core>
#include <Eigen/QR>
#include <algorithm>
#include <cmath>

#include "embedded/engines/calibration.h"

namespace embedded::engines {

namespace {

constexpr double minEnd = 100.0;  // keV of the last channel
constexpr double maxEnd = 20000.0;
constexpr double offsetScatter = 25.0;  // keV; most converters begin near 0
constexpr double maxOffset = 150.0;     // keV

constexpr std::size_t minLines = 3;  // two lines fit two unknowns in any case
constexpr double minScore = 12.0;
constexpr double minAdvantage = 5.0;  // over any other assignment

// A parabola needs this many lines over this part of the spectrum, because it extrapolates badly.
constexpr std::size_t linesForParabola = 5;
constexpr double spanForParabola = 0.5;
constexpr double minImprovement = 9.0;  // of chi-square
constexpr double crookedness = 0.03;    // distance of a peak from its line, in FWHM

struct Fit {
    std::vector<double> coefficients;
    double chiSquare;
};

Fit fitPolynomial(std::span<const PositionedPeak> peaks, const Assignment& assignment, int degree) {
    const auto rows = static_cast<Eigen::Index>(assignment.matches.size());
    // Channels are scaled so that the powers stay near 1.
    const double scale = peaks.back().position;
    Eigen::MatrixXd design(rows, degree + 1);
    Eigen::VectorXd observed(rows);
    for (Eigen::Index row = 0; row < rows; ++row) {
        const LineMatch& match = assignment.matches[static_cast<std::size_t>(row)];
        const PositionedPeak& peak = peaks[match.peak];
        const double scatter = std::hypot(peak.uncertainty, crookedness * peak.width);
        const double weight = 1.0 / (assignment.relation.gain * scatter);
        for (int power = 0; power <= degree; ++power) {
            design(row, power) = weight * std::pow(peak.position / scale, power);
        }
        observed[row] = weight * match.energy;
    }
    const Eigen::VectorXd solution = design.colPivHouseholderQr().solve(observed);
    Fit fit{{}, (design * solution - observed).squaredNorm()};
    for (int power = 0; power <= degree; ++power) {
        fit.coefficients.push_back(solution[power] / std::pow(scale, power));
    }
    return fit;
}

bool mayBend(std::span<const PositionedPeak> peaks, const Assignment& assignment,
             std::size_t channelCount) {
    const auto position = [peaks](const LineMatch& match) { return peaks[match.peak].position; };
    const auto [min, max] = std::ranges::minmax(assignment.matches, {}, position);
    return assignment.matches.size() >= linesForParabola &&
           position(max) - position(min) > spanForParabola * static_cast<double>(channelCount);
}

}  // namespace

std::optional<std::vector<double>> calibrateEnergy(std::span<const PositionedPeak> peaks,
                                                   std::span<const LinePattern> nuclides,
                                                   std::size_t channelCount) {
    const double middle = std::sqrt(minEnd * maxEnd) / static_cast<double>(channelCount);
    const RelationLimits limits = {
        {0.0, middle}, offsetScatter, 0.0, maxOffset, 0.5 * std::log(maxEnd / minEnd)};
    const std::vector<Assignment> best = LineAssignment(peaks, nuclides, limits).best(2);
    if (best.empty() || best.front().matches.size() < minLines || best.front().score < minScore ||
        (best.size() > 1 && best.front().score < best[1].score + minAdvantage)) {
        return std::nullopt;
    }
    const Fit straight = fitPolynomial(peaks, best.front(), 1);
    if (mayBend(peaks, best.front(), channelCount)) {
        const Fit parabola = fitPolynomial(peaks, best.front(), 2);
        if (straight.chiSquare > parabola.chiSquare + minImprovement &&
            energyRises({parabola.coefficients, {}, {}}, channelCount)) {
            return parabola.coefficients;
        }
    }
    return straight.coefficients;
}

}  // namespace embedded::engines
