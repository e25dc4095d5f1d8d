#include "embedded/engines/peak_origin.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numeric>

namespace embedded::engines {

namespace {

constexpr double electronMass = 510.999;  // keV
constexpr double greatestEscape = 0.5;    // of the area of a full-energy peak of 2.6 MeV
constexpr double energyOfGreatest = 2614.5;
constexpr double greatestSum = 0.05;  // of the smaller area
constexpr std::size_t strongestOfSums = 10;

constexpr double agreement = 3.0;  // standard deviations

bool agree(double energy, const MeasuredPeak& peak, double tolerance) {
    return std::abs(energy - peak.energy) <=
           std::min(tolerance, agreement * peak.energyUncertainty);
}

bool isEscape(std::span<const MeasuredPeak> peaks, const MeasuredPeak& peak, double lost,
              double tolerance) {
    constexpr double pair = 2.0 * electronMass;
    return std::ranges::any_of(peaks, [&](const MeasuredPeak& full) {
        const double part = greatestEscape * (full.energy - pair) / (energyOfGreatest - pair);
        return agree(full.energy - lost, peak, tolerance) && peak.area <= part * full.area;
    });
}

std::vector<std::size_t> strongest(std::span<const MeasuredPeak> peaks) {
    std::vector<std::size_t> order(peaks.size());
    std::iota(order.begin(), order.end(), 0U);
    std::ranges::sort(order, std::ranges::greater(),
                      [peaks](std::size_t number) { return peaks[number].area; });
    order.resize(std::min(order.size(), strongestOfSums));
    return order;
}

bool isSum(std::span<const MeasuredPeak> peaks, std::span<const std::string> nuclides,
           const MeasuredPeak& peak, double tolerance) {
    const std::vector<std::size_t> parts = strongest(peaks);
    for (const std::size_t one : parts) {
        for (const std::size_t other : parts) {
            const double energy = peaks[one].energy + peaks[other].energy;
            if (!nuclides[one].empty() && nuclides[one] == nuclides[other] &&
                agree(energy, peak, tolerance) &&
                peak.area <= greatestSum * std::min(peaks[one].area, peaks[other].area)) {
                return true;
            }
        }
    }
    return false;
}

}  // namespace

std::vector<PeakOrigin> originsOf(std::span<const MeasuredPeak> peaks,
                                  std::span<const std::string> nuclides, double tolerance) {
    std::vector<PeakOrigin> origins(peaks.size(), PeakOrigin::line);
    for (std::size_t number = 0; number < peaks.size(); ++number) {
        const MeasuredPeak& peak = peaks[number];
        if (agree(electronMass, peak, tolerance)) {
            origins[number] = PeakOrigin::annihilation;
        } else if (isEscape(peaks, peak, electronMass, tolerance)) {
            origins[number] = PeakOrigin::singleEscape;
        } else if (isEscape(peaks, peak, 2.0 * electronMass, tolerance)) {
            origins[number] = PeakOrigin::doubleEscape;
        } else if (!nuclides.empty() && isSum(peaks, nuclides, peak, tolerance)) {
            origins[number] = PeakOrigin::sum;
        }
    }
    return origins;
}

}  // namespace embedded::engines
