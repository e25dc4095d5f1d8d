#include "embedded/engines/fit_improvement.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "embedded/engines/peak_evidence.h"
#include "embedded/engines/spectrum.h"

namespace embedded::engines {

namespace {

// Gain in -2 ln(likelihood) that additional unknowns need: three standard deviations. Another peak
// must gain the square of the limit.
constexpr double requiredGain = 9.0;

// Tails contain some tenths of a peak. In a fainter peak they are not visible, and a wrong
// continuum looks like a tail.
constexpr double strongEnoughForTail = 25.0;

// Chi-square up to which nothing is missing, in its standard deviations. It is less than the
// accepted value, because a peak of 8 sigma raises chi-square only a little more in a wide region.
constexpr double wellDescribed = 1.5;

// Smallest second difference of the residuals for an additional peak, as a part of the limit;
// distance by which each half of a split peak is moved, in widths.
constexpr double missingPart = 0.5;
constexpr double partedDistance = 0.45;

constexpr int maxImprovements = 8;

// A peak may have its own width if no other peak is nearer than this, in widths.
constexpr double aloneDistance = 2.5;

using Group = std::vector<ExpectedPeak>;

// Returns the group with the peaks at the positions of the fit.
Group fittedGroup(const Spectrum& spectrum, const RegionFit& fit) {
    return expectedAt(spectrum, channelsOf(fit.peaks));
}

std::optional<double> missingPeak(const Spectrum& spectrum, const RegionFit& fit, double limit) {
    const Region& region = fit.region;
    std::vector<double> residuals(region.count);
    std::vector<double> variances(region.count);
    for (std::size_t offset = 0; offset < region.count; ++offset) {
        const std::size_t index = region.first + offset;
        residuals[offset] = spectrum.contents[index] - fit.model[offset];
        variances[offset] = std::max(fit.model[offset], 0.0) + spectrum.excessAt(index);
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

bool isStrong(const RegionFit& fit) {
    return fit.peaks[strongestPeak(fit)].significance >= strongEnoughForTail;
}

struct Improvement {
    RegionFit fit;
    double merit;  // gain in -2 ln(likelihood) less the cost of its unknowns
};

// An extension of a shape beyond Gaussians of one width on a straight line.
struct Extension {
    bool (*isIn)(const Shape& shape);
    void (*put)(Shape& shape, std::size_t strongest);
    void (*take)(Shape& shape);
};

constexpr Extension leftTail = {[](const Shape& shape) { return shape.leftTail; },
                                [](Shape& shape, std::size_t) { shape.leftTail = true; },
                                [](Shape& shape) { shape.leftTail = false; }};
constexpr Extension rightTail = {[](const Shape& shape) { return shape.rightTail; },
                                 [](Shape& shape, std::size_t) { shape.rightTail = true; },
                                 [](Shape& shape) { shape.rightTail = false; }};
constexpr Extension ownWidth = {
    [](const Shape& shape) { return shape.widePeak.has_value(); },
    [](Shape& shape, std::size_t strongest) { shape.widePeak = strongest; },
    [](Shape& shape) { shape.widePeak.reset(); }};
constexpr Extension curvature = {[](const Shape& shape) { return shape.curved; },
                                 [](Shape& shape, std::size_t) { shape.curved = true; },
                                 [](Shape& shape) { shape.curved = false; }};

// Tries extensions of a fit.
class Improver {
  public:
    Improver(const Spectrum& spectrum, double limit, bool morePeaks)
        : spectrum_(spectrum), limit_(limit), morePeaks_(morePeaks) {}

    RegionFit improve(RegionFit fit);

  private:
    void tryShape(const RegionFit& fit, const Extension& extension);
    void tryMissingPeak(const RegionFit& fit, const RegionFit& start, double cost);
    void tryPeakInsteadOf(const RegionFit& fit, const Extension& tail);
    void tryParting(const RegionFit& fit, Group group);
    void tryAll(const RegionFit& fit);
    void tryFit(const RegionFit& fit, const Group& group, const Shape& shape, double cost,
                const RegionFit* start);
    RegionFit simplified(RegionFit fit) const;
    std::optional<RegionFit> best(const RegionFit& fit);

    const Spectrum& spectrum_;
    double limit_;
    bool morePeaks_;
    std::vector<Improvement> improvements_;
};

void Improver::tryFit(const RegionFit& fit, const Group& group, const Shape& shape, double cost,
                      const RegionFit* start) {
    auto tried = fitRegion(spectrum_, fit.region, group, shape, start);
    if (tried && fit.unlikelihood - tried->unlikelihood > cost) {
        const double merit = fit.unlikelihood - tried->unlikelihood - cost;
        improvements_.push_back({std::move(*tried), merit});
    }
}

void Improver::tryShape(const RegionFit& fit, const Extension& extension) {
    if (!extension.isIn(fit.shape)) {
        Shape shape = fit.shape;
        extension.put(shape, strongestPeak(fit));
        tryFit(fit, fit.expected, shape, requiredGain, &fit);
    }
}

// Adds a peak at the most significant second difference of the residuals of a fit, which may have
// another shape than the one to improve.
void Improver::tryMissingPeak(const RegionFit& fit, const RegionFit& start, double cost) {
    const auto channel = missingPeak(spectrum_, start, missingPart * limit_);
    Group group = fittedGroup(spectrum_, start);
    if (channel && group.size() == start.peaks.size()) {
        const auto added = expectedAt(spectrum_, std::span(&*channel, 1));
        group.insert(group.end(), added.begin(), added.end());
        tryFit(fit, group, start.shape, cost, &start);
    }
}

// A tail that no other peak shows may be a hidden peak.
void Improver::tryPeakInsteadOf(const RegionFit& fit, const Extension& tail) {
    if (!tail.isIn(fit.shape)) {
        return;
    }
    Shape shape = fit.shape;
    tail.take(shape);
    if (const auto without = fitRegion(spectrum_, fit.region, fit.expected, shape, &fit)) {
        tryMissingPeak(fit, *without, limit_ * limit_ - requiredGain);
    }
}

// Replaces the strongest peak by two.
void Improver::tryParting(const RegionFit& fit, Group group) {
    ExpectedPeak& one = group[strongestPeak(fit)];
    ExpectedPeak other = one;
    one.channel -= partedDistance * one.width;
    other.channel += partedDistance * other.width;
    group.push_back(other);
    Shape shape = fit.shape;
    shape.widePeak.reset();
    tryFit(fit, group, shape, limit_ * limit_, nullptr);
}

void Improver::tryAll(const RegionFit& fit) {
    const bool isSingle = isAlone(fit, strongestPeak(fit));
    tryShape(fit, curvature);
    if (isSingle) {
        tryShape(fit, ownWidth);
    }
    const Group group = fittedGroup(spectrum_, fit);
    if (morePeaks_ && group.size() == fit.peaks.size()) {
        tryMissingPeak(fit, fit, limit_ * limit_);
        if (isSingle) {
            tryParting(fit, group);
        }
    }
}

// Removes extensions that later ones made unnecessary.
RegionFit Improver::simplified(RegionFit fit) const {
    for (const Extension* extension : {&leftTail, &rightTail, &ownWidth, &curvature}) {
        if (extension->isIn(fit.shape)) {
            Shape shape = fit.shape;
            extension->take(shape);
            auto tried = fitRegion(spectrum_, fit.region, fit.expected, shape, &fit);
            if (tried && tried->unlikelihood - fit.unlikelihood < requiredGain) {
                fit = std::move(*tried);
            }
        }
    }
    return fit;
}

// Returns the trial with the greatest merit. Another peak must still be significant after the fit
// is simplified.
std::optional<RegionFit> Improver::best(const RegionFit& fit) {
    std::ranges::sort(improvements_, std::ranges::greater(), &Improvement::merit);
    for (Improvement& improvement : improvements_) {
        RegionFit& tried = improvement.fit;
        if (tried.peaks.size() > fit.peaks.size()) {
            tried = simplified(std::move(tried));
            weighFaintPeaks(spectrum_, tried, limit_);
            if (tried.peaks.back().significance < limit_ || superfluous(tried, keptPart * limit_)) {
                continue;
            }
        }
        return std::move(tried);
    }
    return std::nullopt;
}

// A tail is also tried if the region is already described, because step and width may hide it.
RegionFit Improver::improve(RegionFit fit) {
    for (int number = 0; number < maxImprovements; ++number) {
        improvements_.clear();
        if (isStrong(fit)) {
            tryShape(fit, leftTail);
            tryShape(fit, rightTail);
        }
        if (morePeaks_ && spectrum_.shapes == nullptr) {
            tryPeakInsteadOf(fit, leftTail);
            tryPeakInsteadOf(fit, rightTail);
        }
        const double deviation = std::sqrt(2.0 * fit.degreesOfFreedom);
        if (fit.chiSquare > fit.degreesOfFreedom + wellDescribed * deviation) {
            tryAll(fit);
        }
        auto better = best(fit);
        if (!better) {
            break;
        }
        fit = std::move(*better);
    }
    return fit;
}

}  // namespace

RegionFit improved(const Spectrum& spectrum, RegionFit fit, double limit, bool morePeaks) {
    return Improver(spectrum, limit, morePeaks).improve(std::move(fit));
}

}  // namespace embedded::engines
