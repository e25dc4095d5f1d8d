#include "embedded/engines/peak_fit.h"

#include <Eigen/Cholesky>
#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <utility>

#include "embedded/engines/calibration.h"

namespace embedded::engines {

namespace {

// Below this the likelihood of a channel goes on as a parabola, so that a model may be 0 or less.
constexpr double smallestVariance = 1e-3;

// Chi-square scatters wildly where a channel's variance is far below 1.
constexpr double smallestVarianceOfChiSquare = 0.5;

struct Observation {
    PeakModel::Unknown unknown;
    double value;
    double variance;
};
constexpr Observation calibratedWidth = {PeakModel::widthFactor, 1.0, 0.05 * 0.05};
constexpr Observation usualTail = {PeakModel::tailLength, 1.5, 1.0};
constexpr double firstTailFraction = 0.1;

constexpr double acceptedDeviations = 3.0;

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

// One fit under way: the values of the unknowns, the model and the equations at them.
class Fit {
  public:
    Fit(const Spectrum& spectrum, const PeakModel& model, const Shape& shape)
        : spectrum_(spectrum), model_(model), fixed_(model.unknowns(), false) {
        fixed_[PeakModel::curvature] = !shape.curved;
        fixed_[PeakModel::edgeHeight] = !shape.edge;
        fixed_[PeakModel::edgeChannel] = !shape.edge;
        fixed_[PeakModel::edgeWidth] = !shape.edge;
        fixed_[PeakModel::ownWidth] = !shape.widePeak;
        fixed_[PeakModel::tailFraction] = !shape.tailed;
        fixed_[PeakModel::tailLength] = !shape.tailed;
    }

    void fix(Eigen::Index unknown) { fixed_[static_cast<std::size_t>(unknown)] = true; }
    void converge(const Eigen::VectorXd& values);

    const Eigen::VectorXd& values() const { return values_; }
    const Eigen::VectorXd& contents() const { return contents_; }
    double unlikelihood() const { return unlikelihood_; }
    double chiSquare() const;
    double freeUnknowns() const { return static_cast<double>(std::ranges::count(fixed_, false)); }
    // Empty where the equations are singular.
    Eigen::VectorXd variances();

  private:
    double excess(Eigen::Index row) const {
        const std::size_t index = model_.region().first + static_cast<std::size_t>(row);
        return spectrum_.excess.empty() ? 0.0 : spectrum_.excess[index];
    }
    double content(Eigen::Index row) const {
        return spectrum_.contents[model_.region().first + static_cast<std::size_t>(row)];
    }
    double variance(Eigen::Index row) const {
        return std::max(contents_[row] + excess(row), smallestVariance);
    }
    double unlikelihoodOfAll(const Eigen::VectorXd& values, const Eigen::VectorXd& contents) const;
    Eigen::VectorXd restrained(const Eigen::VectorXd& values) const {
        return values.cwiseMax(model_.lowest()).cwiseMin(model_.highest());
    }
    bool isHeld(Eigen::Index unknown) const;
    void makeEquations();
    void hold(Eigen::Index unknown);

    const Spectrum& spectrum_;
    const PeakModel& model_;
    std::vector<bool> fixed_;
    Eigen::VectorXd values_;
    Eigen::VectorXd contents_;
    Eigen::MatrixXd derivatives_;
    Eigen::MatrixXd matrix_;
    Eigen::VectorXd right_;
    double unlikelihood_ = 0.0;
};

// The excess counts on both sides: a content with more than the variance of counting is as a count
// with a known background on top.
double Fit::unlikelihoodOfAll(const Eigen::VectorXd& values,
                              const Eigen::VectorXd& contents) const {
    double sum = unlikelihoodOf(calibratedWidth, values) + unlikelihoodOf(usualTail, values);
    for (Eigen::Index row = 0; row < contents.size(); ++row) {
        const double more = excess(row);
        sum += unlikelihoodOf(content(row) + more, contents[row] + more);
    }
    return sum;
}

double Fit::chiSquare() const {
    double sum = unlikelihoodOf(calibratedWidth, values_);
    for (Eigen::Index row = 0; row < contents_.size(); ++row) {
        const double residual = content(row) - contents_[row];
        sum += residual * residual / std::max(variance(row), smallestVarianceOfChiSquare);
    }
    return sum;
}

// Takes an unknown out of the equations.
void Fit::hold(Eigen::Index unknown) {
    matrix_.row(unknown).setZero();
    matrix_.col(unknown).setZero();
    matrix_(unknown, unknown) = 1.0;
    right_[unknown] = 0.0;
}

// Whether an unknown is at the end of its range and would go on beyond it.
bool Fit::isHeld(Eigen::Index unknown) const {
    return (values_[unknown] <= model_.lowest()[unknown] && right_[unknown] < 0.0) ||
           (values_[unknown] >= model_.highest()[unknown] && right_[unknown] > 0.0);
}

void Fit::makeEquations() {
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
void Fit::converge(const Eigen::VectorXd& values) {
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
Eigen::VectorXd Fit::variances() {
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

// Begins with an edge as high as the step that it takes the place of.
void placeEdge(const ExpectedPeak& edge, Eigen::VectorXd& values) {
    constexpr double noHeight = 1e-3;  // of which the derivatives are not 0
    values[PeakModel::edgeChannel] = edge.channel;
    values[PeakModel::edgeWidth] = edge.width;
    values[PeakModel::edgeHeight] =
        values[PeakModel::step] != 0.0 ? values[PeakModel::step] : noHeight;
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
        values[PeakModel::tailLength] = usualTail.value;
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

bool describesRegion(const RegionFit& fit) {
    const double deviation = std::sqrt(2.0 * fit.degreesOfFreedom);
    return fit.chiSquare <= fit.degreesOfFreedom + acceptedDeviations * deviation;
}

namespace {

// By what uncertainties are too small where the model does not describe the region.
double enlargementOf(const RegionFit& fit) {
    return describesRegion(fit) ? 1.0 : std::sqrt(fit.chiSquare / fit.degreesOfFreedom);
}

PeakModel modelOf(const Region& region, const std::vector<ExpectedPeak>& expected,
                  const Shape& shape) {
    return {region, expected, shape.widePeak};
}

}  // namespace

std::optional<RegionFit> fitRegion(const Spectrum& spectrum, Region region,
                                   std::vector<ExpectedPeak> expected, const Shape& shape,
                                   const RegionFit* start) {
    PeakModel model = modelOf(region, expected, shape);
    Fit fit(spectrum, model, shape);
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

namespace {

// An edge on a straight continuum.
struct FoundEdge {
    ExpectedPeak place;
    Eigen::Vector3d heights;  // level and slope of the continuum, height of the edge
    double chiSquare;
};

// A fit without some of the peaks; the others may move from where they are into their place.
// edge: instead of them.
RegionFit fitWithout(const Spectrum& spectrum, const RegionFit& fit,
                     std::span<const std::size_t> peaks, const std::optional<FoundEdge>& edge) {
    RegionFit result{fit.region, fit.expected, fit.shape, fit.values, {}, 0.0, 0.0, 0.0, {}};
    for (std::size_t number = 0; number < result.expected.size(); ++number) {
        result.expected[number].channel = fit.peaks[number].channel;
    }
    PeakModel model = modelOf(result.region, result.expected, result.shape);
    model.estimate(spectrum.contents);  // decides where the step is
    if (edge) {
        result.shape.edge = edge->place;
    }
    Fit without(spectrum, model, result.shape);
    for (const std::size_t peak : peaks) {
        // From a level continuum the fit comes down more surely than from one far below.
        result.values[PeakModel::level] +=
            result.values[PeakModel::area(peak)] / static_cast<double>(fit.region.count);
        result.values[PeakModel::area(peak)] = 0.0;
        without.fix(PeakModel::area(peak));
        without.fix(PeakModel::channel(peak));
        if (edge && model.strongest() == peak) {
            // Two steps near each other could make a peak.
            without.fix(PeakModel::step);
            result.values[PeakModel::step] = 0.0;
        }
    }
    if (edge) {
        placeEdge(edge->place, result.values);
        result.values[PeakModel::level] = edge->heights[0];
        result.values[PeakModel::slope] = edge->heights[1];
        result.values[PeakModel::edgeHeight] = edge->heights[2];
    }
    without.converge(result.values);
    result.values = without.values();
    result.unlikelihood = without.unlikelihood();
    result.chiSquare = without.chiSquare();
    result.degreesOfFreedom = static_cast<double>(fit.region.count + 1) - without.freeUnknowns();
    return result;
}

// The scan for an edge: places on each side of a peak and their distance, and how rounded, in its
// widths.
constexpr int scanSteps = 8;
constexpr double scanStep = 0.25;
constexpr std::array scanWidths = {0.25, 1.0, 3.0};

// What peaks must gain above the best edge; what they gain so clearly in the scan, the other peaks
// left as they are, that no fit is needed, unless an edge is most of what there is.
constexpr double requiredGain = 9.0;
constexpr double screeningGain = 40.0;
constexpr double mostOfAll = 0.15;

class EdgeScan {
  public:
    EdgeScan(const Spectrum& spectrum, const RegionFit& fit, std::span<const std::size_t> peaks);

    // The place in reach of the peak that leaves the least chi-square; nothing where that is much.
    std::optional<FoundEdge> best(const FittedPeak& peak) const;

  private:
    FoundEdge at(const ExpectedPeak& place) const;

    const RegionFit& fit_;
    Eigen::VectorXd remainder_;  // what the other peaks leave of the contents
    Eigen::VectorXd weights_;
};

EdgeScan::EdgeScan(const Spectrum& spectrum, const RegionFit& fit,
                   std::span<const std::size_t> peaks)
    : fit_(fit) {
    PeakModel model = modelOf(fit.region, fit.expected, fit.shape);
    model.estimate(spectrum.contents);
    Eigen::VectorXd others = fit.values;
    others[PeakModel::level] = others[PeakModel::slope] = 0.0;
    for (const std::size_t peak : peaks) {
        others[PeakModel::area(peak)] = 0.0;
        if (model.strongest() == peak) {
            others[PeakModel::step] = 0.0;
        }
    }
    model.evaluate(others, remainder_, nullptr);
    weights_.resize(remainder_.size());
    for (Eigen::Index row = 0; row < remainder_.size(); ++row) {
        const std::size_t index = fit.region.first + static_cast<std::size_t>(row);
        const double excess = spectrum.excess.empty() ? 0.0 : spectrum.excess[index];
        remainder_[row] = spectrum.contents[index] - remainder_[row];
        weights_[row] = 1.0 / std::max(smallestVarianceOfChiSquare,
                                       fit.model[static_cast<std::size_t>(row)] + excess);
    }
}

// The best level, slope and height for an edge at the place; one far below is none.
FoundEdge EdgeScan::at(const ExpectedPeak& place) const {
    Eigen::Matrix3d matrix = Eigen::Matrix3d::Zero();
    Eigen::Vector3d right = Eigen::Vector3d::Zero();
    double squares = 0.0;
    const double half = 0.5 * static_cast<double>(remainder_.size() - 1);
    const double perSigma = fwhmPerSigma / (std::numbers::sqrt2 * place.width);
    for (Eigen::Index row = 0; row < remainder_.size(); ++row) {
        const double channel =
            static_cast<double>(fit_.region.first) + static_cast<double>(row) + 1.0;
        const Eigen::Vector3d terms(1.0, (static_cast<double>(row) - half) / half,
                                    0.5 * std::erfc((channel - place.channel) * perSigma));
        matrix += weights_[row] * terms * terms.transpose();
        right += weights_[row] * remainder_[row] * terms;
        squares += weights_[row] * remainder_[row] * remainder_[row];
    }
    if (matrix(2, 2) == 0.0) {
        matrix(2, 2) = 1.0;
    }
    const Eigen::LDLT<Eigen::Matrix3d> factors(matrix);
    const Eigen::Vector3d heights = factors.solve(right);
    return {place, heights, squares - right.dot(heights)};
}

std::optional<FoundEdge> EdgeScan::best(const FittedPeak& peak) const {
    const ExpectedPeak nowhere{peak.channel - 1e6 * peak.width, peak.width};
    double least = std::max(fit_.chiSquare + screeningGain, mostOfAll * at(nowhere).chiSquare);
    std::optional<FoundEdge> found;
    for (const double width : scanWidths) {
        for (int step = -scanSteps; step <= scanSteps; ++step) {
            const FoundEdge tried =
                at({peak.channel + step * scanStep * peak.width, width * peak.width});
            if (tried.chiSquare < least) {
                least = tried.chiSquare;
                found = tried;
            }
        }
    }
    return found;
}

}  // namespace

double likelihoodSignificance(const Spectrum& spectrum, const RegionFit& fit, std::size_t peak) {
    if (fit.peaks[peak].area <= 0.0) {
        return 0.0;
    }
    const RegionFit without = fitWithout(spectrum, fit, std::span(&peak, 1), std::nullopt);
    const double gain = without.unlikelihood - fit.unlikelihood;
    return std::sqrt(std::max(0.0, gain)) / enlargementOf(fit);
}

std::optional<ExpectedPeak> edgeInstead(const Spectrum& spectrum, const RegionFit& fit,
                                        std::span<const std::size_t> peaks) {
    const auto edge = EdgeScan(spectrum, fit, peaks).best(fit.peaks[peaks.front()]);
    if (!edge) {
        return std::nullopt;
    }
    const RegionFit edged = fitWithout(spectrum, fit, peaks, edge);
    if (edged.unlikelihood > fit.unlikelihood + requiredGain ||
        (describesRegion(fit) && !describesRegion(edged))) {
        return std::nullopt;
    }
    return ExpectedPeak{edged.values[PeakModel::edgeChannel], edged.values[PeakModel::edgeWidth]};
}

}  // namespace embedded::engines
