#include "embedded/engines/peak_model.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "embedded/engines/calibration.h"

namespace embedded::engines {

namespace {

constexpr double centroidRange = 0.5;  // in widths
constexpr double smallestWidthFactor = 0.7;
constexpr double largestWidthFactor = 1.4;
constexpr double outOfSight = 8.0;  // in standard deviations: less than 1e-15 of a peak lies beyond

double normalDensity(double x) {
    return std::exp(-0.5 * x * x) / std::sqrt(2.0 * std::numbers::pi);
}

double normalDistribution(double x) {
    return 0.5 * std::erfc(-x / std::numbers::sqrt2);
}

double channelOf(std::size_t index) {
    return static_cast<double>(index + 1);
}

}  // namespace

PeakModel::PeakModel(std::span<const double> contents, Region region,
                     std::span<const ExpectedPeak> expected)
    : region_(region),
      expected_(expected.begin(), expected.end()),
      estimate_(area(expected.size()), 0.0) {
    estimate_[widthFactor] = 1.0;
    estimateContinuum(contents);
    estimatePeaks(contents);
}

// A straight line through the means of a few channels at the two ends.
void PeakModel::estimateContinuum(std::span<const double> contents) {
    const std::size_t averaged = std::max<std::size_t>(1, region_.count / 8);
    double low = 0.0;
    double high = 0.0;
    for (std::size_t index = 0; index < averaged; ++index) {
        low += contents[region_.first + index];
        high += contents[region_.first + region_.count - 1 - index];
    }
    estimate_[level] = 0.5 * (low + high) / static_cast<double>(averaged);
    estimate_[slope] = 0.5 * (high - low) / static_cast<double>(averaged);
}

// The area of a Gaussian with the height that the spectrum has above the continuum.
void PeakModel::estimatePeaks(std::span<const double> contents) {
    for (std::size_t peak = 0; peak < expected_.size(); ++peak) {
        const auto [centre, fwhm] = expected_[peak];
        const double nearest = std::clamp(std::round(centre), channelOf(region_.first),
                                          channelOf(region_.first + region_.count - 1));
        const auto index = static_cast<std::size_t>(nearest) - 1;
        const double height = contents[index] - continuum(estimate_, index);
        const double sigma = fwhm / fwhmPerSigma;
        estimate_[area(peak)] = std::max(1.0, height) * sigma * std::sqrt(2.0 * std::numbers::pi);
        estimate_[channel(peak)] = centre;
        if (estimate_[area(peak)] > estimate_[area(strongest_)]) {
            strongest_ = peak;
        }
    }
}

void PeakModel::restrain(std::vector<double>& values) const {
    values[widthFactor] = std::clamp(values[widthFactor], smallestWidthFactor, largestWidthFactor);
    for (std::size_t peak = 0; peak < expected_.size(); ++peak) {
        const auto [centre, fwhm] = expected_[peak];
        double& value = values[channel(peak)];
        value = std::clamp(value, centre - centroidRange * fwhm, centre + centroidRange * fwhm);
    }
}

double PeakModel::width(std::span<const double> values, std::size_t peak) const {
    return expected_[peak].width * values[widthFactor];
}

// Position in the region: -1 at its first, 1 at its last channel.
double PeakModel::offset(std::size_t index) const {
    const double half = 0.5 * static_cast<double>(region_.count - 1);
    return (static_cast<double>(index - region_.first) - half) / half;
}

// Distance below the centroid of the strongest peak in standard deviations of its width.
double PeakModel::stepArgument(std::span<const double> values, std::size_t index) const {
    const double sigma = width(values, strongest_) / fwhmPerSigma;
    return (values[channel(strongest_)] - channelOf(index)) / sigma;
}

double PeakModel::continuum(std::span<const double> values, std::size_t index) const {
    return values[level] + values[slope] * offset(index) +
           values[step] * normalDistribution(stepArgument(values, index));
}

double PeakModel::content(std::span<const double> values, std::size_t index,
                          std::span<double> derivatives) const {
    derivatives[level] = 1.0;
    derivatives[slope] = offset(index);
    derivatives[step] = normalDistribution(stepArgument(values, index));
    derivatives[widthFactor] = 0.0;
    double content =
        values[level] + values[slope] * derivatives[slope] + values[step] * derivatives[step];

    for (std::size_t peak = 0; peak < expected_.size(); ++peak) {
        const double sigma = width(values, peak) / fwhmPerSigma;
        const double height = values[area(peak)];
        const double low = (channelOf(index) - 0.5 - values[channel(peak)]) / sigma;
        const double high = (channelOf(index) + 0.5 - values[channel(peak)]) / sigma;
        if (low > outOfSight || high < -outOfSight) {
            derivatives[area(peak)] = 0.0;
            derivatives[channel(peak)] = 0.0;
            continue;
        }
        const double lowDensity = normalDensity(low);
        const double highDensity = normalDensity(high);
        const double part = normalDistribution(high) - normalDistribution(low);
        derivatives[area(peak)] = part;
        derivatives[channel(peak)] = height * (lowDensity - highDensity) / sigma;
        derivatives[widthFactor] +=
            height * (low * lowDensity - high * highDensity) / values[widthFactor];
        content += height * part;
    }

    const double argument = stepArgument(values, index);
    const double edge = values[step] * normalDensity(argument);
    derivatives[channel(strongest_)] += edge * fwhmPerSigma / width(values, strongest_);
    derivatives[widthFactor] -= edge * argument / values[widthFactor];
    return content;
}

}  // namespace embedded::engines
