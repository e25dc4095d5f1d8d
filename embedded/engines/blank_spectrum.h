// The blank that is lent to a data source for an analysis, in the records of QAR_CLS_BLANK.
#ifndef PYORV3_EMBEDDED_ENGINES_BLANK_SPECTRUM_H
#define PYORV3_EMBEDDED_ENGINES_BLANK_SPECTRUM_H

#include <memory>
#include <vector>

#include "embedded/engines/calibration.h"
#include "embedded/engines/data_source_access.h"
#include "embedded/engines/line_areas.h"
#include "embedded/engines/line_observations.h"
#include "embedded/engines/peak_search.h"

namespace embedded::engines {

// The spectrum of a blank with its own calibrations and peaks.
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
