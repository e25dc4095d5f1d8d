#include "embedded/engines/line_matches.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <set>

#include "embedded/engines/calibration.h"

namespace embedded::engines {

namespace {

constexpr double maxEscape = 0.5;  // of the area of a full-energy peak of 2.6 MeV
constexpr double energyOfMaxEscape = 2614.5;
constexpr double maxEfficiency = 0.15;
constexpr double energyOfMaxEfficiency = 150.0;  // keV, and below
constexpr double pileUpPart = 0.002;             // of the smaller area

// The Doppler effect broadens the annihilation peak by up to 3 keV. The search may divide it.
constexpr double annihilationReach = 2.0;  // keV

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
            double largest = pileUpPart * std::min(first.area, second.area);
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
        if (agree(electronMass, peak, tolerance) ||
            std::abs(peak.energy - electronMass) <= annihilationReach) {
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
        NuclideMatches matches{{}, 0};
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
            matches.lines.push_back(
                {&line, peak, line.detectionLimit + behind, responseTerms(line.energy)});
        }
        matches.peakCount = matchedPeaks.size();
        all.push_back(std::move(matches));
    }
    return all;
}

}  // namespace embedded::engines
