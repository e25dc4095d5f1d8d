// The settings of an activity measurement in a data source, and its results there.
#ifndef PYORV3_EMBEDDED_ENGINES_ACTIVITY_RESULTS_H
#define PYORV3_EMBEDDED_ENGINES_ACTIVITY_RESULTS_H

#include <cstdint>
#include <string>
#include <vector>

#include "embedded/engines/activity_determination.h"
#include "embedded/engines/data_source_access.h"
#include "embedded/engines/identification.h"
#include "embedded/engines/nuclide_library.h"

namespace embedded::engines {

struct ActivitySettings {
    EfficiencyUncertainty efficiency;
    Quantity quantity;
    LimitProbabilities probabilities;
};

// Throws badSetting.
ActivitySettings readActivitySettings(const DataSourceAccess& dataSource,
                                      const Calibration& calibration);

// Returns the activities that the fit of a scintillator spectrum gave. Nuclides that were not found
// have no activity.
std::vector<MeasuredActivity> scintillatorActivities(const NuclideLibrary& library,
                                                     const Findings& findings,
                                                     const ActivitySettings& settings,
                                                     double minConfidence);

// Writes an activity to a result record, or the reason why it is not known. Throws
// resultsNotWritable.
void writeActivity(const DataSourceAccess& dataSource, const MeasuredActivity& activity,
                   std::uint16_t record);

}  // namespace embedded::engines

#endif
