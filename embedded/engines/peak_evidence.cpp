#include "embedded/engines/peak_evidence.h"

#include <Eigen/Cholesky>
#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>
#include <vector>

#include "embedded/engines/calibration.h"
#include "embedded/engines/peak_fit.h"

namespace embedded::engines {

namespace {

// Distance in widths at which two fitted peaks are one.
constexpr double samePeakDistance = 0.6;

// A peak broader than the resolution has an unknown shape. A peak on its flanks, nearer than this
// in its widths, may be a part of it.
constexpr double flankOfWidePeak = 1.25;

// A peak with a smaller area in units of its uncertainty is one half of a broader structure.
constexpr double minCertainty = 2.0;

// An edge on a straight continuum.
struct EdgeResult {
    ExpectedPeak position;
    Eigen::Vector3d heights;  // level and slope of the continuum, height of the edge
    double chiSquare;
};

// Sets the unknowns to a continuum with this edge.
void putEdge(const EdgeResult& edge, Eigen::VectorXd& values) {
    setEdge(edge.position, values);
    values[PeakModel::level] = edge.heights[0];
    values[PeakModel::slope] = edge.heights[1];
    values[PeakModel::edgeHeight] = edge.heights[2];
}

// Removes a peak from the unknowns. The level rises by its counts, because a fit falls to the
// continuum more reliably than it rises.
void removePeak(std::size_t peak, const Region& region, LikelihoodFit& fit,
                Eigen::VectorXd& values) {
    values[PeakModel::level] += values[PeakModel::area(peak)] / static_cast<double>(region.count);
    values[PeakModel::area(peak)] = 0.0;
    fit.fix(PeakModel::area(peak));
    fit.fix(PeakModel::channel(peak));
}

// Fits again without some of the peaks, which an edge may replace. The other peaks may move to the
// positions of the removed ones.
RegionFit fitWithout(const Spectrum& spectrum, const RegionFit& fit,
                     std::span<const std::size_t> peaks, const std::optional<EdgeResult>& edge) {
    RegionFit result = fit;
    for (std::size_t number = 0; number < result.expected.size(); ++number) {
        result.expected[number].channel = fit.peaks[number].channel;
    }
    if (edge) {
        result.shape.edge = edge->position;
    }
    PeakModel model = modelOf(spectrum, result.region, result.expected, result.shape);
    model.estimate(spectrum.contents);  // determines the position of the step
    LikelihoodFit without(spectrum, model);
    for (const std::size_t peak : peaks) {
        removePeak(peak, fit.region, without, result.values);
        if (result.shape.edge && model.strongest() == peak) {
            // Step and edge together could form a peak.
            without.fix(PeakModel::step);
            result.values[PeakModel::step] = 0.0;
        }
    }
    if (edge) {
        putEdge(*edge, result.values);
    }
    without.converge(result.values);
    result.values = without.values();
    result.unlikelihood = without.unlikelihood();
    result.chiSquare = without.chiSquare();
    result.degreesOfFreedom = without.degreesOfFreedom();
    return result;
}

// Scan for an edge: positions on each side of a peak, their distance and the rounding, in its
// widths.
constexpr int scanSteps = 8;
constexpr double scanStep = 0.25;
constexpr std::array scanWidths = {0.25, 1.0, 3.0};

// Gain that peaks need above the best edge. With the second gain in the scan, in which the other
// peaks do not change, no fit is needed, unless an edge explains most of the structure.
constexpr double requiredGainOverEdge = 9.0;
constexpr double screeningGain = 40.0;
constexpr double maxPartOfAll = 0.15;

class EdgeScan {
  public:
    EdgeScan(const Spectrum& spectrum, const RegionFit& fit, std::span<const std::size_t> peaks);

    // Returns the nearby edge with the smallest chi-square, or nullopt if even that is too large.
    std::optional<EdgeResult> best(const FittedPeak& peak) const;

  private:
    EdgeResult at(const ExpectedPeak& position) const;

    const RegionFit& fit_;
    Eigen::VectorXd remainder_;  // contents without the other peaks
    Eigen::VectorXd weights_;
    Eigen::VectorXd slopes_;  // the term of the slope
    // Normal equations of level and slope, and the sum of squares.
    Eigen::Matrix3d matrix_ = Eigen::Matrix3d::Zero();
    Eigen::Vector3d right_;
    double squares_ = 0.0;
};

EdgeScan::EdgeScan(const Spectrum& spectrum, const RegionFit& fit,
                   std::span<const std::size_t> peaks)
    : fit_(fit) {
    PeakModel model = modelOf(spectrum, fit.region, fit.expected, fit.shape);
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
        remainder_[row] = spectrum.contents[index] - remainder_[row];
        weights_[row] =
            1.0 / std::max(minVarianceOfChiSquare,
                           fit.model[static_cast<std::size_t>(row)] + spectrum.excessAt(index));
    }
    slopes_.setLinSpaced(remainder_.size(), -1.0, 1.0);
    const Eigen::VectorXd weighted = weights_.cwiseProduct(remainder_);
    matrix_(0, 0) = weights_.sum();
    matrix_(1, 0) = weights_.dot(slopes_);
    matrix_(1, 1) = weights_.dot(slopes_.cwiseAbs2());
    right_ << weighted.sum(), weighted.dot(slopes_), 0.0;
    squares_ = weighted.dot(remainder_);
}

// Fits level, slope and height of an edge at the position. An edge far below the region has the
// height 0.
EdgeResult EdgeScan::at(const ExpectedPeak& position) const {
    Eigen::Matrix3d matrix = matrix_;
    Eigen::Vector3d right = right_;
    const double perSigma = fwhmPerSigma / position.width;
    const double first = static_cast<double>(fit_.region.first) + 1.0;
    for (Eigen::Index row = 0; row < remainder_.size(); ++row) {
        const double channel = first + static_cast<double>(row);
        const double edge = normalDistribution((position.channel - channel) * perSigma);
        const double weighted = weights_[row] * edge;
        matrix(2, 0) += weighted;
        matrix(2, 1) += weighted * slopes_[row];
        matrix(2, 2) += weighted * edge;
        right[2] += weighted * remainder_[row];
    }
    if (matrix(2, 2) == 0.0) {
        matrix(2, 2) = 1.0;
    }
    const Eigen::LDLT<Eigen::Matrix3d> factors(matrix);
    const Eigen::Vector3d heights = factors.solve(right);
    return {position, heights, squares_ - right.dot(heights)};
}

std::optional<EdgeResult> EdgeScan::best(const FittedPeak& peak) const {
    const ExpectedPeak nowhere{peak.channel - 1e6 * peak.width, peak.width};
    double minChiSquare =
        std::max(fit_.chiSquare + screeningGain, maxPartOfAll * at(nowhere).chiSquare);
    std::optional<EdgeResult> result;
    for (const double width : scanWidths) {
        for (int step = -scanSteps; step <= scanSteps; ++step) {
            const EdgeResult tried =
                at({peak.channel + step * scanStep * peak.width, width * peak.width});
            if (tried.chiSquare < minChiSquare) {
                minChiSquare = tried.chiSquare;
                result = tried;
            }
        }
    }
    return result;
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
    if (edged.unlikelihood > fit.unlikelihood + requiredGainOverEdge ||
        (describesRegion(fit) && !describesRegion(edged))) {
        return std::nullopt;
    }
    return ExpectedPeak{edged.values[PeakModel::edgeChannel], edged.values[PeakModel::edgeWidth]};
}

// A peak many times its uncertainty also gains more than the limit: the likelihood falls faster
// towards an area of 0 than the parabola of the uncertainty.
constexpr double clearlySignificant = 1.5;

void weighFaintPeaks(const Spectrum& spectrum, RegionFit& fit, double limit) {
    for (std::size_t number = 0; number < fit.peaks.size(); ++number) {
        FittedPeak& peak = fit.peaks[number];
        if (peak.significance < clearlySignificant * limit) {
            peak.significance = likelihoodSignificance(spectrum, fit, number);
        }
    }
}

// True if two peaks are too close to be separated.
bool isUnresolved(const RegionFit& fit, std::size_t fainter, std::size_t stronger) {
    const FittedPeak& peak = fit.peaks[stronger];
    const double distance = std::abs(fit.peaks[fainter].channel - peak.channel);
    return distance <
           peak.width * (fit.shape.widePeak == stronger ? flankOfWidePeak : samePeakDistance);
}

bool isCertain(const FittedPeak& peak) {
    return peak.area >= minCertainty * peak.areaUncertainty;
}

std::optional<std::size_t> superfluous(const RegionFit& fit, double limit) {
    const auto significanceOf = [&fit](std::size_t number) {
        return isCertain(fit.peaks[number]) ? fit.peaks[number].significance : 0.0;
    };
    std::vector<std::size_t> order(fit.peaks.size());
    std::iota(order.begin(), order.end(), 0U);
    std::ranges::sort(order, {}, significanceOf);
    if (significanceOf(order.front()) < limit) {
        return order.front();
    }
    for (std::size_t fainter = 0; fainter < order.size(); ++fainter) {
        for (std::size_t stronger = fainter + 1; stronger < order.size(); ++stronger) {
            if (isUnresolved(fit, order[fainter], order[stronger])) {
                return order[fainter];
            }
        }
    }
    return std::nullopt;
}

}  // namespace embedded::engines
