#include "embedded/engines/identification.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>

namespace embedded::engines {

namespace {

std::optional<std::size_t> matchingPeak(std::span<const MeasuredPeak> peaks, double energy,
                                        double tolerance) {
    std::optional<std::size_t> nearest;
    double smallest = tolerance;
    for (std::size_t number = 0; number < peaks.size(); ++number) {
        const double distance = std::abs(peaks[number].energy - energy);
        if (distance <= smallest) {
            smallest = distance;
            nearest = number;
        }
    }
    return nearest;
}

std::optional<Identification> match(std::span<const MeasuredPeak> peaks, const Nuclide& nuclide,
                                    double tolerance) {
    Identification found{nuclide.name, 0.0, 0.0, {}};
    std::vector<ExpectedLine> missing;
    double activity = std::numeric_limits<double>::infinity();
    double foundWeight = 0.0;
    double greatestWeight = 0.0;
    for (const ExpectedLine& line : nuclide.lines) {
        if (!std::isfinite(line.weight) || line.weight <= 0.0) {
            continue;
        }
        const auto peak = matchingPeak(peaks, line.energy, tolerance);
        if (!peak) {
            if (line.key) {
                return std::nullopt;
            }
            missing.push_back(line);
            continue;
        }
        found.peaks.push_back(*peak);
        foundWeight += line.weight;
        activity = std::min(activity, peaks[*peak].area / line.weight);
        if (line.weight > greatestWeight) {
            greatestWeight = line.weight;
            found.energy = line.energy;
        }
    }
    if (found.peaks.empty()) {
        return std::nullopt;
    }
    double against = 0.0;
    for (const ExpectedLine& line : missing) {
        against += activity * line.weight > line.detectionLimit ? line.weight : 0.0;
    }
    found.confidence = foundWeight / (foundWeight + against);
    return found;
}

}  // namespace

std::vector<Identification> identify(std::span<const MeasuredPeak> peaks,
                                     std::span<const Nuclide> nuclides,
                                     const MatchingRules& rules) {
    std::vector<Identification> identifications;
    for (const Nuclide& nuclide : nuclides) {
        auto found = match(peaks, nuclide, rules.tolerance);
        if (found && found->confidence >= rules.smallestConfidence) {
            identifications.push_back(std::move(*found));
        }
    }
    std::ranges::stable_sort(identifications, std::ranges::greater(), &Identification::confidence);
    return identifications;
}

std::vector<std::string> assignPeaks(std::size_t peakCount,
                                     std::span<const Identification> identifications) {
    std::vector<std::string> names(peakCount);
    for (const Identification& identification : identifications) {
        for (const std::size_t peak : identification.peaks) {
            if (names[peak].empty()) {
                names[peak] = identification.name;
            }
        }
    }
    return names;
}

}  // namespace embedded::engines
