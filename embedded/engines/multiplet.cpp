#include "embedded/engines/multiplet.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <utility>

#include "embedded/engines/edge.h"
#include "embedded/engines/second_difference.h"

namespace embedded::engines {

namespace {

// In widths: how far a region reaches beyond its outer peaks, tried one after the other, and how
// near two fitted peaks are one.
constexpr std::array regionReaches = {4.0, 3.0, 2.0};
constexpr double resolvedDistance = 0.6;

constexpr int mostMissingPeaks = 4;

using Group = std::vector<ExpectedPeak>;

Region regionOf(const Spectrum& spectrum, const Group& group, double reach, ChannelRange range) {
    const auto last = static_cast<double>(spectrum.contents.size());
    double lowest = last;
    double highest = 1.0;
    for (const auto& [channel, width] : group) {
        lowest = std::min(lowest, channel - reach * width);
        highest = std::max(highest, channel + reach * width);
    }
    lowest = std::clamp(std::max(lowest, range.lowest), 1.0, last);
    highest = std::clamp(std::min(highest, range.highest), lowest, last);
    const auto first = static_cast<std::size_t>(std::ceil(lowest)) - 1;
    const auto end = static_cast<std::size_t>(std::floor(highest));
    return {first, end > first ? end - first : 0};
}

// The peak that the fit shows to be none: too faint, or not to be told from a stronger neighbour.
std::optional<std::size_t> superfluous(const std::vector<FittedPeak>& peaks, double limit) {
    const auto fainter = [](const FittedPeak& one, const FittedPeak& other) {
        return significance(one) < significance(other);
    };
    const auto faintest = std::ranges::min_element(peaks, fainter);
    if (significance(*faintest) < limit) {
        return static_cast<std::size_t>(faintest - peaks.begin());
    }
    for (std::size_t one = 0; one < peaks.size(); ++one) {
        for (std::size_t other = 0; other < peaks.size(); ++other) {
            const double distance = std::abs(peaks[one].channel - peaks[other].channel);
            if (one != other && distance < resolvedDistance * peaks[one].width &&
                !fainter(peaks[other], peaks[one])) {
                return one;
            }
        }
    }
    return std::nullopt;
}

// Without a fit to judge by, the peak with the lowest content goes.
std::size_t lowestPeak(const Spectrum& spectrum, const Group& group) {
    const auto content = [&spectrum](const ExpectedPeak& peak) {
        return spectrum.contents[static_cast<std::size_t>(std::lround(peak.channel)) - 1];
    };
    return static_cast<std::size_t>(std::ranges::min_element(group, {}, content) - group.begin());
}

std::optional<RegionFit> fitPruning(const Spectrum& spectrum, Group group, Region region,
                                    double limit) {
    while (!group.empty()) {
        auto fit = fitRegion(spectrum.contents, region, group);
        const auto dropped = fit ? superfluous(fit->peaks, limit) : lowestPeak(spectrum, group);
        if (!dropped) {
            return fit;
        }
        group.erase(group.begin() + static_cast<std::ptrdiff_t>(*dropped));
    }
    return std::nullopt;
}

// The first region that the model describes, else the widest in which there are peaks; nothing
// for an edge, which a narrower region would only hide.
std::optional<RegionFit> fitNarrowing(const Spectrum& spectrum, const Group& group,
                                      ChannelRange range, double limit) {
    std::optional<RegionFit> widest;
    for (const double reach : regionReaches) {
        const Region region = regionOf(spectrum, group, reach, range);
        auto fit = fitPruning(spectrum, group, region, limit);
        if (!fit) {
            continue;
        }
        if (edgeReplacesPeaks(spectrum.contents, *fit)) {
            return std::nullopt;
        }
        if (describesRegion(*fit)) {
            return fit;
        }
        if (!widest) {
            widest = std::move(fit);
        }
    }
    return widest;
}

std::optional<double> missingPeak(const Spectrum& spectrum, const RegionFit& fit, double limit) {
    const std::size_t count = spectrum.contents.size();
    std::vector<double> residuals(count, 0.0);
    std::vector<double> variances(count, 0.0);
    std::vector<double> widths(count, 0.0);
    for (std::size_t offset = 0; offset < fit.region.count; ++offset) {
        const std::size_t index = fit.region.first + offset;
        residuals[index] = spectrum.contents[index] - fit.model[offset];
        variances[index] = std::max(fit.model[offset], 0.0);
        widths[index] = spectrum.widths[index];
    }
    const auto candidates = findCandidates(residuals, variances, widths, limit);
    const auto best = std::ranges::max_element(candidates, {}, &Candidate::significance);
    return best == candidates.end() ? std::nullopt : std::optional(best->channel);
}

}  // namespace

std::vector<ExpectedPeak> expectedAt(const Spectrum& spectrum, std::span<const double> channels) {
    std::vector<ExpectedPeak> expected;
    for (const double channel : channels) {
        const double inside = std::clamp(channel, 1.0, static_cast<double>(spectrum.widths.size()));
        const double width = spectrum.widths[static_cast<std::size_t>(std::lround(inside)) - 1];
        if (width > 0.0) {
            expected.push_back({inside, width});
        }
    }
    return expected;
}

std::optional<RegionFit> fitMultiplet(const Spectrum& spectrum, std::vector<ExpectedPeak> expected,
                                      ChannelRange range, double limit) {
    std::optional<RegionFit> best;
    for (int missing = 0; missing <= mostMissingPeaks; ++missing) {
        auto fit = fitNarrowing(spectrum, expected, range, limit);
        if (!fit || (best && fit->peaks.size() <= best->peaks.size())) {
            break;
        }
        best = std::move(fit);
        const auto channel =
            describesRegion(*best) ? std::nullopt : missingPeak(spectrum, *best, limit);
        if (!channel) {
            break;
        }
        std::vector<double> channels = {*channel};
        std::ranges::transform(best->peaks, std::back_inserter(channels), &FittedPeak::channel);
        expected = expectedAt(spectrum, channels);
    }
    return best;
}

}  // namespace embedded::engines
