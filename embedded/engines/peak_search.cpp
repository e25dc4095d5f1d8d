#include "embedded/engines/peak_search.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <limits>
#include <numeric>
#include <optional>

#include "embedded/engines/multiplet.h"
#include "embedded/engines/shape_measurement.h"
#include "embedded/engines/spectrum.h"

namespace embedded::engines {

namespace {

// Candidates need less than the limit, because the second difference of a peak is less significant
// than its fitted area. Peaks of the first pass need a little less, because noise may be fitted
// together with them.
constexpr double candidatePart = 0.4;
constexpr double firstPassPart = 0.8;

// Distances in widths: peaks nearer than the first are fitted together; a region ends before the
// peaks of other groups.
constexpr double groupDistance = 5.0;
constexpr double neighbourDistance = 2.0;

// A candidate with fewer counts than this may be ruled out by their number alone.
constexpr double minCountsOfContinuum = 50.0;
constexpr double flankWidth = 4.0;         // in widths
constexpr double gainByGathering = 0.354;  // a count: ln(2.5 FWHM / (sigma sqrt(2 pi e)))

constexpr std::size_t largestGroup = 8;

using Group = std::vector<ExpectedPeak>;

// Returns the groups of neighbouring candidates or peaks.
std::vector<Group> groupsOf(const Spectrum& spectrum, const std::vector<double>& channels,
                            std::size_t largest) {
    std::vector<Group> groups;
    double last = -std::numeric_limits<double>::infinity();
    for (const ExpectedPeak& peak : expectedAt(spectrum, channels)) {
        if (peak.channel - last > groupDistance * peak.width || groups.back().size() == largest) {
            groups.emplace_back();
        }
        groups.back().push_back(peak);
        last = peak.channel;
    }
    return groups;
}

// A region extends at least half the distance to a neighbour.
ChannelRange rangeOf(const std::vector<Group>& groups, std::size_t number) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    const Group& group = groups[number];
    ChannelRange range{-infinity, infinity};
    if (number > 0) {
        const ExpectedPeak& before = groups[number - 1].back();
        range.min = std::min(before.channel + neighbourDistance * before.width,
                             0.5 * (before.channel + group.front().channel));
    }
    if (number + 1 < groups.size()) {
        const ExpectedPeak& after = groups[number + 1].front();
        range.max = std::max(after.channel - neighbourDistance * after.width,
                             0.5 * (after.channel + group.back().channel));
    }
    return range;
}

using FitGroup = std::function<std::optional<RegionFit>(const Group&, ChannelRange)>;

std::vector<FittedPeak> fitAll(const std::vector<Group>& groups, const FitGroup& fitGroup) {
    std::vector<FittedPeak> peaks;
    for (std::size_t number = 0; number < groups.size(); ++number) {
        if (const auto fit = fitGroup(groups[number], rangeOf(groups, number))) {
            peaks.insert(peaks.end(), fit->peaks.begin(), fit->peaks.end());
        }
    }
    std::ranges::sort(peaks, {}, &FittedPeak::channel);
    return peaks;
}

double countsBetween(const Spectrum& spectrum, double low, double high) {
    const auto end = static_cast<double>(spectrum.contents.size());
    const auto first = static_cast<std::ptrdiff_t>(std::clamp(std::ceil(low), 1.0, end)) - 1;
    const auto last = static_cast<std::ptrdiff_t>(std::clamp(std::floor(high), 0.0, end));
    return first < last ? std::accumulate(spectrum.contents.begin() + first,
                                          spectrum.contents.begin() + last, 0.0)
                        : 0.0;
}

// True if the few counts around a candidate can form a peak: an upper limit of the gain in -2
// ln(likelihood), with the emptiest of four flanks as the continuum and all counts in the middle.
bool canBePeak(const Spectrum& spectrum, double channel, double limit) {
    const double width = spectrum.widths[static_cast<std::size_t>(std::lround(channel)) - 1];
    const double reach = peakReach * width;
    const double below = countsBetween(spectrum, channel - reach, channel + reach);
    if (below >= minCountsOfContinuum) {
        return true;
    }
    const double flank = flankWidth * width;
    const double emptiest =
        std::min({countsBetween(spectrum, channel - reach - 2.0 * flank, channel - reach - flank),
                  countsBetween(spectrum, channel - reach - flank, channel - reach),
                  countsBetween(spectrum, channel + reach, channel + reach + flank),
                  countsBetween(spectrum, channel + reach + flank, channel + reach + 2.0 * flank)});
    const double all = below + 4.0 * emptiest;
    const double part = reach / (reach + 2.0 * flank);
    const double gain =
        below * std::log(below / (part * all)) +
        (emptiest > 0.0 ? 4.0 * emptiest * std::log(4.0 * emptiest / ((1.0 - part) * all)) : 0.0);
    return 2.0 * (gain + gainByGathering * below) >= limit * limit;
}

std::vector<Candidate> candidatesOf(const Spectrum& spectrum, const SearchSettings& settings) {
    std::vector<double> variances(spectrum.contents.size());
    for (std::size_t index = 0; index < variances.size(); ++index) {
        variances[index] = std::max(spectrum.contents[index], 0.0) + spectrum.excessAt(index);
    }
    std::vector<double> widths(spectrum.widths.begin(), spectrum.widths.end());
    if (settings.smoothing > 0.0) {
        std::ranges::replace_if(
            widths, [](double width) { return width > 0.0; }, settings.smoothing);
    }
    auto candidates =
        findCandidates(spectrum.contents, variances, widths, candidatePart * settings.limit);
    if (spectrum.excess.empty()) {
        std::erase_if(candidates, [&](const Candidate& candidate) {
            return !canBePeak(spectrum, candidate.channel, firstPassPart * settings.limit);
        });
    }
    return candidates;
}

bool isNear(const std::vector<FittedPeak>& peaks, double channel) {
    return std::ranges::any_of(peaks, [channel](const FittedPeak& peak) {
        return std::abs(peak.channel - channel) < 0.75 * peak.width;
    });
}

}  // namespace

std::vector<FittedPeak> findPeaks(const Spectrum& spectrum, const SearchSettings& settings) {
    const std::size_t largest = settings.multiplets ? largestGroup : 1;
    const auto candidates = candidatesOf(spectrum, settings);
    // The first pass removes noise, which would group real peaks wrongly and narrow their regions.
    const auto coarse = fitAll(
        groupsOf(spectrum, channelsOf(candidates), largest), [&](const auto& group, auto range) {
            return fitCoarsely(spectrum, group, range, firstPassPart * settings.limit);
        });
    const ShapeCalibration shapes = measureShapes(spectrum, coarse);
    Spectrum calibrated = spectrum;
    calibrated.shapes = &shapes;
    // Significant candidates are fitted again alone, because a bad fit of their group may have lost
    // them.
    std::vector<double> channels = channelsOf(coarse);
    for (const Candidate& candidate : candidates) {
        if (candidate.significance >= settings.limit && !isNear(coarse, candidate.channel)) {
            channels.push_back(candidate.channel);
        }
    }
    std::ranges::sort(channels);
    return fitAll(groupsOf(spectrum, channels, largest), [&](const auto& group, auto range) {
        return fitMultiplet(calibrated, group, range, settings.limit, settings.multiplets);
    });
}

}  // namespace embedded::engines
