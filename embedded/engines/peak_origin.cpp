#include "embedded/engines/peak_origin.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numeric>

namespace embedded::engines {

namespace {

constexpr double electronMass = 510.999;  // keV
constexpr double greatestEscape = 0.5;    // of the area of the full-energy peak
constexpr double greatestSum = 0.05;      // of the smaller area
constexpr std::size_t strongestOfSums = 10;

bool isEscape(std::span<const MeasuredPeak> peaks, const MeasuredPeak& peak, double lost,
              double tolerance) {
    return std::ranges::any_of(peaks, [&](const MeasuredPeak& full) {
        return full.energy > 2.0 * electronMass &&
               std::abs(full.energy - lost - peak.energy) <= tolerance &&
               peak.area <= greatestEscape * full.area;
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
                std::abs(energy - peak.energy) <= tolerance &&
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
        if (std::abs(peak.energy - electronMass) <= tolerance) {
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
