#include "embedded/engines/line_matches.h"

#include <algorithm>
#include <cmath>
#include <set>

namespace embedded::engines {

namespace {

constexpr double farthest = 3.5;        // standard deviations between a line and its peak
constexpr double hidingDistance = 3.0;  // widths of a peak within which it may hide a line

// The peaks by rising energy.
class PeakIndex {
  public:
    explicit PeakIndex(std::span<const MeasuredPeak> peaks) {
        for (std::size_t number = 0; number < peaks.size(); ++number) {
            entries_.push_back({number, &peaks[number]});
        }
        std::ranges::sort(entries_, {}, energyOf);
    }

    std::optional<std::size_t> nearest(const ExpectedLine& line, double tolerance) const;
    double hiddenCounts(double energy) const;

  private:
    struct Entry {
        std::size_t number;
        const MeasuredPeak* peak;
    };

    static double energyOf(const Entry& entry) { return entry.peak->energy; }
    std::span<const Entry> within(double energy, double distance) const {
        const auto first = std::ranges::lower_bound(entries_, energy - distance, {}, energyOf);
        const auto last = std::ranges::upper_bound(entries_, energy + distance, {}, energyOf);
        return {first, last};
    }

    std::vector<Entry> entries_;
};

std::optional<std::size_t> PeakIndex::nearest(const ExpectedLine& line, double tolerance) const {
    std::optional<std::size_t> best;
    double minDistance = tolerance;
    for (const auto& [number, peak] : within(line.energy, tolerance)) {
        const double distance = std::abs(peak->energy - line.energy);
        if (distance <= minDistance && std::abs(energyDeviation(*peak, line)) <= farthest) {
            minDistance = distance;
            best = number;
        }
    }
    return best;
}

// Returns the counts that the flanks of neighbouring peaks may hide.
double PeakIndex::hiddenCounts(double energy) const {
    constexpr double maxPeakWidth = 30.0;  // keV
    double counts = 0.0;
    for (const auto& [number, peak] : within(energy, maxPeakWidth)) {
        const double distance = std::abs(peak->energy - energy);
        if (distance < hidingDistance * peak->width) {
            counts += peak->area * std::exp(-std::pow(distance / peak->width, 2));
        }
    }
    return counts;
}

}  // namespace

double energyDeviation(const MeasuredPeak& peak, const ExpectedLine& line) {
    return (line.energy - peak.energy) / std::hypot(peak.energyUncertainty, line.energyUncertainty);
}

std::vector<NuclideMatches> matchLines(std::span<const MeasuredPeak> peaks,
                                       std::span<const Nuclide> nuclides, double tolerance) {
    const PeakIndex index(peaks);
    std::vector<NuclideMatches> all;
    all.reserve(nuclides.size());
    for (const Nuclide& nuclide : nuclides) {
        NuclideMatches matches{{}, 0, false};
        std::set<std::size_t> matchedPeaks;
        for (const ExpectedLine& line : nuclide.lines) {
            if (!isUsable(line)) {
                continue;
            }
            const auto peak = index.nearest(line, tolerance);
            const double behind = peak ? 0.0 : index.hiddenCounts(line.energy);
            if (peak) {
                matchedPeaks.insert(*peak);
            }
            matches.keyMissing =
                matches.keyMissing || (line.key && !peak && behind < line.detectionLimit);
            matches.lines.push_back(
                {&line, peak, line.detectionLimit + behind, responseTerms(line.energy)});
        }
        matches.peakCount = matchedPeaks.size();
        all.push_back(std::move(matches));
    }
    return all;
}

}  // namespace embedded::engines
