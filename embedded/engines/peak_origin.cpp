#include "embedded/engines/peak_origin.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace embedded::engines {

namespace {

constexpr double electronMass = 510.999;  // keV
constexpr double maxEscape = 0.5;         // of the area of a full-energy peak of 2.6 MeV
constexpr double energyOfMaxEscape = 2614.5;
constexpr double maxEfficiency = 0.15;
constexpr double energyOfMaxEfficiency = 150.0;  // keV, and below
constexpr double pileUp = 0.002;                 // of the smaller area

constexpr double agreement = 3.0;  // standard deviations

bool agree(double energy, const MeasuredPeak& peak, double tolerance) {
    return std::abs(energy - peak.energy) <=
           std::min(tolerance, agreement * peak.energyUncertainty);
}

bool isEscape(std::span<const MeasuredPeak> peaks, const MeasuredPeak& peak, double lost,
              double tolerance) {
    constexpr double pair = 2.0 * electronMass;
    return std::ranges::any_of(peaks, [&](const MeasuredPeak& full) {
        const double part = maxEscape * (full.energy - pair) / (energyOfMaxEscape - pair);
        return agree(full.energy - lost, peak, tolerance) && peak.area <= part * full.area;
    });
}

// The largest full-energy peak efficiency of a source close to a large detector.
double largestEfficiency(double energy) {
    return maxEfficiency * std::min(1.0, std::pow(energy / energyOfMaxEfficiency, -0.9));
}

struct Sum {
    double energy;
    double largestArea;
};

// Returns the sums of all pairs of peaks that have a source, by rising energy.
std::vector<Sum> possibleSums(std::span<const MeasuredPeak> peaks,
                              std::span<const PeakSource> sources) {
    std::vector<Sum> sums;
    for (std::size_t one = 0; one < peaks.size(); ++one) {
        for (std::size_t other = one; other < peaks.size(); ++other) {
            if (sources[one].name.empty() || sources[other].name.empty()) {
                continue;
            }
            const MeasuredPeak& first = peaks[one];
            const MeasuredPeak& second = peaks[other];
            double largest = pileUp * std::min(first.area, second.area);
            if (sources[one].name == sources[other].name || sources[one].isXRay ||
                sources[other].isXRay) {
                largest =
                    std::max(largest, std::min(first.area * largestEfficiency(second.energy),
                                               second.area * largestEfficiency(first.energy)));
            }
            sums.push_back({first.energy + second.energy, largest});
        }
    }
    std::ranges::sort(sums, {}, &Sum::energy);
    return sums;
}

bool isSum(std::span<const Sum> sums, const MeasuredPeak& peak, double tolerance) {
    const auto first = std::ranges::lower_bound(sums, peak.energy - tolerance, {}, &Sum::energy);
    const auto last = std::ranges::upper_bound(sums, peak.energy + tolerance, {}, &Sum::energy);
    return std::any_of(first, last, [&](const Sum& sum) {
        return agree(sum.energy, peak, tolerance) && peak.area <= sum.largestArea;
    });
}

}  // namespace

std::vector<PeakOrigin> originsOf(std::span<const MeasuredPeak> peaks,
                                  std::span<const PeakSource> sources, double tolerance) {
    const std::vector<Sum> sums = possibleSums(peaks, sources);
    std::vector<PeakOrigin> origins(peaks.size(), PeakOrigin::line);
    for (std::size_t number = 0; number < peaks.size(); ++number) {
        const MeasuredPeak& peak = peaks[number];
        if (agree(electronMass, peak, tolerance)) {
            origins[number] = PeakOrigin::annihilation;
        } else if (isEscape(peaks, peak, electronMass, tolerance)) {
            origins[number] = PeakOrigin::singleEscape;
        } else if (isEscape(peaks, peak, 2.0 * electronMass, tolerance)) {
            origins[number] = PeakOrigin::doubleEscape;
        } else if (isSum(sums, peak, tolerance)) {
            origins[number] = PeakOrigin::sum;
        }
    }
    return origins;
}

}  // namespace embedded::engines
