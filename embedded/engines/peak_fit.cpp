#include "embedded/engines/peak_fit.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "embedded/engines/likelihood_fit.h"

namespace embedded::engines {

namespace {

constexpr double acceptedDeviations = 3.0;
constexpr double firstTailFraction = 0.1;
constexpr double firstDrift = 1.5;  // in sigma

double continuumBelow(const PeakModel& model, const Eigen::VectorXd& values,
                      const FittedPeak& peak) {
    const Region& region = model.region();
    double sum = 0.0;
    for (std::size_t index = region.first; index < region.first + region.count; ++index) {
        const double distance = std::abs(static_cast<double>(index + 1) - peak.channel);
        if (distance <= peakReach * peak.width) {
            sum += std::max(0.0, model.continuum(values, index));
        }
    }
    return sum;
}

// Sets the first values of a fitted tail: from the earlier fit, or large enough to have an effect.
void startTail(Eigen::Index fraction, const ExpectedTail& expected, bool isFitted, bool wasFitted,
               Eigen::VectorXd& values) {
    if (!isFitted) {
        values[fraction] = expected.fraction.value;
        values[fraction + 1] = expected.length.value;
    } else if (!wasFitted) {
        values[fraction] =
            expected.fraction.variance > 0.0 ? expected.fraction.value : firstTailFraction;
    }
}

// Copies the peaks of an earlier fit, and the continuum if the region is the same.
void copyStart(const RegionFit& start, const PeakModel& model, Eigen::VectorXd& values) {
    const bool sameRegion =
        start.region.first == model.region().first && start.region.count == model.region().count;
    const Eigen::Index first = sameRegion ? 0 : Eigen::Index{PeakModel::step};
    const Eigen::Index count = std::min(start.values.size(), values.size()) - first;
    values.segment(first, count) = start.values.segment(first, count);
}

Eigen::VectorXd startValues(const Spectrum& spectrum, PeakModel& model, const RegionFit* start) {
    Eigen::VectorXd values = model.estimate(spectrum.contents);
    const Shape& shape = model.shape();
    const Shape earlier = start != nullptr ? start->shape : Shape{};
    if (start != nullptr) {
        copyStart(*start, model, values);
    }
    const PeakShape& expected = model.expectedShape();
    startTail(PeakModel::leftFraction, expected.left, shape.leftTail, earlier.leftTail, values);
    startTail(PeakModel::rightFraction, expected.right, shape.rightTail, earlier.rightTail, values);
    if (!shape.drifted) {
        values[PeakModel::drift] = expected.drift.value;
    } else if (!earlier.drifted) {
        values[PeakModel::drift] = std::max(firstDrift, expected.drift.value);
    }
    if (!shape.widePeak) {
        values[PeakModel::ownWidth] = 1.0;
    }
    if (!shape.curved) {
        values[PeakModel::curvature] = 0.0;
    }
    if (!shape.edge) {
        values[PeakModel::edgeHeight] = 0.0;
    } else if (!earlier.edge) {
        setEdge(*shape.edge, values);
    }
    return values;
}

FittedPeak fittedPeak(const PeakModel& model, const RegionFit& fit, std::size_t number) {
    FittedPeak peak{};
    peak.channel = fit.values[PeakModel::channel(number)];
    peak.width = model.width(fit.values, number);
    peak.area = fit.values[PeakModel::area(number)];
    peak.areaUncertainty = enlargementOf(fit) * std::sqrt(fit.variances[PeakModel::area(number)]);
    peak.continuum = continuumBelow(model, fit.values, peak);
    peak.significance = peak.area / peak.areaUncertainty;
    peak.region = fit.region;
    peak.reducedChiSquare = fit.chiSquare / fit.degreesOfFreedom;
    peak.broadening = model.broadening(fit.values, number);
    return peak;
}

}  // namespace

void setEdge(const ExpectedPeak& edge, Eigen::VectorXd& values) {
    constexpr double noHeight = 1e-3;  // of which the derivatives are not 0
    values[PeakModel::edgeChannel] = edge.channel;
    values[PeakModel::edgeWidth] = edge.width;
    values[PeakModel::edgeHeight] =
        values[PeakModel::step] != 0.0 ? values[PeakModel::step] : noHeight;
}

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

bool describesRegion(const RegionFit& fit) {
    const double deviation = std::sqrt(2.0 * fit.degreesOfFreedom);
    return fit.chiSquare <= fit.degreesOfFreedom + acceptedDeviations * deviation;
}

double enlargementOf(const RegionFit& fit) {
    return describesRegion(fit) ? 1.0 : std::sqrt(fit.chiSquare / fit.degreesOfFreedom);
}

PeakModel modelOf(const Spectrum& spectrum, Region region, std::vector<ExpectedPeak> expected,
                  const Shape& shape) {
    const double middle =
        static_cast<double>(region.first) + 0.5 * static_cast<double>(region.count);
    return {region, std::move(expected), shape, spectrum.shapeAt(middle)};
}

std::optional<RegionFit> fitRegion(const Spectrum& spectrum, Region region,
                                   std::vector<ExpectedPeak> expected, const Shape& shape,
                                   const RegionFit* start) {
    PeakModel model = modelOf(spectrum, region, expected, shape);
    LikelihoodFit fit(spectrum, model);
    if (fit.degreesOfFreedom() < 1.0) {
        return std::nullopt;
    }
    fit.converge(startValues(spectrum, model, start));
    Eigen::VectorXd variances = fit.variances();
    if (variances.size() == 0) {
        return std::nullopt;
    }
    RegionFit result{.region = region,
                     .expected = std::move(expected),
                     .shape = shape,
                     .values = fit.values(),
                     .variances = std::move(variances),
                     .peaks = {},
                     .unlikelihood = fit.unlikelihood(),
                     .chiSquare = fit.chiSquare(),
                     .degreesOfFreedom = fit.degreesOfFreedom(),
                     .model = {fit.contents().begin(), fit.contents().end()}};
    for (std::size_t number = 0; number < result.expected.size(); ++number) {
        result.peaks.push_back(fittedPeak(model, result, number));
    }
    return result;
}

}  // namespace embedded::engines
