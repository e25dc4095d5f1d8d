// The two steps of the engine on a data source. See docs/engine.md for the parameters that they
// read and write.
#ifndef PYORV3_EMBEDDED_ENGINES_ANALYSIS_H
#define PYORV3_EMBEDDED_ENGINES_ANALYSIS_H

#include <optional>
#include <vector>

#include "embedded/engines/activity_results.h"
#include "embedded/engines/calibration.h"
#include "embedded/engines/calibration_steps.h"
#include "embedded/engines/data_source_access.h"
#include "embedded/engines/identification.h"
#include "embedded/engines/nuclide_library.h"
#include "embedded/engines/peak_search.h"

namespace embedded::engines {

// One run over one data source. Throws EngineFailure.
class Analysis {
  public:
    // Reads spectrum, calibrations and settings.
    // significanceLimit: standard deviations; nullopt: the setting in the file.
    Analysis(const DataSourceAccess& dataSource, std::optional<double> significanceLimit);

    void searchPeaks();
    // Throws noNuclides if nuclides are required and the file has no nuclide records.
    void identifyNuclides(bool required);

    // True if the calibration gives no usable width for some channels of the search, which were
    // therefore not searched.
    bool leftOutChannels() const { return leftOutChannels_; }

  private:
    void readCalibration();
    void restrictSearch();
    void readSettings(std::optional<double> significanceLimit);
    Spectrum spectrum() const { return {contents_, widths_, excess_}; }
    std::vector<MeasuredPeak> readPeaks() const;
    void correctEnergies(const EnergyCorrection& correction);
    void writePeaks(const std::vector<FittedPeak>& peaks) const;
    bool isIdentified(const Identification& identification) const;
    std::vector<MeasuredActivity> activitiesOf(const NuclideLibrary& library,
                                               const Findings& findings) const;
    void writeResults(const NuclideLibrary& library, const Findings& findings,
                      const std::vector<MeasuredActivity>& activities) const;
    void writeResult(const NuclideLibrary& library, const Findings& findings, std::size_t nuclide,
                     std::uint16_t record) const;

    const DataSourceAccess& dataSource_;
    std::vector<double> contents_;
    std::vector<double> excess_;
    Calibration calibration_;
    WidthCalibration widthCalibration_;
    bool isCorrected_ = false;  // true if calibration_ has corrected energies
    std::vector<double> widths_;
    std::vector<double> inRange_;  // 1 in the channels of the search, 0 in others
    bool leftOutChannels_ = false;
    SearchSettings search_{};
    MatchingRules rules_{};
    ActivitySettings activitySettings_;
};

}  // namespace embedded::engines

#endif
