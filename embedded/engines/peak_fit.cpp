#include "embedded/engines/peak_fit.h"

#include <Eigen/Cholesky>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

namespace embedded::engines {

namespace {

// Below this the likelihood of a channel continues as a parabola, so that a model may be 0 or less.
constexpr double minVarianceOfChannel = 1e-3;

constexpr int maxIterationsOfFit = 40;
constexpr double firstDamping = 1e-3;
constexpr double minDamping = 1e-9;
constexpr double hopelessDamping = 1e6;
constexpr double convergedChange = 1e-3;  // of -2 ln(likelihood)
constexpr double convergedPart = 1e-5;    // the same as a part, for models far from the contents
constexpr double minPivot = 1e-12;        // less is rounding error

// -2 ln(likelihood) of a content, less that of a model that equals it. The derivative by the model
// is 2 (model - content) / variance.
double unlikelihoodOf(double content, double model) {
    const double counted = std::max(model, minVarianceOfChannel);
    const double logarithm = content > 0.0 ? content * std::log(content / counted) : 0.0;
    const double below = std::min(0.0, model - minVarianceOfChannel);
    return 2.0 * (counted - content + logarithm) +
           below * (model + minVarianceOfChannel - 2.0 * content) / minVarianceOfChannel;
}

double unlikelihoodOf(const Expectation& expectation, double value) {
    const double deviation = value - expectation.value;
    return deviation * deviation / expectation.variance;
}

}  // namespace

LikelihoodFit::LikelihoodFit(const Spectrum& spectrum, const PeakModel& model)
    : spectrum_(spectrum), model_(model) {
    for (Eigen::Index unknown = 0; unknown < model.unknowns(); ++unknown) {
        if (model.isFitted(unknown)) {
            free_.push_back(unknown);
        }
    }
    const PeakShape& expected = model.expectedShape();
    observe(expected.widthFactor, PeakModel::widthFactor);
    observe(expected.left.fraction, PeakModel::leftFraction);
    observe(expected.left.length, PeakModel::leftLength);
    observe(expected.right.fraction, PeakModel::rightFraction);
    observe(expected.right.length, PeakModel::rightLength);
    observe(expected.drift, PeakModel::drift);
}

void LikelihoodFit::observe(const Expectation& expectation, Eigen::Index unknown) {
    if (model_.isFitted(unknown) && expectation.variance > 0.0) {
        observations_.push_back({unknown, expectation});
    }
}

void LikelihoodFit::fix(Eigen::Index unknown) {
    std::erase(free_, unknown);
    std::erase_if(observations_,
                  [unknown](const Observation& one) { return one.unknown == unknown; });
}

double LikelihoodFit::variance(Eigen::Index row) const {
    return std::max(contents_[row] + excess(row), minVarianceOfChannel);
}

// A content with excess variance is treated as a count to which a known background was added, so
// the excess is added on both sides.
double LikelihoodFit::unlikelihoodOfAll(const Eigen::VectorXd& values,
                                        const Eigen::VectorXd& contents) const {
    double sum = 0.0;
    for (const auto& [unknown, expectation] : observations_) {
        sum += unlikelihoodOf(expectation, values[unknown]);
    }
    for (Eigen::Index row = 0; row < contents.size(); ++row) {
        const double more = excess(row);
        sum += unlikelihoodOf(content(row) + more, contents[row] + more);
    }
    return sum;
}

double LikelihoodFit::chiSquare() const {
    double sum = 0.0;
    for (const auto& [unknown, expectation] : observations_) {
        sum += unlikelihoodOf(expectation, values_[unknown]);
    }
    for (Eigen::Index row = 0; row < contents_.size(); ++row) {
        const double residual = content(row) - contents_[row];
        sum += residual * residual / std::max(variance(row), minVarianceOfChiSquare);
    }
    return sum;
}

double LikelihoodFit::degreesOfFreedom() const {
    return static_cast<double>(model_.region().count + observations_.size()) -
           static_cast<double>(free_.size());
}

// True if an unknown is at the end of its range and would leave it, or has no effect, like the
// width of peaks that are left out.
bool LikelihoodFit::isHeld(Eigen::Index position) const {
    const Eigen::Index unknown = free_[static_cast<std::size_t>(position)];
    return matrix_(position, position) == 0.0 ||
           (values_[unknown] <= model_.minValues()[unknown] && right_[position] < 0.0) ||
           (values_[unknown] >= model_.maxValues()[unknown] && right_[position] > 0.0);
}

// Keeps an unknown as it is.
void LikelihoodFit::hold(Eigen::Index position) {
    matrix_.row(position).setZero();
    matrix_.col(position).setZero();
    matrix_(position, position) = 1.0;
    right_[position] = 0.0;
}

void LikelihoodFit::holdAtBounds(Eigen::Index end) {
    for (Eigen::Index position = 0; position < right_.size(); ++position) {
        if (free_[static_cast<std::size_t>(position)] < end && isHeld(position)) {
            hold(position);
        }
    }
}

void LikelihoodFit::makeEquations() {
    Eigen::VectorXd roots(contents_.size());
    Eigen::VectorXd residuals(contents_.size());
    for (Eigen::Index row = 0; row < contents_.size(); ++row) {
        roots[row] = 1.0 / std::sqrt(variance(row));
        residuals[row] = (content(row) - contents_[row]) * roots[row];
    }
    const auto count = static_cast<Eigen::Index>(free_.size());
    Eigen::MatrixXd weighted(contents_.size(), count);
    for (Eigen::Index position = 0; position < count; ++position) {
        const Eigen::Index unknown = free_[static_cast<std::size_t>(position)];
        weighted.col(position) = derivatives_.col(unknown).cwiseProduct(roots);
    }
    right_.noalias() = weighted.transpose() * residuals;
    matrix_.noalias() = weighted.transpose() * weighted;
    for (const auto& [unknown, expectation] : observations_) {
        if (const auto entry = std::ranges::find(free_, unknown); entry != free_.end()) {
            const Eigen::Index position = entry - free_.begin();
            matrix_(position, position) += 1.0 / expectation.variance;
            right_[position] += (expectation.value - values_[unknown]) / expectation.variance;
        }
    }
}

Eigen::VectorXd LikelihoodFit::stepped(const Eigen::VectorXd& step) const {
    Eigen::VectorXd values = values_;
    for (std::size_t position = 0; position < free_.size(); ++position) {
        values[free_[position]] += step[static_cast<Eigen::Index>(position)];
    }
    return restrained(values);
}

// Levenberg's method with Marquardt's damping (J. Soc. Ind. Appl. Math. 11 (1963) 431). Ends if no
// step improves the likelihood. A fit that did not converge does not describe its region, and
// chi-square shows this.
void LikelihoodFit::converge(const Eigen::VectorXd& values) {
    values_ = restrained(values);
    model_.evaluate(values_, contents_, &derivatives_);
    unlikelihood_ = unlikelihoodOfAll(values_, contents_);
    makeEquations();
    double damping = firstDamping;
    Eigen::VectorXd trial;
    Eigen::VectorXd contents;
    Eigen::MatrixXd derivatives;
    for (int iteration = 0; iteration < maxIterationsOfFit && damping < hopelessDamping;
         ++iteration) {
        holdAtBounds(model_.unknowns());
        Eigen::MatrixXd damped = matrix_;
        damped.diagonal() *= 1.0 + damping;
        const Eigen::LLT<Eigen::MatrixXd> factors(damped);
        if (factors.info() != Eigen::Success) {
            damping *= 10.0;
            continue;
        }
        trial = stepped(factors.solve(right_));
        model_.evaluate(trial, contents, &derivatives);
        const double tried = unlikelihoodOfAll(trial, contents);
        const double change = unlikelihood_ - tried;
        if (!(change >= 0.0)) {
            damping *= 10.0;
            continue;
        }
        values_.swap(trial);
        contents_.swap(contents);
        derivatives_.swap(derivatives);
        unlikelihood_ = tried;
        makeEquations();
        damping = std::max(minDamping, damping / 10.0);
        if (change < std::max(convergedChange, convergedPart * tried) && damping < 1.0) {
            return;
        }
    }
}

// The diagonal of the inverse matrix, computed from the correlations so that pivots are comparable.
Eigen::VectorXd LikelihoodFit::variances() {
    makeEquations();
    if (matrix_.diagonal().minCoeff() <= 0.0) {
        return {};
    }
    holdAtBounds(PeakModel::firstPeak);
    const Eigen::VectorXd scale = matrix_.diagonal().cwiseSqrt().cwiseInverse();
    if (!scale.allFinite()) {
        return {};
    }
    const Eigen::LLT<Eigen::MatrixXd> factors(scale.asDiagonal() * matrix_ * scale.asDiagonal());
    if (factors.info() != Eigen::Success ||
        factors.matrixLLT().diagonal().minCoeff() < std::sqrt(minPivot)) {
        return {};
    }
    const Eigen::MatrixXd inverse =
        factors.solve(Eigen::MatrixXd::Identity(matrix_.rows(), matrix_.cols()));
    Eigen::VectorXd variances = Eigen::VectorXd::Zero(values_.size());
    for (std::size_t position = 0; position < free_.size(); ++position) {
        const auto row = static_cast<Eigen::Index>(position);
        variances[free_[position]] = inverse(row, row) * scale[row] * scale[row];
    }
    return variances;
}

NormalEquations LikelihoodFit::equationsOf(std::span<const Eigen::Index> unknowns) {
    const auto count = static_cast<Eigen::Index>(free_.size());
    const auto kept = static_cast<Eigen::Index>(unknowns.size());
    free_.insert(free_.end(), unknowns.begin(), unknowns.end());
    makeEquations();
    for (Eigen::Index position = 0; position < count; ++position) {
        if (isHeld(position)) {
            hold(position);
        }
    }
    free_.resize(static_cast<std::size_t>(count));
    const Eigen::LLT<Eigen::MatrixXd> factors(matrix_.topLeftCorner(count, count));
    if (factors.info() != Eigen::Success) {
        return {};
    }
    const Eigen::MatrixXd coupling = matrix_.topRightCorner(count, kept);
    const Eigen::MatrixXd following = factors.solve(coupling);
    return {matrix_.bottomRightCorner(kept, kept) - coupling.transpose() * following,
            right_.tail(kept) - following.transpose() * right_.head(count)};
}

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

namespace {

double chiSquareOfChannels(const Spectrum& spectrum, const RegionFit& fit) {
    double sum = 0.0;
    for (std::size_t number = 0; number < fit.model.size(); ++number) {
        const std::size_t index = fit.region.first + number;
        const double residual = spectrum.contents[index] - fit.model[number];
        const double variance = fit.model[number] + spectrum.excessAt(index);
        sum += residual * residual / std::max(variance, minVarianceOfChiSquare);
    }
    return sum;
}

}  // namespace

RegionCurve curveOf(const Spectrum& spectrum, const RegionFit& fit) {
    PeakModel model = modelOf(spectrum, fit.region, fit.expected, fit.shape);
    model.estimate(spectrum.contents);  // decides which peak has the step
    const std::size_t strongest = model.strongest();
    const auto value = [&fit](PeakModel::Unknown unknown) { return fit.values[unknown]; };
    return {.level = value(PeakModel::level),
            .slope = value(PeakModel::slope),
            .curvature = value(PeakModel::curvature),
            .step = {.height = value(PeakModel::step),
                     .channel = fit.values[PeakModel::channel(strongest)],
                     .width = model.width(fit.values, strongest)},
            .edge = {.height = value(PeakModel::edgeHeight),
                     .channel = value(PeakModel::edgeChannel),
                     .width = value(PeakModel::edgeWidth)},
            .left = {value(PeakModel::leftFraction), value(PeakModel::leftLength)},
            .right = {value(PeakModel::rightFraction), value(PeakModel::rightLength)},
            .drift = value(PeakModel::drift),
            .degreesOfFreedom = fit.degreesOfFreedom,
            .chiSquareOfShape = fit.chiSquare - chiSquareOfChannels(spectrum, fit),
            .unreported = {}};
}

}  // namespace embedded::engines
