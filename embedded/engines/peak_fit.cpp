#include "embedded/engines/peak_fit.h"

#include <Eigen/Cholesky>
#include <algorithm>
#include <cmath>
#include <utility>

namespace embedded::engines {

namespace {

// Below this the likelihood of a channel goes on as a parabola, so that a model may be 0 or less.
constexpr double smallestVariance = 1e-3;

struct Observation {
    PeakModel::Unknown unknown;
    double value;
    double variance;
};
constexpr Observation calibratedWidth = {PeakModel::widthFactor, 1.0, 0.05 * 0.05};
constexpr Observation usualTail = {PeakModel::tailLength, usualTailLength, 1.0};
constexpr int mostIterations = 40;
constexpr double firstDamping = 1e-3;
constexpr double smallestDamping = 1e-9;
constexpr double hopelessDamping = 1e6;
constexpr double convergedChange = 1e-3;  // of -2 ln(likelihood)
constexpr double smallestPivot = 1e-12;   // less is rounding error

// -2 ln of the likelihood of a content, less that of the model which is the content: its derivative
// by the model's content is 2 (model - content) / variance.
double unlikelihoodOf(double content, double model) {
    const double counted = std::max(model, smallestVariance);
    const double logarithm = content > 0.0 ? content * std::log(content / counted) : 0.0;
    const double below = std::min(0.0, model - smallestVariance);
    return 2.0 * (counted - content + logarithm) +
           below * (model + smallestVariance - 2.0 * content) / smallestVariance;
}

double unlikelihoodOf(const Observation& observation, const Eigen::VectorXd& values) {
    const double deviation = values[observation.unknown] - observation.value;
    return deviation * deviation / observation.variance;
}

}  // namespace

LikelihoodFit::LikelihoodFit(const Spectrum& spectrum, const PeakModel& model, const Shape& shape)
    : spectrum_(spectrum),
      model_(model),
      fixed_(static_cast<std::size_t>(model.unknowns()), false) {
    fixed_[PeakModel::curvature] = !shape.curved;
    fixed_[PeakModel::edgeHeight] = !shape.edge;
    fixed_[PeakModel::edgeChannel] = !shape.edge;
    fixed_[PeakModel::edgeWidth] = !shape.edge;
    fixed_[PeakModel::ownWidth] = !shape.widePeak;
    fixed_[PeakModel::tailFraction] = !shape.tailed;
    fixed_[PeakModel::tailLength] = !shape.tailed;
}

double LikelihoodFit::variance(Eigen::Index row) const {
    return std::max(contents_[row] + excess(row), smallestVariance);
}

// The excess counts on both sides: a content with more than the variance of counting is as a count
// with a known background on top.
double LikelihoodFit::unlikelihoodOfAll(const Eigen::VectorXd& values,
                                        const Eigen::VectorXd& contents) const {
    double sum = unlikelihoodOf(calibratedWidth, values) + unlikelihoodOf(usualTail, values);
    for (Eigen::Index row = 0; row < contents.size(); ++row) {
        const double more = excess(row);
        sum += unlikelihoodOf(content(row) + more, contents[row] + more);
    }
    return sum;
}

double LikelihoodFit::chiSquare() const {
    double sum = unlikelihoodOf(calibratedWidth, values_);
    for (Eigen::Index row = 0; row < contents_.size(); ++row) {
        const double residual = content(row) - contents_[row];
        sum += residual * residual / std::max(variance(row), smallestVarianceOfChiSquare);
    }
    return sum;
}

// Takes an unknown out of the equations.
void LikelihoodFit::hold(Eigen::Index unknown) {
    matrix_.row(unknown).setZero();
    matrix_.col(unknown).setZero();
    matrix_(unknown, unknown) = 1.0;
    right_[unknown] = 0.0;
}

// Whether an unknown is at the end of its range and would go on beyond it, or says nothing, as the
// width and the tail of peaks that are left out.
bool LikelihoodFit::isHeld(Eigen::Index unknown) const {
    return matrix_(unknown, unknown) == 0.0 ||
           (values_[unknown] <= model_.lowest()[unknown] && right_[unknown] < 0.0) ||
           (values_[unknown] >= model_.highest()[unknown] && right_[unknown] > 0.0);
}

void LikelihoodFit::makeEquations() {
    Eigen::VectorXd weights(contents_.size());
    Eigen::VectorXd residuals(contents_.size());
    for (Eigen::Index row = 0; row < contents_.size(); ++row) {
        weights[row] = 1.0 / variance(row);
        residuals[row] = (content(row) - contents_[row]) * weights[row];
    }
    right_.noalias() = derivatives_.transpose() * residuals;
    matrix_.noalias() = derivatives_.transpose() * weights.asDiagonal() * derivatives_;
    for (const Observation& observation : {calibratedWidth, usualTail}) {
        const double weight = 1.0 / observation.variance;
        matrix_(observation.unknown, observation.unknown) += weight;
        right_[observation.unknown] += (observation.value - values_[observation.unknown]) * weight;
    }
    for (Eigen::Index unknown = 0; unknown < right_.size(); ++unknown) {
        if (fixed_[static_cast<std::size_t>(unknown)]) {
            hold(unknown);
        }
    }
}

// Levenberg's method with Marquardt's damping (J. Soc. Ind. Appl. Math. 11 (1963) 431). Ends where
// no step improves the likelihood. A fit that has not come to rest after the last iteration is far
// from describing its region, as chi-square tells.
void LikelihoodFit::converge(const Eigen::VectorXd& values) {
    values_ = restrained(values);
    model_.evaluate(values_, contents_, &derivatives_);
    unlikelihood_ = unlikelihoodOfAll(values_, contents_);
    makeEquations();
    double damping = firstDamping;
    Eigen::VectorXd trial;
    Eigen::VectorXd contents;
    Eigen::MatrixXd derivatives;
    for (int iteration = 0; iteration < mostIterations && damping < hopelessDamping; ++iteration) {
        for (Eigen::Index unknown = 0; unknown < right_.size(); ++unknown) {
            if (isHeld(unknown)) {
                hold(unknown);
            }
        }
        Eigen::MatrixXd damped = matrix_;
        damped.diagonal() *= 1.0 + damping;
        const Eigen::LLT<Eigen::MatrixXd> factors(damped);
        if (factors.info() != Eigen::Success) {
            damping *= 10.0;
            continue;
        }
        trial = restrained(values_ + factors.solve(right_));
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
        damping = std::max(smallestDamping, damping / 10.0);
        if (change < convergedChange && damping < 1.0) {
            return;
        }
    }
}

// The diagonal of the inverse matrix, taken of the correlations so that pivots can be compared.
Eigen::VectorXd LikelihoodFit::variances() {
    makeEquations();
    const Eigen::VectorXd scale = matrix_.diagonal().cwiseSqrt().cwiseInverse();
    if (!scale.allFinite()) {
        return {};
    }
    const Eigen::LLT<Eigen::MatrixXd> factors(scale.asDiagonal() * matrix_ * scale.asDiagonal());
    if (factors.info() != Eigen::Success ||
        factors.matrixLLT().diagonal().minCoeff() < std::sqrt(smallestPivot)) {
        return {};
    }
    const Eigen::MatrixXd inverse =
        factors.solve(Eigen::MatrixXd::Identity(matrix_.rows(), matrix_.cols()));
    return inverse.diagonal().cwiseProduct(scale.cwiseAbs2());
}

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
    PeakModel model(region, expected, shape);
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
