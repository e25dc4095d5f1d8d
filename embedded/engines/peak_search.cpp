#include "embedded/engines/peak_search.h"

#include <algorithm>
#include <cstddef>
#include <limits>

#include "embedded/engines/second_difference.h"

namespace embedded::engines {

namespace {

// Candidates need less than the limit, as a peak's second difference carries less significance than
// its fitted area; peaks of the first pass a little less, as noise may be fitted together with
// them.
constexpr double candidatePart = 0.4;
constexpr double firstPassPart = 0.8;

// In widths: peaks nearer than this are fitted together; a region keeps off other groups' peaks.
constexpr double groupDistance = 5.0;
constexpr double neighbourDistance = 2.0;

constexpr std::size_t largestGroup = 8;

using Group = std::vector<ExpectedPeak>;

// Of candidates or peaks.
template <typename Places>
std::vector<double> channelsOf(const Places& places) {
    std::vector<double> channels(places.size());
    std::ranges::transform(places, channels.begin(),
                           [](const auto& place) { return place.channel; });
    return channels;
}

std::vector<Group> groupsOf(const Spectrum& spectrum, const std::vector<double>& channels) {
    std::vector<Group> groups;
    double last = -std::numeric_limits<double>::infinity();
    for (const ExpectedPeak& peak : expectedAt(spectrum, channels)) {
        if (peak.channel - last > groupDistance * peak.width ||
            groups.back().size() == largestGroup) {
            groups.emplace_back();
        }
        groups.back().push_back(peak);
        last = peak.channel;
    }
    return groups;
}

ChannelRange rangeOf(const std::vector<Group>& groups, std::size_t number) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    ChannelRange range{-infinity, infinity};
    if (number > 0) {
        const ExpectedPeak& before = groups[number - 1].back();
        range.lowest = before.channel + neighbourDistance * before.width;
    }
    if (number + 1 < groups.size()) {
        const ExpectedPeak& after = groups[number + 1].front();
        range.highest = after.channel - neighbourDistance * after.width;
    }
    return range;
}

std::vector<FittedPeak> fitAll(const Spectrum& spectrum, const std::vector<double>& channels,
                               double limit) {
    const std::vector<Group> groups = groupsOf(spectrum, channels);
    std::vector<FittedPeak> peaks;
    for (std::size_t number = 0; number < groups.size(); ++number) {
        if (const auto fit =
                fitMultiplet(spectrum, groups[number], rangeOf(groups, number), limit)) {
            peaks.insert(peaks.end(), fit->peaks.begin(), fit->peaks.end());
        }
    }
    std::ranges::sort(peaks, {}, &FittedPeak::channel);
    return peaks;
}

}  // namespace

std::vector<FittedPeak> findPeaks(const Spectrum& spectrum, double limit) {
    std::vector<double> variances(spectrum.contents.size());
    std::ranges::transform(spectrum.contents, variances.begin(),
                           [](double content) { return std::max(content, 0.0); });

    const auto candidates =
        findCandidates(spectrum.contents, variances, spectrum.widths, candidatePart * limit);
    // The first pass weeds out noise, which groups real peaks wrongly and narrows their regions.
    const auto first = fitAll(spectrum, channelsOf(candidates), firstPassPart * limit);
    return fitAll(spectrum, channelsOf(first), limit);
}

}  // namespace embedded::engines
