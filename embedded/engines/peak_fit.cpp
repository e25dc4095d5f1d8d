#include "embedded/engines/peak_fit.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "embedded/engines/likelihood_fit.h"

namespace embedded::engines {

namespace {

constexpr double acceptedDeviations = 3.0;
constexpr double firstTailFraction = 0.1;

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

// Takes over from an earlier fit what it knows of the peaks, and of the continuum where the region
// is the same.
void startFrom(const RegionFit& start, const PeakModel& model, const Shape& shape,
               Eigen::VectorXd& values) {
    const bool sameRegion =
        start.region.first == model.region().first && start.region.count == model.region().count;
    const Eigen::Index first = sameRegion ? 0 : Eigen::Index{PeakModel::step};
    const Eigen::Index count = std::min(start.values.size(), values.size()) - first;
    values.segment(first, count) = start.values.segment(first, count);
    if (!shape.widePeak) {
        values[PeakModel::ownWidth] = 1.0;
    }
    if (!shape.tailed) {
        values[PeakModel::tailFraction] = 0.0;
        values[PeakModel::tailLength] = usualTailLength;
    } else if (!start.shape.tailed) {
        values[PeakModel::tailFraction] = firstTailFraction;
    }
    if (!shape.curved) {
        values[PeakModel::curvature] = 0.0;
    }
    if (!shape.edge) {
        values[PeakModel::edgeHeight] = 0.0;
    } else if (!start.shape.edge) {
        placeEdge(*shape.edge, values);
    }
}

}  // namespace

void placeEdge(const ExpectedPeak& edge, Eigen::VectorXd& values) {
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

std::optional<RegionFit> fitRegion(const Spectrum& spectrum, Region region,
                                   std::vector<ExpectedPeak> expected, const Shape& shape,
                                   const RegionFit* start) {
    PeakModel model(region, expected, shape.widePeak);
    LikelihoodFit fit(spectrum, model, shape);
    // The width's observation counts as one more channel.
    const double degrees = static_cast<double>(region.count + 1) - fit.freeUnknowns();
    if (degrees < 1.0) {
        return std::nullopt;
    }
    Eigen::VectorXd values = model.estimate(spectrum.contents);
    if (start != nullptr) {
        startFrom(*start, model, shape, values);
    } else {
        if (shape.tailed) {
            values[PeakModel::tailFraction] = firstTailFraction;
        }
        if (shape.edge) {
            placeEdge(*shape.edge, values);
        }
    }
    fit.converge(values);
    const Eigen::VectorXd variances = fit.variances();
    if (variances.size() == 0) {
        return std::nullopt;
    }
    RegionFit result{region, std::move(expected), shape,           fit.values(),
                     {},     fit.unlikelihood(),  fit.chiSquare(), degrees,
                     {}};
    result.model.assign(fit.contents().begin(), fit.contents().end());
    for (std::size_t number = 0; number < result.expected.size(); ++number) {
        FittedPeak peak{};
        peak.channel = result.values[PeakModel::channel(number)];
        peak.width = model.width(result.values, number);
        peak.area = result.values[PeakModel::area(number)];
        peak.areaUncertainty =
            enlargementOf(result) * std::sqrt(variances[PeakModel::area(number)]);
        peak.continuum = continuumBelow(model, result.values, peak);
        peak.significance = peak.area / peak.areaUncertainty;
        peak.region = region;
        peak.reducedChiSquare = result.chiSquare / result.degreesOfFreedom;
        result.peaks.push_back(peak);
    }
    return result;
}

}  // namespace embedded::engines
