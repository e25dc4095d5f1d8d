#include "embedded/engines/likelihood_fit.h"

#include <Eigen/Cholesky>
#include <cmath>

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

// Whether an unknown is at the end of its range and would go on beyond it.
bool LikelihoodFit::isHeld(Eigen::Index unknown) const {
    return (values_[unknown] <= model_.lowest()[unknown] && right_[unknown] < 0.0) ||
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

}  // namespace embedded::engines
