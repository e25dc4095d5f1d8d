// The settings of an activity measurement in a data source, its blank, and its results there.
#ifndef PYORV3_EMBEDDED_ENGINES_ACTIVITY_RESULTS_H
#define PYORV3_EMBEDDED_ENGINES_ACTIVITY_RESULTS_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "embedded/engines/activity_determination.h"
#include "embedded/engines/calibration.h"
#include "embedded/engines/data_source_access.h"
#include "embedded/engines/identification.h"
#include "embedded/engines/line_areas.h"
#include "embedded/engines/line_observations.h"
#include "embedded/engines/nuclide_library.h"
#include "embedded/engines/peak_search.h"

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

// The blank that is lent to a data source for an analysis, in the records of QAR_CLS_BLANK: its
// spectrum with its own calibrations and peaks.
class BlankSpectrum {
  public:
    // Returns nullptr if the source has no blank. Throws badSetting if its live time is not
    // positive, spectrumUnreadable without contents, calibrationUnusable.
    static std::unique_ptr<BlankSpectrum> read(const DataSourceAccess& dataSource,
                                               const SearchSettings& search);

    ~BlankSpectrum() = default;
    BlankSpectrum(const BlankSpectrum&) = delete;
    BlankSpectrum& operator=(const BlankSpectrum&) = delete;
    BlankSpectrum(BlankSpectrum&&) = delete;
    BlankSpectrum& operator=(BlankSpectrum&&) = delete;

    // Returns the measurement scaled to a live time in seconds. The spectrum must outlive it.
    BlankMeasurement measurementFor(double liveTime) const {
        return {*meter_, liveTime / liveTime_};
    }

  private:
    BlankSpectrum(const DataSourceAccess& dataSource, double liveTime,
                  const SearchSettings& search);

    double liveTime_;
    std::vector<double> contents_;
    std::vector<double> excess_;
    std::vector<double> widths_;
    std::unique_ptr<LineMeter> meter_;
};

}  // namespace embedded::engines

#endif
