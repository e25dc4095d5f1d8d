#include "embedded/engines/common_tails.h"

#include <Eigen/Cholesky>
#include <Eigen/LU>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>

namespace embedded::engines {

namespace {

constexpr int maxIterationsOfTails = 10;
constexpr double convergedTails = 0.02;  // of -2 ln(likelihood)

// The effect of a decay length is far from linear, so that whole steps may oscillate.
constexpr double lengthDamping = 1.5;
constexpr double maxLengthStep = 0.5;

// Loss in -2 ln(likelihood) by the common tails up to which a peak has them, and the same relative
// to the median of all peaks.
constexpr double acceptedLossOfTails = 25.0;
constexpr double acceptedRatioOfLosses = 10.0;

// Positions of the common unknowns.
enum Common : Eigen::Index { leftFraction, leftLength, rightFraction, rightLength };
constexpr std::array<Eigen::Index, 4> modelUnknowns = {
    PeakModel::leftFraction, PeakModel::leftLength, PeakModel::rightFraction,
    PeakModel::rightLength};
constexpr std::array fractionUnknowns = {leftFraction, rightFraction};

const Eigen::Vector4d expectedTails = {0.0, 1.5, 0.0, 1.5};
const Eigen::Vector4d expectedTailDeviations = {0.05, 1.0, 0.05, 1.0};
const Eigen::Vector4d firstTails = {0.05, 1.5, 0.05, 1.5};
const Eigen::Vector4d minTails = {0.0, 0.7, 0.0, 0.7};
const Eigen::Vector4d maxTails = {0.5, 4.0, 0.5, 4.0};

// A region, whose other unknowns are fitted for given tails.
class TailedRegion {
  public:
    TailedRegion(const Spectrum& spectrum, const RegionFit& own)
        : spectrum_(spectrum), own_(own), enlargement_(enlargementOf(own)), values_(own.values) {}

    // Fits the region with these tails. Returns false if it is degenerate.
    bool fit(const Eigen::Vector4d& tails);

    // Returns the equations for a change of the tails.
    const NormalEquations& equations() const { return equations_; }
    // Returns the loss in -2 ln(likelihood) by these tails instead of the region's own.
    double loss() const { return loss_; }
    // Returns the fractions that the region shows with these decay lengths; nullopt if they are far
    // from the fitted ones.
    std::optional<TailFractions> fractions() const;

  private:
    const Spectrum& spectrum_;
    const RegionFit& own_;
    double enlargement_;
    Eigen::VectorXd values_;
    NormalEquations equations_;
    double loss_ = 0.0;
};

bool TailedRegion::fit(const Eigen::Vector4d& tails) {
    PeakShape shape = modelOf(spectrum_, own_.region, own_.expected, own_.shape).expectedShape();
    shape.widthFactor.variance = 0.2 * 0.2;  // tails must not compensate for a wrong width
    PeakModel model(own_.region, own_.expected, own_.shape, shape);
    model.estimate(spectrum_.contents);  // determines the position of the step
    LikelihoodFit likelihood(spectrum_, model);
    for (std::size_t number = 0; number < modelUnknowns.size(); ++number) {
        likelihood.fix(modelUnknowns[number]);
        values_[modelUnknowns[number]] = tails[static_cast<Eigen::Index>(number)];
    }
    likelihood.converge(values_);
    values_ = likelihood.values();
    equations_ = likelihood.equationsOf(modelUnknowns);
    const double scale = 1.0 / (enlargement_ * enlargement_);
    equations_.matrix *= scale;
    equations_.right *= scale;
    loss_ = scale * (likelihood.unlikelihood() - own_.unlikelihood);
    return equations_.right.size() != 0;
}

std::optional<TailFractions> TailedRegion::fractions() const {
    if (equations_.right.size() == 0 || loss_ > acceptedLossOfTails) {
        return std::nullopt;
    }
    const Eigen::Matrix2d inverse =
        Eigen::Matrix2d(equations_.matrix(fractionUnknowns, fractionUnknowns)).inverse();
    const Eigen::Vector2d change = inverse * equations_.right(fractionUnknowns);
    return TailFractions{{values_[PeakModel::leftFraction] + change[0], inverse(0, 0)},
                         {values_[PeakModel::rightFraction] + change[1], inverse(1, 1)}};
}

// Returns the largest loss of a region whose tails are like those of the others.
double maxLossOf(std::span<const TailedRegion> regions) {
    std::vector<double> losses;
    for (const TailedRegion& region : regions) {
        losses.push_back(region.loss());
    }
    if (losses.empty()) {
        return 0.0;
    }
    const auto middle = losses.begin() + static_cast<std::ptrdiff_t>((losses.size() - 1) / 2);
    std::ranges::nth_element(losses, middle);
    return std::max(acceptedLossOfTails, acceptedRatioOfLosses * *middle);
}

// Fits all regions with the tails and improves the tails by one step. Returns the square of the
// step in standard deviations.
double improve(std::vector<TailedRegion>& regions, double maxLoss, Eigen::Vector4d& tails) {
    const Eigen::Vector4d weights = expectedTailDeviations.cwiseAbs2().cwiseInverse();
    Eigen::Matrix4d matrix = weights.asDiagonal();
    Eigen::Vector4d right = weights.cwiseProduct(expectedTails - tails);
    for (TailedRegion& region : regions) {
        if (region.fit(tails) && region.loss() <= maxLoss) {
            matrix += region.equations().matrix;
            right += region.equations().right;
        }
    }
    Eigen::Matrix4d damped = matrix;
    for (const Eigen::Index length : {leftLength, rightLength}) {
        damped(length, length) *= lengthDamping;
    }
    Eigen::Vector4d step = damped.llt().solve(right);
    for (const Eigen::Index length : {leftLength, rightLength}) {
        step[length] = std::clamp(step[length], -maxLengthStep, maxLengthStep);
    }
    step = (tails + step).cwiseMax(minTails).cwiseMin(maxTails) - tails;
    tails += step;
    return step.dot(matrix * step);
}

}  // namespace

CommonTails fitCommonTails(const Spectrum& spectrum,
                           std::span<const std::optional<RegionFit>> fits) {
    std::vector<TailedRegion> regions;
    for (const auto& fit : fits) {
        if (fit) {
            regions.emplace_back(spectrum, *fit);
        }
    }
    Eigen::Vector4d tails = firstTails;
    double maxLoss = std::numeric_limits<double>::infinity();
    for (int iteration = 0; iteration < maxIterationsOfTails; ++iteration) {
        const double change = improve(regions, maxLoss, tails);
        maxLoss = maxLossOf(regions);
        if (change < convergedTails) {
            break;
        }
    }
    CommonTails result{tails[leftLength], tails[rightLength], {}};
    auto region = regions.begin();
    for (const auto& fit : fits) {
        result.fractions.emplace_back(fit ? (region++)->fractions() : std::nullopt);
    }
    return result;
}

}  // namespace embedded::engines
