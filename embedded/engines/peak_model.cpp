#include "embedded/engines/peak_model.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <utility>

#include "embedded/engines/calibration.h"

namespace embedded::engines {

namespace {

constexpr double outOfSight = 8.0;  // in sigma: less than 1e-15 of a Gaussian lies beyond

double normalDensity(double position) {
    constexpr double density = 0.5 * std::numbers::inv_sqrtpi * std::numbers::sqrt2;
    return density * std::exp(-0.5 * position * position);
}

// The amount by which folding with an exponential toward lower positions raises the integral of a
// Gaussian: exp(z/t + 1/2t^2) x Phi(-z - 1/t).
double raisedByFolding(double position, double inverseLength) {
    if (std::abs(position) > outOfSight &&
        (position > 0.0 || position * inverseLength < -3.0 * outOfSight)) {
        return 0.0;
    }
    return std::exp(inverseLength * (position + 0.5 * inverseLength)) *
           normalDistribution(-position - inverseLength);
}

// Adds a tail to a Gaussian. The tail on the right is the mirror image of one on the left.
TailDerivatives addTail(const Tail& tail, double position, double density, double sign,
                        PartBelow& part) {
    const double inverse = 1.0 / tail.length;
    const double raised = raisedByFolding(sign * position, inverse);
    part.value += sign * tail.fraction * raised;
    part.byPosition += tail.fraction * (raised * inverse - density);
    const double byLength = inverse * inverse * (density - (sign * position + inverse) * raised);
    return {sign * raised, sign * tail.fraction * byLength};
}

// Abscissas and weights of Gauss-Legendre quadrature over -1 to 1 with five points.
struct Node {
    double abscissa;
    double weight;
};
constexpr std::array nodes = {
    Node{-0.9061798459386640, 0.2369268850561891}, Node{-0.5384693101056831, 0.4786286704993665},
    Node{0.0, 0.5688888888888889}, Node{0.5384693101056831, 0.4786286704993665},
    Node{0.9061798459386640, 0.2369268850561891}};

void add(double weight, const TailDerivatives& part, TailDerivatives& sum) {
    sum.byFraction += weight * part.byFraction;
    sum.byLength += weight * part.byLength;
}

}  // namespace

double normalDistribution(double position) {
    if (std::abs(position) > outOfSight) {
        return position > 0.0 ? 1.0 : 0.0;  // far from the centroid erfc is slow
    }
    return 0.5 * std::erfc(-position / std::numbers::sqrt2);
}

PartBelow partBelow(double position, const Tail* left, const Tail* right) {
    const double density = std::abs(position) <= outOfSight ? normalDensity(position) : 0.0;
    PartBelow part{};
    part.value = normalDistribution(position);
    part.byPosition = density;
    if (left != nullptr) {
        part.left = addTail(*left, position, density, 1.0, part);
    }
    if (right != nullptr) {
        part.right = addTail(*right, position, density, -1.0, part);
    }
    return part;
}

PartBelow partBelowWithDrift(double position, double drift, const Tail* left, const Tail* right) {
    PartBelow sum{};
    for (const auto& [abscissa, weight] : nodes) {
        const double shift = 0.5 * abscissa;
        const PartBelow part = partBelow(position + shift * drift, left, right);
        const double share = 0.5 * weight;
        sum.value += share * part.value;
        sum.byPosition += share * part.byPosition;
        sum.byDrift += share * part.byPosition * shift;
        add(share, part.left, sum.left);
        add(share, part.right, sum.right);
    }
    return sum;
}

namespace {

constexpr double centroidRange = 0.5;  // in widths

struct Range {
    double min;
    double max;
};

// The calibration is off by less than this; only one peak may be as broad as the annihilation peak.
constexpr Range widthFactorRange = {0.7, 1.4};
constexpr Range ownWidthRange = {0.7, 2.5};
constexpr Range tailFractionRange = {0.0, 0.5};
constexpr Range tailLengthRange = {0.5, 4.0};
constexpr Range driftRange = {0.01, 3.5};  // at 0 its derivative is 0
constexpr double minEdgeWidth = 0.25;      // channels

double channelOf(std::size_t index) {
    return static_cast<double>(index + 1);
}

// Distance below the edge, in standard deviations of a peak with the same rounding.
double edgeArgument(const Eigen::VectorXd& values, std::size_t index) {
    return (values[PeakModel::edgeChannel] - channelOf(index)) * fwhmPerSigma /
           values[PeakModel::edgeWidth];
}

}  // namespace

PeakModel::PeakModel(Region region, std::vector<ExpectedPeak> expected, const Shape& shape,
                     const PeakShape& expectedShape)
    : region_(region),
      expected_(std::move(expected)),
      shape_(shape),
      expectedShape_(expectedShape) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    minValues_.setConstant(unknowns(), -infinity);
    maxValues_.setConstant(unknowns(), infinity);
    const auto setRange = [this](Eigen::Index unknown, Range range) {
        minValues_[unknown] = range.min;
        maxValues_[unknown] = range.max;
    };
    setRange(widthFactor, widthFactorRange);
    setRange(ownWidth, ownWidthRange);
    setRange(leftFraction, tailFractionRange);
    setRange(leftLength, tailLengthRange);
    setRange(rightFraction, tailFractionRange);
    setRange(rightLength, tailLengthRange);
    if (shape_.drifted) {
        setRange(drift, driftRange);
    }
    setRange(edgeChannel, {channelOf(region_.first), channelOf(region_.first + region_.count)});
    setRange(edgeWidth, {minEdgeWidth, static_cast<double>(region_.count)});
    for (std::size_t peak = 0; peak < expected_.size(); ++peak) {
        const auto [centre, fwhm] = expected_[peak];
        setRange(channel(peak), {centre - centroidRange * fwhm, centre + centroidRange * fwhm});
    }
}

bool PeakModel::isFitted(Eigen::Index unknown) const {
    switch (unknown) {
        case curvature:
            return shape_.curved;
        case edgeHeight:
        case edgeChannel:
        case edgeWidth:
            return shape_.edge.has_value();
        case ownWidth:
            return shape_.widePeak.has_value();
        case leftFraction:
        case leftLength:
            return shape_.leftTail;
        case rightFraction:
        case rightLength:
            return shape_.rightTail;
        case drift:
            return shape_.drifted;
        default:
            return true;
    }
}

// The continuum is a straight line through the means of a few channels at the two ends. The heights
// of the Gaussians are those of the spectrum above it.
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
    values[widthFactor] = expectedShape_.widthFactor.value;
    values[ownWidth] = 1.0;
    values[leftFraction] = expectedShape_.left.fraction.value;
    values[leftLength] = expectedShape_.left.length.value;
    values[rightFraction] = expectedShape_.right.fraction.value;
    values[rightLength] = expectedShape_.right.length.value;
    values[drift] = expectedShape_.drift.value;
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
    const double position = offset(index);
    return values[level] + position * (values[slope] + position * values[curvature]) +
           values[step] * normalDistribution(stepArgument(values, index)) +
           values[edgeHeight] * normalDistribution(edgeArgument(values, index));
}

void PeakModel::addContinuum(const Eigen::VectorXd& values, Eigen::VectorXd& contents,
                             Eigen::MatrixXd* derivatives) const {
    for (std::size_t number = 0; number < region_.count; ++number) {
        const auto row = static_cast<Eigen::Index>(number);
        const double position = offset(region_.first + number);
        contents[row] = values[level] + position * (values[slope] + position * values[curvature]);
        if (derivatives != nullptr) {
            auto& matrix = *derivatives;
            matrix(row, level) = 1.0;
            matrix(row, slope) = position;
            matrix(row, curvature) = position * position;
        }
    }
}

void PeakModel::addStep(const Eigen::VectorXd& values, Eigen::VectorXd& contents,
                        Eigen::MatrixXd* derivatives) const {
    const double perSigma = fwhmPerSigma / width(values, strongest_);
    for (std::size_t number = 0; number < region_.count; ++number) {
        const auto row = static_cast<Eigen::Index>(number);
        const PartBelow part =
            partBelow(stepArgument(values, region_.first + number), nullptr, nullptr);
        contents[row] += values[step] * part.value;
        if (derivatives != nullptr) {
            auto& matrix = *derivatives;
            const double byPosition = values[step] * part.byPosition;
            const double byWidth = byPosition * stepArgument(values, region_.first + number);
            matrix(row, step) = part.value;
            matrix(row, channel(strongest_)) += byPosition * perSigma;
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
        const PartBelow part = partBelow(argument, nullptr, nullptr);
        contents[row] += values[edgeHeight] * part.value;
        if (derivatives != nullptr) {
            auto& matrix = *derivatives;
            const double byPosition = values[edgeHeight] * part.byPosition;
            matrix(row, edgeHeight) = part.value;
            matrix(row, edgeChannel) = byPosition * fwhmPerSigma / values[edgeWidth];
            matrix(row, edgeWidth) = -byPosition * argument / values[edgeWidth];
        }
    }
}

PartBelow PeakModel::Form::below(double position) const {
    const Tail* const atLeft = left ? &*left : nullptr;
    const Tail* const atRight = right ? &*right : nullptr;
    return drift > 0.0 ? partBelowWithDrift(position, drift, atLeft, atRight)
                       : partBelow(position, atLeft, atRight);
}

// A fitted tail counts even if its fraction is 0, because its derivative is needed to leave 0.
PeakModel::Form PeakModel::formOf(const Eigen::VectorXd& values, std::size_t peak) const {
    const double broad = broadening(values, peak);
    Form form{width(values, peak) / fwhmPerSigma, broad, values[drift] / broad, {}, {}};
    if (shape_.leftTail || values[leftFraction] > 0.0) {
        form.left = Tail{values[leftFraction], values[leftLength] / broad};
    }
    if (shape_.rightTail || values[rightFraction] > 0.0) {
        form.right = Tail{values[rightFraction], values[rightLength] / broad};
    }
    return form;
}

void PeakModel::addPeak(const Eigen::VectorXd& values, std::size_t peak, Eigen::VectorXd& contents,
                        Eigen::MatrixXd* derivatives) const {
    const Form form = formOf(values, peak);
    const auto boundaryBelow = [&](std::size_t number) {
        const double channelNumber = channelOf(region_.first + number) - 0.5;
        const double position = (channelNumber - values[channel(peak)]) / form.sigma;
        return Boundary{position, form.below(position)};
    };
    Boundary low = boundaryBelow(0);
    for (std::size_t number = 0; number < region_.count; ++number) {
        const auto row = static_cast<Eigen::Index>(number);
        const Boundary high = boundaryBelow(number + 1);
        contents[row] += values[area(peak)] * (high.below.value - low.below.value);
        if (derivatives != nullptr) {
            addDerivatives(values, peak, form, low, high, row, *derivatives);
        }
        low = high;
    }
}

// Adds the derivatives of a channel's content. The additional width factor of a peak does not
// change tails and drift in channels, so they are shorter in sigma.
void PeakModel::addDerivatives(const Eigen::VectorXd& values, std::size_t peak, const Form& form,
                               const Boundary& low, const Boundary& high, Eigen::Index row,
                               Eigen::MatrixXd& matrix) const {
    const double height = values[area(peak)];
    const PartBelow& one = low.below;
    const PartBelow& other = high.below;
    const double byWidth =
        height * (low.position * one.byPosition - high.position * other.byPosition);
    matrix(row, area(peak)) = other.value - one.value;
    matrix(row, channel(peak)) += height * (one.byPosition - other.byPosition) / form.sigma;
    matrix(row, widthFactor) += byWidth / values[widthFactor];
    double shortening = 0.0;
    if (form.left) {
        const double byLength = height * (other.left.byLength - one.left.byLength);
        matrix(row, leftFraction) += height * (other.left.byFraction - one.left.byFraction);
        matrix(row, leftLength) += byLength / form.broadening;
        shortening += byLength * form.left->length;
    }
    if (form.right) {
        const double byLength = height * (other.right.byLength - one.right.byLength);
        matrix(row, rightFraction) += height * (other.right.byFraction - one.right.byFraction);
        matrix(row, rightLength) += byLength / form.broadening;
        shortening += byLength * form.right->length;
    }
    if (form.drift > 0.0) {
        const double byDrift = height * (other.byDrift - one.byDrift);
        matrix(row, drift) += byDrift / form.broadening;
        shortening += byDrift * form.drift;
    }
    if (peak == shape_.widePeak) {
        matrix(row, ownWidth) += (byWidth - shortening) / values[ownWidth];
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
