#include "embedded/engines/multiplet.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <numeric>
#include <utility>

#include "embedded/engines/second_difference.h"

namespace embedded::engines {

namespace {

// In widths: how far a region reaches beyond its outer peaks, the widest and what is tried where
// that is not described; how near two fitted peaks are one.
constexpr double widestReach = 4.0;
constexpr double reachAtFewCounts = 10.0;
constexpr double fewCounts = 100.0;
constexpr double edgeReach = 8.0;
constexpr std::array narrowerReaches = {3.0, 2.0};
constexpr double resolvedDistance = 0.6;

// A peak broader than the detector makes it has a shape of its own, and what lies on its flanks,
// nearer than this in its widths, may be part of it.
constexpr double flankOfWidePeak = 1.25;

// A peak whose area is less than this in its uncertainties is one half of something broader.
constexpr double leastCertainty = 2.0;

// A fit with more unknowns must gain this in -2 ln(likelihood), for each a little over three
// standard deviations; another peak must gain the square of the limit.
constexpr double gainForOne = 12.0;
constexpr double gainForTail = 16.0;

// Tails hold some tenths of a peak: in a fainter one they are not seen, and a continuum passes for
// one.
constexpr double strongEnoughForTail = 25.0;

// Peaks with this part of the limit stay in the fit, for the others come out wrong without them.
constexpr double keptPart = 0.8;

constexpr int mostImprovements = 8;

// A peak may have a width of its own where no other is nearer than this, in widths.
constexpr double aloneDistance = 2.5;

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

// The widest region for the group. Few counts show no curvature of the continuum, but want more of
// it to know its height.
Region widestRegion(const Spectrum& spectrum, const Group& group, ChannelRange range) {
    const Region region = regionOf(spectrum, group, widestReach, range);
    const auto contents = spectrum.contents.subspan(region.first, region.count);
    const double counts = std::accumulate(contents.begin(), contents.end(), 0.0);
    return counts < fewCounts ? regionOf(spectrum, group, reachAtFewCounts, range) : region;
}

// A peak many times its uncertainty gains more than the limit too: the likelihood with it falls
// faster towards no area than the parabola of the uncertainty.
constexpr double clearlySignificant = 1.5;

void weighFaintPeaks(const Spectrum& spectrum, RegionFit& fit, double limit) {
    for (std::size_t number = 0; number < fit.peaks.size(); ++number) {
        FittedPeak& peak = fit.peaks[number];
        if (peak.significance < clearlySignificant * limit) {
            peak.significance = likelihoodSignificance(spectrum, fit, number);
        }
    }
}

// Whether the stronger of two peaks stands for both.
bool isUnresolved(const RegionFit& fit, std::size_t fainter, std::size_t stronger) {
    const FittedPeak& peak = fit.peaks[stronger];
    const double distance = std::abs(fit.peaks[fainter].channel - peak.channel);
    return distance <
           peak.width * (fit.shape.widePeak == stronger ? flankOfWidePeak : resolvedDistance);
}

bool isCertain(const FittedPeak& peak) {
    return peak.area >= leastCertainty * peak.areaUncertainty;
}

// The peak that the fit shows to be none: too faint, or not to be told from a stronger neighbour.
std::optional<std::size_t> superfluous(const RegionFit& fit, double limit) {
    const auto significanceOf = [&fit](std::size_t number) {
        return isCertain(fit.peaks[number]) ? fit.peaks[number].significance : 0.0;
    };
    std::vector<std::size_t> order(fit.peaks.size());
    std::iota(order.begin(), order.end(), 0U);
    std::ranges::sort(order, {}, significanceOf);
    if (significanceOf(order.front()) < limit) {
        return order.front();
    }
    for (std::size_t fainter = 0; fainter < order.size(); ++fainter) {
        for (std::size_t stronger = fainter + 1; stronger < order.size(); ++stronger) {
            if (isUnresolved(fit, order[fainter], order[stronger])) {
                return order[fainter];
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

void dropPeak(Group& group, Shape& shape, std::size_t number) {
    group.erase(group.begin() + static_cast<std::ptrdiff_t>(number));
    if (shape.widePeak == number) {
        shape.widePeak.reset();
    } else if (shape.widePeak && *shape.widePeak > number) {
        --*shape.widePeak;
    }
}

// start: a fit of the whole group to begin with.
std::optional<RegionFit> fitPruning(const Spectrum& spectrum, Group group, Region region,
                                    Shape shape, double limit, const RegionFit* start) {
    while (!group.empty()) {
        auto fit = fitRegion(spectrum, region, group, shape, start);
        if (fit) {
            weighFaintPeaks(spectrum, *fit, limit);
        }
        const auto dropped = fit ? superfluous(*fit, limit) : lowestPeak(spectrum, group);
        if (!dropped) {
            return fit;
        }
        dropPeak(group, shape, *dropped);
        start = nullptr;
    }
    return std::nullopt;
}

// The group with its peaks where the fit has them.
Group fittedGroup(const Spectrum& spectrum, const RegionFit& fit) {
    std::vector<double> channels;
    std::ranges::transform(fit.peaks, std::back_inserter(channels), &FittedPeak::channel);
    return expectedAt(spectrum, channels);
}

std::optional<double> missingPeak(const Spectrum& spectrum, const RegionFit& fit, double limit) {
    const Region& region = fit.region;
    std::vector<double> residuals(region.count);
    std::vector<double> variances(region.count);
    for (std::size_t offset = 0; offset < region.count; ++offset) {
        const std::size_t index = region.first + offset;
        residuals[offset] = spectrum.contents[index] - fit.model[offset];
        const double excess = spectrum.excess.empty() ? 0.0 : spectrum.excess[index];
        variances[offset] = std::max(fit.model[offset], 0.0) + excess;
    }
    const auto widths = spectrum.widths.subspan(region.first, region.count);
    const auto candidates = findCandidates(residuals, variances, widths, limit);
    const auto best = std::ranges::max_element(candidates, {}, &Candidate::significance);
    return best == candidates.end()
               ? std::nullopt
               : std::optional(best->channel + static_cast<double>(region.first));
}

std::size_t strongestPeak(const RegionFit& fit) {
    return static_cast<std::size_t>(std::ranges::max_element(fit.peaks, {}, &FittedPeak::area) -
                                    fit.peaks.begin());
}

bool isAlone(const RegionFit& fit, std::size_t number) {
    const FittedPeak& peak = fit.peaks[number];
    return std::ranges::none_of(fit.peaks, [&peak](const FittedPeak& other) {
        const double distance = std::abs(other.channel - peak.channel);
        return distance > 0.0 && distance < aloneDistance * peak.width;
    });
}

// Whether an edge stands for all peaks of the fit, also where more of the continuum shows.
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

// Drops the peaks that are the shoulder of an edge beside others.
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

struct Improvement {
    RegionFit fit;
    double merit;  // gain in -2 ln(likelihood) beyond what its unknowns cost
};

// Tries what a fit may lack.
class Improver {
  public:
    Improver(const Spectrum& spectrum, double limit, bool morePeaks)
        : spectrum_(spectrum), limit_(limit), morePeaks_(morePeaks) {}

    RegionFit improve(RegionFit fit);

  private:
    void tryShapes(const RegionFit& fit);
    void tryPeaks(const RegionFit& fit);
    void tryFit(const RegionFit& fit, const Group& group, const Shape& shape, double cost,
                const RegionFit* start);
    RegionFit simplified(RegionFit fit) const;

    const Spectrum& spectrum_;
    double limit_;
    bool morePeaks_;
    std::vector<Improvement> found_;
};

void Improver::tryFit(const RegionFit& fit, const Group& group, const Shape& shape, double cost,
                      const RegionFit* start) {
    auto tried = fitRegion(spectrum_, fit.region, group, shape, start);
    if (tried && fit.unlikelihood - tried->unlikelihood > cost) {
        const double merit = fit.unlikelihood - tried->unlikelihood - cost;
        found_.push_back({std::move(*tried), merit});
    }
}

void Improver::tryShapes(const RegionFit& fit) {
    if (const std::size_t strongest = strongestPeak(fit);
        !fit.shape.widePeak && isAlone(fit, strongest)) {
        Shape shape = fit.shape;
        shape.widePeak = strongest;
        tryFit(fit, fit.expected, shape, gainForOne, &fit);
    }
    if (!fit.shape.tailed && fit.peaks[strongestPeak(fit)].significance >= strongEnoughForTail) {
        Shape shape = fit.shape;
        shape.tailed = true;
        tryFit(fit, fit.expected, shape, gainForTail, &fit);
    }
    if (!fit.shape.curved) {
        Shape shape = fit.shape;
        shape.curved = true;
        tryFit(fit, fit.expected, shape, gainForOne, &fit);
    }
}

// Another peak where the residuals have their most significant second difference, and the strongest
// peak parted in two.
void Improver::tryPeaks(const RegionFit& fit) {
    const double cost = limit_ * limit_;
    Shape shape = fit.shape;
    shape.widePeak.reset();
    const Group group = fittedGroup(spectrum_, fit);
    if (group.size() != fit.peaks.size()) {
        return;
    }
    if (const auto channel = missingPeak(spectrum_, fit, 0.5 * limit_)) {
        Group more = group;
        const auto added = expectedAt(spectrum_, std::span(&*channel, 1));
        more.insert(more.end(), added.begin(), added.end());
        tryFit(fit, more, fit.shape, cost, &fit);
    }
    const std::size_t strongest = strongestPeak(fit);
    if (isAlone(fit, strongest)) {
        Group parted = group;
        ExpectedPeak& one = parted[strongest];
        ExpectedPeak other = one;
        one.channel -= 0.45 * one.width;
        other.channel += 0.45 * other.width;
        parted.push_back(other);
        tryFit(fit, parted, shape, cost, nullptr);
    }
}

// Takes back what is no longer needed once something else was found.
RegionFit Improver::simplified(RegionFit fit) const {
    const auto without = [&](Shape shape, double cost) {
        auto tried = fitRegion(spectrum_, fit.region, fit.expected, shape, &fit);
        if (tried && tried->unlikelihood - fit.unlikelihood < cost) {
            fit = std::move(*tried);
        }
    };
    if (fit.shape.tailed) {
        Shape shape = fit.shape;
        shape.tailed = false;
        without(shape, gainForTail);
    }
    if (fit.shape.widePeak) {
        Shape shape = fit.shape;
        shape.widePeak.reset();
        without(shape, gainForOne);
    }
    if (fit.shape.curved) {
        Shape shape = fit.shape;
        shape.curved = false;
        without(shape, gainForOne);
    }
    return fit;
}

RegionFit Improver::improve(RegionFit fit) {
    for (int number = 0; number < mostImprovements; ++number) {
        const double deviation = std::sqrt(2.0 * fit.degreesOfFreedom);
        if (fit.chiSquare <= fit.degreesOfFreedom + 1.5 * deviation) {
            break;
        }
        found_.clear();
        tryShapes(fit);
        if (morePeaks_) {
            tryPeaks(fit);
        }
        std::ranges::sort(found_, std::ranges::greater(), &Improvement::merit);
        bool improved = false;
        for (Improvement& improvement : found_) {
            RegionFit& tried = improvement.fit;
            if (tried.peaks.size() > fit.peaks.size()) {
                tried = simplified(std::move(tried));
                weighFaintPeaks(spectrum_, tried, limit_);
                if (tried.peaks.back().significance < limit_ ||
                    superfluous(tried, keptPart * limit_)) {
                    continue;
                }
            }
            fit = std::move(tried);
            improved = true;
            break;
        }
        if (!improved) {
            break;
        }
    }
    return fit;
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

std::optional<RegionFit> fitCoarsely(const Spectrum& spectrum, std::vector<ExpectedPeak> expected,
                                     ChannelRange range, double limit) {
    const Region region = widestRegion(spectrum, expected, range);
    return fitPruning(spectrum, std::move(expected), region, {}, limit, nullptr);
}

std::optional<RegionFit> fitMultiplet(const Spectrum& spectrum, std::vector<ExpectedPeak> expected,
                                      ChannelRange range, double limit, bool morePeaks) {
    const double kept = keptPart * limit;
    auto fit = fitCoarsely(spectrum, std::move(expected), range, kept);
    if (!fit) {
        return fit;
    }
    if (isEdge(spectrum, *fit, range)) {
        return std::nullopt;
    }
    *fit = Improver(spectrum, limit, morePeaks).improve(std::move(*fit));
    *fit = withoutShoulders(spectrum, std::move(*fit), limit);
    if (isEdge(spectrum, *fit, range)) {
        return std::nullopt;
    }
    if (!describesRegion(*fit)) {
        for (const double reach : narrowerReaches) {
            const Region region = regionOf(spectrum, fit->expected, reach, range);
            auto narrowed = fitRegion(spectrum, region, fit->expected, fit->shape, &*fit);
            if (!narrowed) {
                break;
            }
            weighFaintPeaks(spectrum, *narrowed, kept);
            if (superfluous(*narrowed, kept)) {
                continue;
            }
            if (describesRegion(*narrowed)) {
                *fit = std::move(*narrowed);
                break;
            }
        }
    }
    for (std::size_t number = 0; number < fit->peaks.size(); ++number) {
        fit->peaks[number].significance = likelihoodSignificance(spectrum, *fit, number);
    }
    std::erase_if(fit->peaks, [limit](const FittedPeak& peak) {
        return peak.significance < limit || !isCertain(peak);
    });
    return fit;
}

}  // namespace embedded::engines
