#include "embedded/engines/multiplet.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <memory>
#include <numeric>
#include <utility>

#include "embedded/engines/fit_improvement.h"
#include "embedded/engines/peak_evidence.h"
#include "embedded/engines/peak_fit.h"

namespace embedded::engines {

namespace {

// Distances of a region's ends from its outer peaks, in widths: the widest, and narrower ones if
// the region is not described.
constexpr double maxReach = 4.0;
constexpr double edgeReach = 8.0;
constexpr std::array narrowerReaches = {3.0, 2.0};

using Group = std::vector<ExpectedPeak>;

Region regionOf(const Spectrum& spectrum, const Group& group, double reach, ChannelRange range) {
    const auto last = static_cast<double>(spectrum.contents.size());
    double minChannel = last;
    double maxChannel = 1.0;
    for (const auto& [channel, width] : group) {
        minChannel = std::min(minChannel, channel - reach * width);
        maxChannel = std::max(maxChannel, channel + reach * width);
    }
    minChannel = std::clamp(std::max(minChannel, range.min), 1.0, last);
    maxChannel = std::clamp(std::min(maxChannel, range.max), minChannel, last);
    const auto first = static_cast<std::size_t>(std::ceil(minChannel)) - 1;
    const auto end = static_cast<std::size_t>(std::floor(maxChannel));
    return {first, end > first ? end - first : 0};
}

// Returns the widest region for the group. With few counts the curvature of the continuum is not
// significant, but its height needs a wider region.
Region maxRegion(const Spectrum& spectrum, const Group& group, ChannelRange range) {
    const Region region = regionOf(spectrum, group, maxReach, range);
    const auto contents = spectrum.contents.subspan(region.first, region.count);
    const double counts = std::accumulate(contents.begin(), contents.end(), 0.0);
    return counts < fewCounts ? regionOf(spectrum, group, reachAtFewCounts, range) : region;
}

// Without a fit, the peak with the lowest content is removed.
std::size_t peakOfMinContent(const Spectrum& spectrum, const Group& group) {
    const auto content = [&spectrum](const ExpectedPeak& peak) {
        return spectrum.contents[static_cast<std::size_t>(std::lround(peak.channel)) - 1];
    };
    return static_cast<std::size_t>(std::ranges::min_element(group, {}, content) - group.begin());
}

void dropPeak(Group& group, Shape& shape, std::size_t number) {
    group.erase(group.begin() + static_cast<std::ptrdiff_t>(number));
    if (shape.widePeak == number) {
        shape.widePeak.reset();
    } else if (shape.widePeak && *shape.widePeak > number) {
        --*shape.widePeak;
    }
}

// Fits a peak that is broader than calibrated in a region that is as wide in units of its own
// width.
RegionFit widened(const Spectrum& spectrum, RegionFit fit, ChannelRange range) {
    if (fit.shape.widePeak) {
        Group group = fit.expected;
        ExpectedPeak& wide = group[*fit.shape.widePeak];
        wide.width = std::max(wide.width, fit.peaks[*fit.shape.widePeak].width);
        const Region region = regionOf(spectrum, group, maxReach, range);
        auto tried = fitRegion(spectrum, region, fit.expected, fit.shape, &fit);
        if (tried && (describesRegion(*tried) || !describesRegion(fit))) {
            fit = std::move(*tried);
        }
    }
    return fit;
}

// True if an edge replaces all peaks of the fit, also with more of the continuum.
bool isEdge(const Spectrum& spectrum, const RegionFit& fit, ChannelRange range) {
    std::vector<std::size_t> all(fit.peaks.size());
    std::iota(all.begin(), all.end(), 0U);
    std::ranges::sort(all, std::ranges::greater(),
                      [&fit](std::size_t number) { return fit.peaks[number].significance; });
    if (!edgeInstead(spectrum, fit, all)) {
        return false;
    }
    const Region wider = regionOf(spectrum, fit.expected, edgeReach, range);
    const auto more = fitRegion(spectrum, wider, fit.expected, fit.shape, &fit);
    return !more || edgeInstead(spectrum, *more, all);
}

// Fits the same peaks in the first narrower region that they describe.
RegionFit narrowed(const Spectrum& spectrum, RegionFit fit, ChannelRange range, double limit) {
    for (const double reach : narrowerReaches) {
        if (describesRegion(fit)) {
            break;
        }
        const Region region = regionOf(spectrum, fit.expected, reach, range);
        auto tried = fitRegion(spectrum, region, fit.expected, fit.shape, &fit);
        if (!tried) {
            break;
        }
        weighFaintPeaks(spectrum, *tried, limit);
        if (describesRegion(*tried) && !superfluous(*tried, limit)) {
            fit = std::move(*tried);
        }
    }
    return fit;
}

// Removes the peaks that are the shoulder of an edge beside other peaks.
RegionFit withoutShoulders(const Spectrum& spectrum, RegionFit fit, double limit) {
    for (std::size_t number = fit.peaks.size(); number-- > 0 && !fit.shape.edge;) {
        if (fit.peaks.size() == 1 || fit.peaks[number].significance < limit) {
            continue;
        }
        Shape shape = fit.shape;
        shape.edge = edgeInstead(spectrum, fit, std::span(&number, 1));
        if (!shape.edge) {
            continue;
        }
        Group group = fit.expected;
        dropPeak(group, shape, number);
        if (auto without = fitRegion(spectrum, fit.region, group, shape)) {
            fit = std::move(*without);
        }
    }
    return fit;
}

}  // namespace

std::optional<RegionFit> fitCoarsely(const Spectrum& spectrum, std::vector<ExpectedPeak> expected,
                                     ChannelRange range, double limit) {
    const Region region = maxRegion(spectrum, expected, range);
    Shape shape;
    while (!expected.empty()) {
        auto fit = fitRegion(spectrum, region, expected, shape);
        if (fit) {
            weighFaintPeaks(spectrum, *fit, limit);
        }
        const auto dropped = fit ? superfluous(*fit, limit) : peakOfMinContent(spectrum, expected);
        if (!dropped) {
            return fit;
        }
        dropPeak(expected, shape, *dropped);
    }
    return std::nullopt;
}

namespace {

// A fainter peak nearer than this to the strongest, in widths, may be an effect of its shape.
constexpr double satelliteReach = 4.0;
constexpr double satellitePart = 0.1;  // of the strongest area

// Returns the peaks of a fit without those that the shape of the strongest may have caused.
Group withoutSatellites(const RegionFit& fit) {
    const FittedPeak& strongest = *std::ranges::max_element(fit.peaks, {}, &FittedPeak::area);
    Group group;
    for (std::size_t number = 0; number < fit.peaks.size(); ++number) {
        const FittedPeak& peak = fit.peaks[number];
        const bool isNear =
            std::abs(peak.channel - strongest.channel) < satelliteReach * strongest.width;
        if (!isNear || peak.area >= satellitePart * strongest.area) {
            group.push_back(fit.expected[number]);
        }
    }
    return group;
}

// Improves a first fit as far as possible; nullopt if it is an edge.
std::optional<RegionFit> refined(const Spectrum& spectrum, RegionFit fit, ChannelRange range,
                                 double limit, bool morePeaks) {
    if (isEdge(spectrum, fit, range)) {
        return std::nullopt;
    }
    fit = widened(spectrum, improved(spectrum, std::move(fit), limit, morePeaks), range);
    fit = withoutShoulders(spectrum, std::move(fit), limit);
    if (isEdge(spectrum, fit, range)) {
        return std::nullopt;
    }
    return narrowed(spectrum, std::move(fit), range, keptPart * limit);
}

// Removes satellites if the region is then described better.
RegionFit simplest(const Spectrum& spectrum, RegionFit fit, ChannelRange range, double limit,
                   bool morePeaks) {
    if (describesRegion(fit)) {
        return fit;
    }
    Group group = withoutSatellites(fit);
    if (group.size() == fit.peaks.size()) {
        return fit;
    }
    auto first = fitCoarsely(spectrum, std::move(group), range, keptPart * limit);
    if (!first) {
        return fit;
    }
    auto other = refined(spectrum, std::move(*first), range, limit, morePeaks);
    const bool isBetter =
        other && other->chiSquare / other->degreesOfFreedom < fit.chiSquare / fit.degreesOfFreedom;
    return isBetter ? std::move(*other) : std::move(fit);
}

// Removes the peaks that are not certain and gives the others their curve, which includes them.
void dropUncertain(const Spectrum& spectrum, RegionFit& fit, double limit) {
    RegionCurve curve = curveOf(spectrum, fit);
    const auto dropped = std::stable_partition(
        fit.peaks.begin(), fit.peaks.end(),
        [limit](const FittedPeak& peak) { return peak.significance >= limit && isCertain(peak); });
    curve.unreported.assign(dropped, fit.peaks.end());
    fit.peaks.erase(dropped, fit.peaks.end());
    const auto shared = std::make_shared<const RegionCurve>(std::move(curve));
    for (FittedPeak& peak : fit.peaks) {
        peak.curve = shared;
    }
}

}  // namespace

std::optional<RegionFit> fitMultiplet(const Spectrum& spectrum, std::vector<ExpectedPeak> expected,
                                      ChannelRange range, double limit, bool morePeaks) {
    auto fit = fitCoarsely(spectrum, std::move(expected), range, keptPart * limit);
    if (fit) {
        fit = refined(spectrum, std::move(*fit), range, limit, morePeaks);
    }
    if (!fit) {
        return std::nullopt;
    }
    *fit = simplest(spectrum, std::move(*fit), range, limit, morePeaks);
    for (std::size_t number = 0; number < fit->peaks.size(); ++number) {
        fit->peaks[number].significance = likelihoodSignificance(spectrum, *fit, number);
    }
    dropUncertain(spectrum, *fit, limit);
    return fit;
}

}  // namespace embedded::engines
