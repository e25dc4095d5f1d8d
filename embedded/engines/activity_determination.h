// Activities of all nuclides of a library, found or not, with their uncertainties and
// characteristic limits. See docs/activity.md.
#ifndef PYORV3_EMBEDDED_ENGINES_ACTIVITY_DETERMINATION_H
#define PYORV3_EMBEDDED_ENGINES_ACTIVITY_DETERMINATION_H

#include <string>
#include <vector>

#include "embedded/engines/activity_uncertainty.h"
#include "embedded/engines/decision_limits.h"
#include "embedded/engines/line_observations.h"

namespace embedded::engines {

struct Quantity {
    double value = 1.0;        // positive; activities are divided by it
    double uncertainty = 0.0;  // relative
};

// An observation that determined an activity.
struct MeasuredLine {
    double energy;  // keV, of the strongest line
    double area;    // counts, with those of the blank
    double areaUncertainty;
    double nullUncertainty;  // that the area would have without net counts
    double blank;            // scaled counts
    double blankUncertainty;
};

struct MeasuredActivity {
    std::string reason;     // why there is no value, or no detection limit
    bool isKnown = false;   // false: only the reason is set
    double activity = 0.0;  // primary result, may be negative
    UncertaintyParts uncertainties;
    double blank = 0.0;  // activity subtracted for the blank
    DecisionLimits limits{};
    std::vector<MeasuredLine> lines;
};

// Returns one result for each nuclide of the input.
std::vector<MeasuredActivity> determineActivities(const ActivityInput& input,
                                                  const Quantity& quantity,
                                                  const LimitProbabilities& probabilities);

}  // namespace embedded::engines

#endif
