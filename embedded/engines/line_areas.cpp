#include "embedded/engines/line_areas.h"

#include <Eigen/Cholesky>
#include <algorithm>
#include <cmath>
#include <utility>

#include "embedded/engines/peak_model.h"

namespace embedded::engines {

namespace {

// Distances of a region's ends from its outer lines, in widths.
constexpr double usualReach = 3.5;

constexpr int passesOverModel = 3;           // until the weights follow the model
constexpr double minContinuum = 0.1;         // of its mean
constexpr double minPivotOfTemplate = 1e-6;  // of a template beside others, relative
constexpr Eigen::Index level = 1;            // column of the design after the template

Eigen::VectorXd contentsOf(const Spectrum& spectrum, std::size_t first, std::size_t count) {
    const auto part = spectrum.contents.subspan(first, count);
    return Eigen::Map<const Eigen::VectorXd>(part.data(), static_cast<Eigen::Index>(part.size()));
}

// Returns the matrix that gives the unknowns of a weighted least-squares fit from the contents, or
// nullopt if they cannot be separated.
std::optional<Eigen::MatrixXd> leastSquares(const Eigen::MatrixXd& design,
                                            const Eigen::VectorXd& weights) {
    const Eigen::MatrixXd weighted = weights.asDiagonal() * design;
    const Eigen::MatrixXd normal = design.transpose() * weighted;
    const Eigen::VectorXd scale = normal.diagonal().cwiseSqrt().cwiseInverse();
    if (!scale.allFinite()) {
        return std::nullopt;
    }
    const Eigen::LDLT<Eigen::MatrixXd> solver(scale.asDiagonal() * normal * scale.asDiagonal());
    if (solver.vectorD().minCoeff() < minPivotOfTemplate) {
        return std::nullopt;
    }
    return scale.asDiagonal() * solver.solve(scale.asDiagonal() * weighted.transpose());
}

}  // namespace

LineMeter::LineMeter(const Spectrum& spectrum, Calibration calibration,
                     std::vector<MeasuredPeak> peaks)
    : spectrum_(spectrum), calibration_(std::move(calibration)), peaks_(std::move(peaks)) {}

std::optional<std::size_t> LineMeter::peakAt(double energy, double tolerance) const {
    std::optional<std::size_t> best;
    for (std::size_t peak = 0; peak < peaks_.size(); ++peak) {
        const double distance = std::abs(peaks_[peak].energy - energy);
        if (distance <= tolerance) {
            best = peak;
            tolerance = distance;
        }
    }
    return best;
}

double LineMeter::widthAt(double energy) const {
    return std::sqrt(std::max(0.0, polynomial(calibration_.shape, energy)));
}

// The channels from the reach, in widths, below the first line to the reach above the last one.
std::optional<LineMeter::Range> LineMeter::rangeOf(std::span<const TemplatePart> parts,
                                                   double reach) const {
    const std::size_t count = spectrum_.contents.size();
    const auto last = static_cast<double>(count);
    double low = last;
    double high = 1.0;
    for (const TemplatePart& part : parts) {
        const double channel = channelAt(calibration_, part.energy, count);
        const auto nearest = static_cast<std::size_t>(std::clamp(channel, 1.0, last));
        const double width = spectrum_.widths[nearest - 1];
        if (width <= 0.0 || channel - width < 1.0 || channel + width > last) {
            return std::nullopt;
        }
        low = std::min(low, channel - reach * width);
        high = std::max(high, channel + reach * width);
    }
    const auto first = static_cast<std::size_t>(std::max(1.0, std::ceil(low))) - 1;
    const auto end = static_cast<std::size_t>(std::min(last, std::floor(high)));
    return Range{first, end - first};
}

std::optional<LineMeter::Range> LineMeter::usableRange(std::span<const TemplatePart> parts) const {
    const auto range = rangeOf(parts, usualReach);
    const bool isPoor =
        range && contentsOf(spectrum_, range->first, range->count).sum() < fewCounts;
    return isPoor ? rangeOf(parts, reachAtFewCounts) : range;
}

// The part of a peak of unit area in each channel.
Eigen::VectorXd LineMeter::shapeOf(double energy, double width, const Range& range) const {
    const std::size_t count = spectrum_.contents.size();
    const double channel = channelAt(calibration_, energy, count);
    const double sigma = width / energyPerChannel(calibration_, channel) / fwhmPerSigma;
    Eigen::VectorXd shape(static_cast<Eigen::Index>(range.count));
    double below = normalDistribution((static_cast<double>(range.first) + 0.5 - channel) / sigma);
    for (Eigen::Index index = 0; index < shape.size(); ++index) {
        const double edge = static_cast<double>(range.first) + static_cast<double>(index) + 1.5;
        const double next = normalDistribution((edge - channel) / sigma);
        shape[index] = next - below;
        below = next;
    }
    return shape;
}

// Columns: the template, a straight line, the other peaks that reach into the region.
Eigen::MatrixXd LineMeter::designOf(std::span<const TemplatePart> parts,
                                    std::span<const std::size_t> ownPeaks,
                                    const Range& range) const {
    const auto rows = static_cast<Eigen::Index>(range.count);
    const double low = energyAt(calibration_, static_cast<double>(range.first) + 1.0);
    const double high = energyAt(calibration_, static_cast<double>(range.first + range.count));
    std::vector<const MeasuredPeak*> others;
    for (std::size_t peak = 0; peak < peaks_.size(); ++peak) {
        const double energy = peaks_[peak].energy;
        const double reach = peaks_[peak].width;
        if (energy > low - reach && energy < high + reach &&
            std::ranges::find(ownPeaks, peak) == ownPeaks.end()) {
            others.push_back(&peaks_[peak]);
        }
    }
    Eigen::MatrixXd design(rows, level + 2 + static_cast<Eigen::Index>(others.size()));
    design.col(0).setZero();
    for (const TemplatePart& part : parts) {
        design.col(0) += part.counts * shapeOf(part.energy, widthAt(part.energy), range);
    }
    design.col(level).setOnes();
    design.col(level + 1).setLinSpaced(rows, -1.0, 1.0);
    for (std::size_t other = 0; other < others.size(); ++other) {
        design.col(level + 2 + static_cast<Eigen::Index>(other)) =
            shapeOf(others[other]->energy, others[other]->width, range);
    }
    return design;
}

std::optional<LineArea> LineMeter::measure(std::span<const TemplatePart> parts,
                                           std::span<const std::size_t> ownPeaks) const {
    const auto range = usableRange(parts);
    if (!range) {
        return std::nullopt;
    }
    const Eigen::MatrixXd design = designOf(parts, ownPeaks, *range);
    const Eigen::VectorXd contents = contentsOf(spectrum_, range->first, range->count);
    if (contents.size() <= design.cols()) {
        return std::nullopt;
    }
    Eigen::VectorXd excess(contents.size());
    for (Eigen::Index index = 0; index < excess.size(); ++index) {
        excess[index] = spectrum_.excessAt(range->first + static_cast<std::size_t>(index));
    }
    // The weights come from the model without the template, so that the estimate stays linear.
    const double mean = (contents.cwiseMax(0.0).sum() + 1.0) / static_cast<double>(contents.size());
    Eigen::VectorXd absent = Eigen::VectorXd::Constant(contents.size(), mean);
    Eigen::VectorXd present = absent;
    LineArea area{range->first, {}};
    for (int pass = 0; pass < passesOverModel; ++pass) {
        const auto estimate = leastSquares(design, (absent + excess).cwiseInverse());
        if (!estimate) {
            return std::nullopt;
        }
        const Eigen::VectorXd values = *estimate * contents;
        area.coefficients = estimate->row(0);
        area.amplitude = values[0];
        present = design * values;
        absent = (present - values[0] * design.col(0)).cwiseMax(minContinuum * mean);
    }
    // A region that the model does not describe has a larger variance.
    const Eigen::VectorXd expected = present.cwiseMax(minContinuum * mean) + excess;
    const double chiSquare = ((contents - present).array().square() / expected.array()).sum();
    const auto degrees = static_cast<double>(contents.size() - design.cols());
    const bool isDescribed = chiSquare <= degrees + 3.0 * std::sqrt(2.0 * degrees);
    const Eigen::VectorXd squares = area.coefficients.cwiseAbs2();
    area.nullVariance = squares.dot(absent + excess) * (isDescribed ? 1.0 : chiSquare / degrees);
    area.countVariance = squares.dot(design.col(0));
    return area;
}

double LineMeter::response(const LineArea& area, double energy) const {
    const Range range{area.first, static_cast<std::size_t>(area.coefficients.size())};
    return area.coefficients.dot(shapeOf(energy, widthAt(energy), range));
}

double LineMeter::varianceResponse(const LineArea& area, double energy) const {
    const Range range{area.first, static_cast<std::size_t>(area.coefficients.size())};
    return area.coefficients.cwiseAbs2().dot(shapeOf(energy, widthAt(energy), range));
}

}  // namespace embedded::engines
