#include "embedded/engines/decision_limits.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace embedded::engines {

namespace {

constexpr int maxIterations = 100;
constexpr double sameValue = 1e-12;
constexpr double maxRatio = 1e6;  // of a detection limit to its threshold

// Below this ratio of result and uncertainty the normal distribution has no digits left.
constexpr double minRatio = -35.0;

// Accurate far below the mean as well.
double distributionAt(double position) {
    return 0.5 * std::erfc(-position / std::numbers::sqrt2);
}

// Solves limit = threshold + quantile x uncertainty(limit) by iteration. The uncertainty rises less
// than in proportion to the limit if there is a solution.
std::optional<double> detectionLimitOf(double threshold, double quantile,
                                       const std::function<double(double)>& uncertaintyAt) {
    const double first = threshold + quantile * uncertaintyAt(0.0);
    double limit = std::max(first, 2.0 * threshold);
    for (int iteration = 0; iteration < maxIterations; ++iteration) {
        const double next = threshold + quantile * uncertaintyAt(limit);
        if (!(next <= maxRatio * std::max(first, threshold))) {
            return std::nullopt;
        }
        if (std::abs(next - limit) <= sameValue * next) {
            return next;
        }
        limit = next;
    }
    return std::nullopt;
}

}  // namespace

double normalQuantile(double probability) {
    double low = -40.0;
    double high = 40.0;
    // Halving 80 standard deviations 60 times leaves less than rounding error.
    for (int halving = 0; halving < 60; ++halving) {
        const double middle = 0.5 * (low + high);
        (distributionAt(middle) < probability ? low : high) = middle;
    }
    return 0.5 * (low + high);
}

DecisionLimits decisionLimits(double result, double uncertainty,
                              const std::function<double(double)>& uncertaintyAt,
                              const LimitProbabilities& probabilities) {
    DecisionLimits limits{};
    limits.threshold = -normalQuantile(probabilities.falsePositive) * uncertaintyAt(0.0);
    limits.detectionLimit = detectionLimitOf(
        limits.threshold, -normalQuantile(probabilities.falseNegative), uncertaintyAt);
    const double ratio = std::max(result / uncertainty, minRatio);
    const double positive = distributionAt(ratio);
    const double density = std::exp(-0.5 * ratio * ratio) / std::sqrt(2.0 * std::numbers::pi);
    const double best = ratio + density / positive;
    limits.bestEstimate = uncertainty * best;
    limits.bestEstimateUncertainty =
        uncertainty * std::sqrt(std::max(0.0, 1.0 - (best - ratio) * best));
    const double outside = 0.5 * (1.0 - probabilities.coverage);
    limits.lower = uncertainty * (ratio - normalQuantile(positive * (1.0 - outside)));
    limits.upper = uncertainty * (ratio - normalQuantile(positive * outside));
    limits.lower = std::max(0.0, limits.lower);
    return limits;
}

}  // namespace embedded::engines
