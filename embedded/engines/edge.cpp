#include "embedded/engines/edge.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numbers>

#include "embedded/engines/calibration.h"
#include "embedded/engines/normal_equations.h"

namespace embedded::engines {

namespace {

constexpr int scanSteps = 16;         // on each side of a peak
constexpr double scanStep = 0.125;    // in widths
constexpr double requiredGain = 9.0;  // in chi-square

using Terms = std::array<double, 3>;

Terms continuumTerms(double distance, double sigma) {
    return {1.0, distance, 0.5 * std::erfc(distance / (std::numbers::sqrt2 * sigma))};
}

// Chi-square of the best level, slope and height for a step at the channel.
double chiSquareWithEdge(std::span<const double> contents, const RegionFit& fit, double channel,
                         double sigma) {
    const auto distance = [&](std::size_t offset) {
        return static_cast<double>(fit.region.first + offset + 1) - channel;
    };
    const auto weight = [&](std::size_t offset) { return 1.0 / modelVariance(fit.model[offset]); };

    NormalEquations equations(std::tuple_size_v<Terms>);
    for (std::size_t offset = 0; offset < fit.region.count; ++offset) {
        equations.add(continuumTerms(distance(offset), sigma), contents[fit.region.first + offset],
                      weight(offset));
    }
    const auto heights = equations.step(0.0);
    if (!heights) {
        return std::numeric_limits<double>::infinity();
    }
    double chiSquare = 0.0;
    for (std::size_t offset = 0; offset < fit.region.count; ++offset) {
        double residual = contents[fit.region.first + offset];
        const Terms terms = continuumTerms(distance(offset), sigma);
        for (std::size_t term = 0; term < terms.size(); ++term) {
            residual -= (*heights)[term] * terms[term];
        }
        chiSquare += residual * residual * weight(offset);
    }
    return chiSquare;
}

}  // namespace

bool edgeReplacesPeaks(std::span<const double> contents, const RegionFit& fit) {
    double best = std::numeric_limits<double>::infinity();
    for (const FittedPeak& peak : fit.peaks) {
        for (int step = -scanSteps; step <= scanSteps; ++step) {
            const double channel = peak.channel + step * scanStep * peak.width;
            const double sigma = peak.width / fwhmPerSigma;
            best = std::min(best, chiSquareWithEdge(contents, fit, channel, sigma));
        }
    }
    return best <= fit.chiSquare + requiredGain;
}

}  // namespace embedded::engines
