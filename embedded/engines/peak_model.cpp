#include "embedded/engines/peak_model.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <utility>

#include "embedded/engines/calibration.h"

namespace embedded::engines {

namespace {

constexpr double centroidRange = 0.5;  // in widths

struct Range {
    double lowest;
    double highest;
};

// The calibration is wrong by less; only one peak may be as broad as annihilation makes it.
constexpr Range widthFactorRange = {0.7, 1.4};
constexpr Range ownWidthRange = {0.7, 2.5};
constexpr Range tailFractionRange = {0.0, 0.5};
constexpr Range tailLengthRange = {0.5, 4.0};
constexpr double narrowestEdge = 0.25;  // channels

constexpr double outOfSight = 8.0;  // in standard deviations: less than 1e-15 of a peak lies beyond

double normalDensity(double x) {
    constexpr double density = 0.5 * std::numbers::inv_sqrtpi * std::numbers::sqrt2;
    return density * std::exp(-0.5 * x * x);
}

double normalDistribution(double x) {
    return 0.5 * std::erfc(-x / std::numbers::sqrt2);
}

double channelOf(std::size_t index) {
    return static_cast<double>(index + 1);
}

// The part of a peak below a place, and its derivatives.
struct Distribution {
    double value;
    double byPlace;     // in sigma
    double byFraction;  // of the tail
    double byLength;
};

Distribution distribution(double place, double fraction, double length) {
    if (place > outOfSight) {
        return {1.0, 0.0, 0.0, 0.0};
    }
    if (place < -outOfSight * std::max(1.0, 3.0 * length)) {
        return {0.0, 0.0, 0.0, 0.0};
    }
    const double density = normalDensity(place);
    const double below = normalDistribution(place);
    // The exponential part of the folded distribution, exp(z/t + 1/2t^2) x Phi(-z - 1/t).
    const double inverse = 1.0 / length;
    const double folded =
        std::exp(inverse * (place + 0.5 * inverse)) * normalDistribution(-place - inverse);
    const double byLength = inverse * inverse * (density - (place + inverse) * folded);
    return {below + fraction * folded, density + fraction * (folded * inverse - density), folded,
            fraction * byLength};
}

// The same without a tail, for which it costs half.
Distribution distribution(double place) {
    if (std::abs(place) > outOfSight) {
        return {place > 0.0 ? 1.0 : 0.0, 0.0, 0.0, 0.0};
    }
    return {normalDistribution(place), normalDensity(place), 0.0, 0.0};
}

// Distance below the edge in standard deviations of the peak that would be as rounded.
double edgeArgument(const Eigen::VectorXd& values, std::size_t index) {
    return (values[PeakModel::edgeChannel] - channelOf(index)) * fwhmPerSigma /
           values[PeakModel::edgeWidth];
}

}  // namespace

PeakModel::PeakModel(Region region, std::vector<ExpectedPeak> expected, const Shape& shape)
    : region_(region), expected_(std::move(expected)), shape_(shape) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    lowest_.setConstant(unknowns(), -infinity);
    highest_.setConstant(unknowns(), infinity);
    const auto setRange = [this](Eigen::Index unknown, Range range) {
        lowest_[unknown] = range.lowest;
        highest_[unknown] = range.highest;
    };
    setRange(widthFactor, widthFactorRange);
    setRange(ownWidth, ownWidthRange);
    setRange(tailFraction, tailFractionRange);
    setRange(tailLength, tailLengthRange);
    setRange(edgeChannel, {channelOf(region_.first), channelOf(region_.first + region_.count)});
    setRange(edgeWidth, {narrowestEdge, static_cast<double>(region_.count)});
    for (std::size_t peak = 0; peak < expected_.size(); ++peak) {
        const auto [centre, fwhm] = expected_[peak];
        setRange(channel(peak), {centre - centroidRange * fwhm, centre + centroidRange * fwhm});
    }
}

// A straight line through the means of a few channels at the two ends; on it Gaussians with the
// heights that the spectrum has above it.
Eigen::VectorXd PeakModel::estimate(std::span<const double> contents) {
    Eigen::VectorXd values = Eigen::VectorXd::Zero(unknowns());
    const std::size_t averaged = std::max<std::size_t>(1, region_.count / 8);
    double low = 0.0;
    double high = 0.0;
    for (std::size_t index = 0; index < averaged; ++index) {
        low += contents[region_.first + index];
        high += contents[region_.first + region_.count - 1 - index];
    }
    values[level] = 0.5 * (low + high) / static_cast<double>(averaged);
    values[slope] = 0.5 * (high - low) / static_cast<double>(averaged);
    values[widthFactor] = 1.0;
    values[ownWidth] = 1.0;
    values[tailLength] = usualTailLength;
    values[edgeWidth] = 1.0;

    for (std::size_t peak = 0; peak < expected_.size(); ++peak) {
        const auto [centre, fwhm] = expected_[peak];
        const double nearest = std::clamp(std::round(centre), channelOf(region_.first),
                                          channelOf(region_.first + region_.count - 1));
        const auto index = static_cast<std::size_t>(nearest) - 1;
        const double height = contents[index] - values[level] - values[slope] * offset(index);
        const double sigma = fwhm / fwhmPerSigma;
        values[area(peak)] = std::max(1.0, height) * sigma * std::sqrt(2.0 * std::numbers::pi);
        values[channel(peak)] = centre;
        if (values[area(peak)] > values[area(strongest_)]) {
            strongest_ = peak;
        }
    }
    return values;
}

double PeakModel::broadening(const Eigen::VectorXd& values, std::size_t peak) const {
    return peak == shape_.widePeak ? values[ownWidth] : 1.0;
}

double PeakModel::width(const Eigen::VectorXd& values, std::size_t peak) const {
    return expected_[peak].width * values[widthFactor] * broadening(values, peak);
}

// Position in the region: -1 at its first, 1 at its last channel.
double PeakModel::offset(std::size_t index) const {
    const double half = 0.5 * static_cast<double>(region_.count - 1);
    return (static_cast<double>(index - region_.first) - half) / half;
}

// Distance below the centroid of the strongest peak in standard deviations of its width.
double PeakModel::stepArgument(const Eigen::VectorXd& values, std::size_t index) const {
    const double sigma = width(values, strongest_) / fwhmPerSigma;
    return (values[channel(strongest_)] - channelOf(index)) / sigma;
}

double PeakModel::continuum(const Eigen::VectorXd& values, std::size_t index) const {
    const double place = offset(index);
    return values[level] + place * (values[slope] + place * values[curvature]) +
           values[step] * normalDistribution(stepArgument(values, index)) +
           values[edgeHeight] * normalDistribution(edgeArgument(values, index));
}

void PeakModel::addContinuum(const Eigen::VectorXd& values, Eigen::VectorXd& contents,
                             Eigen::MatrixXd* derivatives) const {
    for (std::size_t number = 0; number < region_.count; ++number) {
        const auto row = static_cast<Eigen::Index>(number);
        const double place = offset(region_.first + number);
        contents[row] = values[level] + place * (values[slope] + place * values[curvature]);
        if (derivatives != nullptr) {
            auto& matrix = *derivatives;
            matrix(row, level) = 1.0;
            matrix(row, slope) = place;
            matrix(row, curvature) = place * place;
        }
    }
}

void PeakModel::addStep(const Eigen::VectorXd& values, Eigen::VectorXd& contents,
                        Eigen::MatrixXd* derivatives) const {
    const double perSigma = fwhmPerSigma / width(values, strongest_);
    for (std::size_t number = 0; number < region_.count; ++number) {
        const auto row = static_cast<Eigen::Index>(number);
        const Distribution part = distribution(stepArgument(values, region_.first + number));
        contents[row] += values[step] * part.value;
        if (derivatives != nullptr) {
            auto& matrix = *derivatives;
            const double byPlace = values[step] * part.byPlace;
            const double byWidth = byPlace * stepArgument(values, region_.first + number);
            matrix(row, step) = part.value;
            matrix(row, channel(strongest_)) += byPlace * perSigma;
            matrix(row, widthFactor) -= byWidth / values[widthFactor];
            if (strongest_ == shape_.widePeak) {
                matrix(row, ownWidth) -= byWidth / values[ownWidth];
            }
        }
    }
}

void PeakModel::addEdge(const Eigen::VectorXd& values, Eigen::VectorXd& contents,
                        Eigen::MatrixXd* derivatives) const {
    for (std::size_t number = 0; number < region_.count; ++number) {
        const auto row = static_cast<Eigen::Index>(number);
        const double argument = edgeArgument(values, region_.first + number);
        const Distribution part = distribution(argument);
        contents[row] += values[edgeHeight] * part.value;
        if (derivatives != nullptr) {
            auto& matrix = *derivatives;
            const double byPlace = values[edgeHeight] * part.byPlace;
            matrix(row, edgeHeight) = part.value;
            matrix(row, edgeChannel) = byPlace * fwhmPerSigma / values[edgeWidth];
            matrix(row, edgeWidth) = -byPlace * argument / values[edgeWidth];
        }
    }
}

void PeakModel::addPeak(const Eigen::VectorXd& values, std::size_t peak, Eigen::VectorXd& contents,
                        Eigen::MatrixXd* derivatives) const {
    const double sigma = width(values, peak) / fwhmPerSigma;
    const double height = values[area(peak)];
    const double fraction = values[tailFraction];
    const double length = values[tailLength] / broadening(values, peak);
    const auto placeOf = [&](std::size_t number) {
        return (channelOf(region_.first + number) - 0.5 - values[channel(peak)]) / sigma;
    };
    // A fit that comes to T = 0 finds its way back by the derivative.
    const auto below = [&](double place) {
        return shape_.tailed ? distribution(place, fraction, length) : distribution(place);
    };
    double lowPlace = placeOf(0);
    Distribution low = below(lowPlace);
    for (std::size_t number = 0; number < region_.count; ++number) {
        const auto row = static_cast<Eigen::Index>(number);
        const double highPlace = placeOf(number + 1);
        const Distribution high = below(highPlace);
        contents[row] += height * (high.value - low.value);
        if (derivatives != nullptr) {
            auto& matrix = *derivatives;
            matrix(row, area(peak)) = high.value - low.value;
            matrix(row, channel(peak)) += height * (low.byPlace - high.byPlace) / sigma;
            const double byWidth = height * (lowPlace * low.byPlace - highPlace * high.byPlace);
            matrix(row, widthFactor) += byWidth / values[widthFactor];
            const double byLength = height * (high.byLength - low.byLength);
            if (peak == shape_.widePeak) {
                matrix(row, ownWidth) += (byWidth - byLength * length) / values[ownWidth];
            }
            matrix(row, tailFraction) += height * (high.byFraction - low.byFraction);
            matrix(row, tailLength) += byLength / broadening(values, peak);
        }
        low = high;
        lowPlace = highPlace;
    }
}

void PeakModel::evaluate(const Eigen::VectorXd& values, Eigen::VectorXd& contents,
                         Eigen::MatrixXd* derivatives) const {
    if (derivatives != nullptr) {
        derivatives->setZero(static_cast<Eigen::Index>(region_.count), unknowns());
    }
    contents.resize(static_cast<Eigen::Index>(region_.count));
    addContinuum(values, contents, derivatives);
    addStep(values, contents, derivatives);
    if (values[edgeHeight] != 0.0) {
        addEdge(values, contents, derivatives);
    }
    for (std::size_t peak = 0; peak < expected_.size(); ++peak) {
        if (values[area(peak)] != 0.0) {
            addPeak(values, peak, contents, derivatives);
        }
    }
}

}  // namespace embedded::engines
