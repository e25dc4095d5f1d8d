#include "embedded/engines/calibration.h"

#include <Eigen/Core>
#include <Eigen/QR>
#include <algorithm>
#include <cmath>

namespace embedded::engines {

namespace {

constexpr double minValidWidth = 0.5;
constexpr double maxPartOfSpectrum = 0.1;

constexpr double typicalPower = -0.9;
constexpr double typicalAbsorption = 80.0;  // keV

double widthAt(const Calibration& calibration, double channel) {
    const double squared = polynomial(calibration.shape, energyAt(calibration, channel));
    return std::sqrt(squared) / energyPerChannel(calibration, channel);
}

}  // namespace

double polynomial(std::span<const double> coefficients, double x) {
    double value = 0.0;
    for (std::size_t order = coefficients.size(); order > 0; --order) {
        value = value * x + coefficients[order - 1];
    }
    return value;
}

double energyAt(const Calibration& calibration, double channel) {
    return polynomial(calibration.energy, channel);
}

double energyPerChannel(const Calibration& calibration, double channel) {
    double value = 0.0;
    for (std::size_t order = calibration.energy.size(); order > 1; --order) {
        value = value * channel + static_cast<double>(order - 1) * calibration.energy[order - 1];
    }
    return value;
}

double channelAt(const Calibration& calibration, double energy, std::size_t channelCount) {
    double low = 0.5;
    double high = static_cast<double>(channelCount) + 0.5;
    // Halving the 32,768 channels 40 times leaves less than a millionth of a channel.
    for (int halving = 0; halving < 40; ++halving) {
        const double middle = 0.5 * (low + high);
        (energyAt(calibration, middle) < energy ? low : high) = middle;
    }
    return 0.5 * (low + high);
}

bool energyRises(const Calibration& calibration, std::size_t channelCount) {
    for (std::size_t channel = 1; channel <= channelCount; ++channel) {
        const auto number = static_cast<double>(channel);
        const double rise = energyPerChannel(calibration, number);
        if (!std::isfinite(energyAt(calibration, number)) || !std::isfinite(rise) || rise <= 0.0) {
            return false;
        }
    }
    return true;
}

std::vector<double> widthsInChannels(const Calibration& calibration, std::size_t channelCount) {
    const double maxWidth = static_cast<double>(channelCount) * maxPartOfSpectrum;
    std::vector<double> widths(channelCount);
    for (std::size_t index = 0; index < channelCount; ++index) {
        const double width = widthAt(calibration, static_cast<double>(index + 1));
        const bool usable = width >= minValidWidth && width <= maxWidth;
        widths[index] = usable ? width : 0.0;
    }
    return widths;
}

double efficiencyAt(const Calibration& calibration, double energy) {
    if (!(energy > 0.0)) {
        return 0.0;
    }
    if (calibration.efficiency.empty()) {
        const double absorbed = energy / typicalAbsorption;
        return std::pow(energy, typicalPower) * (1.0 - std::exp(-absorbed * absorbed));
    }
    const double efficiency = std::exp(polynomial(calibration.efficiency, std::log(energy)));
    return std::isfinite(efficiency) ? efficiency : 0.0;
}

namespace {

constexpr double minEnd = 100.0;  // keV of the last channel
constexpr double maxEnd = 20000.0;
constexpr double offsetScatter = 25.0;  // keV; most converters begin near 0
constexpr double maxOffset = 150.0;     // keV

constexpr std::size_t minLinesForCalibration = 3;  // two lines fit two unknowns in any case
constexpr double minScore = 12.0;
constexpr double minAdvantageOfAssignment = 5.0;  // over any other assignment

// A parabola needs this many lines over this part of the spectrum, because it extrapolates badly.
constexpr std::size_t linesForParabolicCalibration = 5;
constexpr double spanForParabola = 0.5;
constexpr double minImprovement = 9.0;     // of chi-square
constexpr double distanceFromLine = 0.03;  // distance of a peak from its line, in FWHM

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
        const double scatter = std::hypot(peak.uncertainty, distanceFromLine * peak.width);
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
    return assignment.matches.size() >= linesForParabolicCalibration &&
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
    if (best.empty() || best.front().matches.size() < minLinesForCalibration ||
        best.front().score < minScore ||
        (best.size() > 1 && best.front().score < best[1].score + minAdvantageOfAssignment)) {
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
