#include "embedded/engines/shape_measurement.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <iterator>
#include <optional>
#include <utility>
#include <vector>

#include "embedded/engines/common_tails.h"
#include "embedded/engines/fit_improvement.h"

namespace embedded::engines {

namespace {

constexpr double strongSignificance = 50.0;
constexpr std::size_t maxPeaks = 32;
constexpr double regionReach = 4.0;  // in widths

// A fainter peak nearer than this, in widths, may be the tail of a stronger one. Two of similar
// areas are a doublet, whose shape is not known.
constexpr double tailReach = 2.5;
constexpr double doubletPart = 0.5;

constexpr double requiredGainOfPeak = 25.0;  // in -2 ln(likelihood)
constexpr double absentFraction = 0.03;      // standard deviation of the fraction of an unseen tail
constexpr double significantDeviation = 3.0;  // in standard deviations

// A drift of all peaks must reduce -2 ln(likelihood) of the strongest to this part.
constexpr double remainingPart = 0.7;
constexpr std::size_t maxForDrift = 6;
constexpr std::size_t several = 3;

constexpr double maxReducedChiSquare = 10.0;

// A strong peak, the first, and its neighbours.
struct StrongGroup {
    std::vector<ExpectedPeak> peaks;       // without those that may be its tails
    std::vector<ExpectedPeak> satellites;  // those that may be
    Region region;
};

Region regionOf(const Spectrum& spectrum, const ExpectedPeak& peak) {
    const auto last = static_cast<double>(spectrum.contents.size());
    const double reach = regionReach * peak.width;
    const auto first =
        static_cast<std::size_t>(std::clamp(std::ceil(peak.channel - reach), 1.0, last));
    const auto end =
        static_cast<std::size_t>(std::clamp(std::floor(peak.channel + reach), 1.0, last));
    return {first - 1, end - first + 1};
}

std::optional<StrongGroup> groupOf(const Spectrum& spectrum, std::span<const FittedPeak> peaks,
                                   const FittedPeak& strong) {
    std::vector<double> channels = {strong.channel};
    std::vector<double> satellites;
    for (const FittedPeak& peak : peaks) {
        const double distance = std::abs(peak.channel - strong.channel) / strong.width;
        if (distance == 0.0 || distance > regionReach + 1.0) {
            continue;
        }
        if (distance > tailReach) {
            channels.push_back(peak.channel);
        } else if (peak.area > doubletPart * strong.area) {
            return std::nullopt;
        } else {
            satellites.push_back(peak.channel);
        }
    }
    StrongGroup group{expectedAt(spectrum, channels), expectedAt(spectrum, satellites), {}};
    group.region = regionOf(spectrum, group.peaks.front());
    return group;
}

// A tail makes the first fit of a strong peak bad and so enlarges its uncertainty; the enlargement
// is removed here.
bool isStrongPeak(const FittedPeak& peak) {
    return peak.significance * std::sqrt(std::max(1.0, peak.reducedChiSquare)) >=
           strongSignificance;
}

std::vector<StrongGroup> strongGroups(const Spectrum& spectrum, std::span<const FittedPeak> peaks) {
    std::vector<FittedPeak> strong;
    std::ranges::copy_if(peaks, std::back_inserter(strong), isStrongPeak);
    std::ranges::sort(strong, std::ranges::greater(), &FittedPeak::area);
    std::vector<StrongGroup> groups;
    for (const FittedPeak& peak : strong) {
        if (groups.size() == maxPeaks) {
            break;
        }
        if (auto group = groupOf(spectrum, peaks, peak)) {
            groups.push_back(std::move(*group));
        }
    }
    return groups;
}

constexpr Shape bothTails{.leftTail = true, .rightTail = true};

using Fits = std::vector<std::optional<RegionFit>>;  // of the groups, in their order

// Uses a curved continuum if the region is not described without it. earlier: a fit to begin with.
std::optional<RegionFit> fitShape(const Spectrum& spectrum, const StrongGroup& group, Shape shape,
                                  const std::optional<RegionFit>& earlier = std::nullopt) {
    shape.curved = earlier && earlier->shape.curved;
    auto fit = fitRegion(spectrum, group.region, group.peaks, shape, earlier ? &*earlier : nullptr);
    if (fit && !earlier && !describesRegion(*fit)) {
        shape.curved = true;
        if (auto curved = fitRegion(spectrum, group.region, group.peaks, shape, &*fit)) {
            fit = std::move(curved);
        }
    }
    return fit;
}

// earlier: fits of the first groups to begin with.
Fits fitShapes(const Spectrum& spectrum, std::span<const StrongGroup> groups, const Shape& shape,
               const Fits& earlier = {}) {
    Fits fits;
    for (std::size_t number = 0; number < groups.size(); ++number) {
        fits.push_back(fitShape(spectrum, groups[number], shape,
                                number < earlier.size() ? earlier[number] : std::nullopt));
    }
    return fits;
}

// Returns the gain in -2 ln(likelihood) of a better fit, reduced for its own misfit.
double gainOf(const RegionFit& worse, const RegionFit& better) {
    const double enlargement = enlargementOf(better);
    return (worse.unlikelihood - better.unlikelihood) / (enlargement * enlargement);
}

// Removes the groups whose satellites may be tails or peaks, if there are enough others.
void removeUndecided(std::vector<StrongGroup>& groups) {
    const auto isDecided = [](const StrongGroup& group) { return group.satellites.empty(); };
    if (std::ranges::count_if(groups, isDecided) >= static_cast<std::ptrdiff_t>(several)) {
        std::erase_if(groups, std::not_fn(isDecided));
    }
}

// Treats the satellites as peaks if tails alone do not describe their group.
void acceptSatellites(const Spectrum& spectrum, std::span<StrongGroup> groups) {
    for (StrongGroup& group : groups) {
        if (group.satellites.empty()) {
            continue;
        }
        const double required = requiredGainOfPeak * static_cast<double>(group.satellites.size());
        StrongGroup other = group;
        other.peaks.insert(other.peaks.end(), group.satellites.begin(), group.satellites.end());
        const auto tails = fitShape(spectrum, group, bothTails);
        const auto peaks = fitShape(spectrum, other, bothTails);
        if (peaks && (!tails || gainOf(*tails, *peaks) > required)) {
            other.satellites.clear();
            group = std::move(other);
        }
    }
}

// Adds peaks that no candidate showed. Among many peaks a tail that only one of them has is left
// out, but with few peaks a hidden neighbour would count as the tail of all.
void addHiddenPeaks(const Spectrum& spectrum, std::span<StrongGroup> groups) {
    if (groups.size() >= several) {
        return;
    }
    for (StrongGroup& group : groups) {
        auto fit = fitRegion(spectrum, group.region, group.peaks, {});
        if (!fit) {
            continue;
        }
        *fit = improved(spectrum, std::move(*fit), std::sqrt(requiredGainOfPeak), true);
        if (fit->peaks.size() > group.peaks.size()) {
            group.peaks = expectedAt(spectrum, channelsOf(fit->peaks));
        }
    }
}

// A fit that does not describe its region may contain an unknown doublet, so it counts only if
// there are several.
bool isUsable(const RegionFit& fit, std::size_t count) {
    const double maxRatio = count < several ? 1.0 : maxReducedChiSquare;
    return describesRegion(fit) || fit.chiSquare < maxRatio * fit.degreesOfFreedom;
}

MeasuredValue measuredBy(const RegionFit& fit, Eigen::Index unknown) {
    const double enlargement = enlargementOf(fit);
    return {fit.peaks.front().channel,
            {fit.values[unknown], fit.variances[unknown] * enlargement * enlargement}};
}

std::vector<MeasuredValue> measured(const Fits& fits, Eigen::Index unknown) {
    std::vector<MeasuredValue> values;
    for (const auto& fit : fits) {
        if (fit && isUsable(*fit, fits.size())) {
            values.push_back(measuredBy(*fit, unknown));
        }
    }
    return values;
}

// Returns the fraction of a tail as a function of the channel. If the peaks together do not show
// the tail, the fraction is drawn toward 0.
std::optional<SmoothFunction> fractionOf(std::vector<MeasuredValue> values) {
    auto function = SmoothFunction::through(values);
    if (!function) {
        return std::nullopt;
    }
    const auto [value, variance] = function->mean();
    if (value < significantDeviation * std::sqrt(variance)) {
        constexpr double absentVariance = absentFraction * absentFraction;
        const double part = absentVariance / (absentVariance + variance);
        for (MeasuredValue& one : values) {
            one.value = {part * one.value.value, part * one.value.variance};
        }
        function = SmoothFunction::through(std::move(values));
    }
    return function;
}

SmoothFunction constant(double value) {
    return SmoothFunction::through({{0.0, {value, 1.0}}})->exact();
}

// Measures the tails. A peak whose tails are different from those of the others is fitted again.
void measureTails(const Spectrum& spectrum, std::span<const StrongGroup> groups, Fits fits,
                  ShapeCalibration& shapes) {
    for (auto& fit : fits) {
        if (fit && !isUsable(*fit, fits.size())) {
            fit.reset();
        }
    }
    const CommonTails tails = fitCommonTails(spectrum, fits);
    shapes.left.length = constant(tails.leftLength);
    shapes.right.length = constant(tails.rightLength);
    std::vector<MeasuredValue> left;
    std::vector<MeasuredValue> right;
    for (std::size_t number = 0; number < fits.size(); ++number) {
        if (!fits[number]) {
            continue;
        }
        const double channel = fits[number]->peaks.front().channel;
        if (const auto& fractions = tails.fractions[number]) {
            left.push_back({channel, fractions->left});
            right.push_back({channel, fractions->right});
        } else if (const auto fit = fitShape(spectrum, groups[number], bothTails, fits[number])) {
            left.push_back(measuredBy(*fit, PeakModel::leftFraction));
            right.push_back(measuredBy(*fit, PeakModel::rightFraction));
        }
    }
    shapes.left.fraction = fractionOf(std::move(left));
    shapes.right.fraction = fractionOf(std::move(right));
}

double unlikelihoodOf(const Fits& fits) {
    double sum = 0.0;
    for (const auto& fit : fits) {
        sum += fit ? fit->unlikelihood : 0.0;
    }
    return sum;
}

// Returns the drift of the peaks if it describes the strongest ones clearly better.
std::optional<SmoothFunction> driftOf(const Spectrum& spectrum, std::span<const StrongGroup> groups,
                                      const Fits& fits) {
    const std::size_t count = std::min(groups.size(), maxForDrift);
    const Fits without(fits.begin(), fits.begin() + static_cast<std::ptrdiff_t>(count));
    const bool isDescribed =
        std::ranges::all_of(without, [](const auto& fit) { return !fit || describesRegion(*fit); });
    if (isDescribed || count < several) {
        return std::nullopt;
    }
    const Shape drifted{.leftTail = true, .rightTail = true, .drifted = true};
    const Fits with = fitShapes(spectrum, groups.first(count), drifted, without);
    if (unlikelihoodOf(with) > remainingPart * unlikelihoodOf(without)) {
        return std::nullopt;
    }
    const auto function = SmoothFunction::through(measured(with, PeakModel::drift));
    return function ? std::optional(function->exact()) : std::nullopt;
}

}  // namespace

// The quantities depend on each other, so they are measured one after the other, each with the
// earlier ones as functions of the channel.
ShapeCalibration measureShapes(const Spectrum& spectrum, std::span<const FittedPeak> peaks) {
    std::vector<StrongGroup> groups = strongGroups(spectrum, peaks);
    acceptSatellites(spectrum, groups);
    removeUndecided(groups);
    addHiddenPeaks(spectrum, groups);
    ShapeCalibration shapes;
    Spectrum calibrated = spectrum;
    calibrated.shapes = &shapes;
    Fits fits = fitShapes(calibrated, groups, bothTails);
    shapes.drift = driftOf(calibrated, groups, fits);
    if (shapes.drift) {
        fits = fitShapes(calibrated, groups, bothTails);
    }
    measureTails(calibrated, groups, fits, shapes);
    fits = fitShapes(calibrated, groups, {}, fits);
    shapes.widthFactor = SmoothFunction::through(measured(fits, PeakModel::widthFactor));
    return shapes;
}

}  // namespace embedded::engines
