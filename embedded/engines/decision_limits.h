// Characteristic limits of a measured activity after ISO 11929-1:2019. See docs/activity.md,
// "Characteristic limits".
#ifndef PYORV3_EMBEDDED_ENGINES_DECISION_LIMITS_H
#define PYORV3_EMBEDDED_ENGINES_DECISION_LIMITS_H

#include <functional>
#include <optional>

namespace embedded::engines {

struct LimitProbabilities {
    double falsePositive = 0.05;  // of the decision threshold
    double falseNegative = 0.05;  // of the detection limit
    double coverage = 0.95;       // of the coverage interval
};

struct DecisionLimits {
    double threshold;
    std::optional<double> detectionLimit;  // nullopt: the relative uncertainty is too large
    double bestEstimate;
    double bestEstimateUncertainty;
    double lower;
    double upper;
};

// Returns the limits of a primary result with its standard uncertainty.
// uncertaintyAt: standard uncertainty of the primary result if the true value is the argument, not
// negative.
DecisionLimits decisionLimits(double result, double uncertainty,
                              const std::function<double(double)>& uncertaintyAt,
                              const LimitProbabilities& probabilities);

// Returns the quantile of the normal distribution for a probability between 0 and 1, both excluded.
double normalQuantile(double probability);

}  // namespace embedded::engines

#endif
