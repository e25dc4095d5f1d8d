#include "embedded/engines/shape_calibration.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numeric>
#include <span>

namespace embedded::engines {

namespace {

constexpr double outlierDeviation = 4.0;     // in standard deviations
constexpr std::size_t minForLine = 4;        // values
constexpr double requiredGainOfSlope = 9.0;  // of chi-square, by a slope
constexpr std::size_t minAgreeing = 2;       // values that are left without an outlier

// A weighted straight line, or constant, through measured values.
struct Line {
    double centre = 0.0;
    double value = 0.0;
    double slope = 0.0;
    double valueVariance = 0.0;
    double slopeVariance = 0.0;
    double chiSquare = 0.0;

    double at(double channel) const { return value + slope * (channel - centre); }
    double varianceAt(double channel) const {
        return valueVariance + slopeVariance * std::pow(channel - centre, 2);
    }
};

Line lineThrough(std::span<const MeasuredValue> values, double scatter, bool sloped) {
    Line line;
    double weights = 0.0;
    for (const auto& [channel, measured] : values) {
        const double weight = 1.0 / (measured.variance + scatter);
        weights += weight;
        line.centre += weight * channel;
        line.value += weight * measured.value;
    }
    line.centre /= weights;
    line.value /= weights;
    line.valueVariance = 1.0 / weights;
    double spread = 0.0;
    double product = 0.0;
    for (const auto& [channel, measured] : values) {
        const double weight = 1.0 / (measured.variance + scatter);
        spread += weight * std::pow(channel - line.centre, 2);
        product += weight * (channel - line.centre) * measured.value;
    }
    if (sloped && spread > 0.0) {
        line.slope = product / spread;
        line.slopeVariance = 1.0 / spread;
    }
    for (const auto& [channel, measured] : values) {
        line.chiSquare +=
            std::pow(measured.value - line.at(channel), 2) / (measured.variance + scatter);
    }
    return line;
}

// Returns the variance of values beyond that of their measurement, so that chi-square is as
// expected (R. DerSimonian and N. Laird, Control. Clin. Trials 7 (1986) 177).
double scatterOf(std::span<const MeasuredValue> values, bool sloped) {
    const double degrees = static_cast<double>(values.size()) - (sloped ? 2.0 : 1.0);
    const Line line = lineThrough(values, 0.0, sloped);
    double weights = 0.0;
    double squares = 0.0;
    for (const MeasuredValue& one : values) {
        weights += 1.0 / one.value.variance;
        squares += 1.0 / std::pow(one.value.variance, 2);
    }
    const double remaining = weights - squares / weights;
    return remaining > 0.0 ? std::max(0.0, (line.chiSquare - degrees) / remaining) : 0.0;
}

struct ScatteredLine {
    Line line;
    double scatter;
};

ScatteredLine bestLine(std::span<const MeasuredValue> values) {
    const double scatter = scatterOf(values, false);
    const Line constant = lineThrough(values, scatter, false);
    if (values.size() >= minForLine) {
        const double scatterOfSloped = scatterOf(values, true);
        const Line sloped = lineThrough(values, scatterOfSloped, true);
        if (std::pow(sloped.slope, 2) > requiredGainOfSlope * sloped.slopeVariance) {
            return {sloped, scatterOfSloped};
        }
    }
    return {constant, scatter};
}

// Removes the value that disagrees most with the line through the others, if it disagrees clearly.
bool removeOutlier(std::vector<MeasuredValue>& values) {
    std::size_t worst = values.size();
    double maxDeviation = std::pow(outlierDeviation, 2);
    for (std::size_t number = 0; number < values.size(); ++number) {
        std::vector<MeasuredValue> others = values;
        others.erase(others.begin() + static_cast<std::ptrdiff_t>(number));
        const auto [line, scatter] = bestLine(others);
        const auto& [channel, measured] = values[number];
        const double deviation = std::pow(measured.value - line.at(channel), 2) /
                                 (measured.variance + scatter + line.varianceAt(channel));
        if (deviation > maxDeviation) {
            maxDeviation = deviation;
            worst = number;
        }
    }
    if (worst == values.size()) {
        return false;
    }
    values.erase(values.begin() + static_cast<std::ptrdiff_t>(worst));
    return true;
}

}  // namespace

std::optional<SmoothFunction> SmoothFunction::through(std::vector<MeasuredValue> values) {
    if (values.empty()) {
        return std::nullopt;
    }
    while (values.size() > minAgreeing && removeOutlier(values)) {
    }
    const auto [line, scatter] = bestLine(values);
    SmoothFunction function;
    function.centre_ = line.centre;
    function.value_ = line.value;
    function.slope_ = line.slope;
    function.valueVariance_ = line.valueVariance;
    function.slopeVariance_ = line.slopeVariance;
    function.scatter_ = scatter;
    const auto [min, max] = std::ranges::minmax(values, {}, &MeasuredValue::channel);
    function.minChannel_ = min.channel;
    function.maxChannel_ = max.channel;
    return function;
}

Expectation SmoothFunction::meanAt(double channel) const {
    const double distance = channel - centre_;
    return {value_ + slope_ * distance, valueVariance_ + slopeVariance_ * std::pow(distance, 2)};
}

Expectation SmoothFunction::at(double channel) const {
    const Expectation mean = meanAt(channel);
    return {mean.value, mean.variance + scatter_};
}

double SmoothFunction::octavesOutside(double channel) const {
    const double inside = std::clamp(channel, minChannel_, maxChannel_);
    return std::abs(std::log2(std::max(1.0, channel) / std::max(1.0, inside)));
}

SmoothFunction SmoothFunction::exact() const {
    SmoothFunction function = *this;
    function.valueVariance_ = function.slopeVariance_ = function.scatter_ = 0.0;
    return function;
}

namespace {

// Peaks of one energy differ at least by this much.
constexpr double widthScatter = 0.01;
constexpr double fractionScatter = 0.002;
constexpr double relativeFractionScatter = 0.1;
// Outside the range of the strong peaks the shape may be different, and far outside it is unknown.
constexpr double widthPerOctave = 0.03;
constexpr double relativeFractionPerOctave = 0.3;
// The tail on the right comes from the electronics, so all peaks have it.
constexpr double octavesOfLeftTail = 3.0;
constexpr double octavesOfRightTail = std::numeric_limits<double>::infinity();
constexpr double lengthScatter = 0.3;
constexpr double driftScatter = 0.05;
constexpr double largestFraction = 0.5;

// Combines two independent estimates of a value.
Expectation combined(const Expectation& one, const Expectation& other) {
    const double sum = one.variance + other.variance;
    return {(one.value * other.variance + other.value * one.variance) / sum,
            one.variance * other.variance / sum};
}

Expectation fractionAt(const SmoothFunction& function, double channel, double maxOctaves) {
    const double outside = function.octavesOutside(channel);
    if (outside > maxOctaves) {
        return ExpectedTail{}.fraction;
    }
    Expectation fraction = function.at(channel);
    fraction.value = std::clamp(fraction.value, 0.0, largestFraction);
    const double relative =
        std::hypot(relativeFractionScatter, relativeFractionPerOctave * outside);
    fraction.variance += std::pow(fractionScatter, 2) + std::pow(relative * fraction.value, 2);
    return fraction;
}

ExpectedTail tailAt(const TailCalibration& calibration, double channel, double maxOctaves) {
    ExpectedTail tail;
    if (calibration.fraction) {
        tail.fraction = fractionAt(*calibration.fraction, channel, maxOctaves);
    }
    if (calibration.length) {
        tail.length = combined(calibration.length->at(channel), tail.length);
        tail.length.variance += std::pow(lengthScatter, 2);
    }
    return tail;
}

}  // namespace

PeakShape ShapeCalibration::at(double channel) const {
    PeakShape shape;
    if (widthFactor) {
        Expectation factor = widthFactor->at(channel);
        factor.variance += std::pow(widthPerOctave * widthFactor->octavesOutside(channel), 2);
        shape.widthFactor = combined(factor, shape.widthFactor);
        shape.widthFactor.variance += std::pow(widthScatter, 2);
    }
    if (drift) {
        shape.drift = drift->at(channel);
        shape.drift.value = std::max(0.0, shape.drift.value);
        shape.drift.variance += std::pow(driftScatter, 2);
    }
    shape.left = tailAt(left, channel, octavesOfLeftTail);
    shape.right = tailAt(right, channel, octavesOfRightTail);
    return shape;
}

}  // namespace embedded::engines
