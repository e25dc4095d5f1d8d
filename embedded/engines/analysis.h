// The two steps of the engine on a data source: what is read, what is computed, what is written
// stands in engine.h.
#ifndef PYORV3_EMBEDDED_ENGINES_ANALYSIS_H
#define PYORV3_EMBEDDED_ENGINES_ANALYSIS_H

#include <optional>
#include <vector>

#include "embedded/engines/calibration.h"
#include "embedded/engines/data_source_access.h"
#include "embedded/engines/identification.h"
#include "embedded/engines/multiplet.h"

namespace embedded::engines {

// One run over one data source. Throws EngineFailure.
class Analysis {
  public:
    // Reads spectrum, calibrations and settings.
    // significanceLimit: standard deviations; the file's setting where there is none.
    Analysis(const DataSourceAccess& dataSource, std::optional<double> significanceLimit);

    void searchPeaks() const;
    // Throws noNuclides where nuclides are required and the file has no nuclide records.
    void identifyNuclides(bool required) const;

  private:
    void readCalibration();
    void restrictSearch();
    Spectrum spectrum() const { return {contents_, widths_}; }
    ExpectedLine readLine(std::uint16_t record, std::uint16_t entry) const;
    std::vector<Nuclide> readNuclides() const;
    std::vector<MeasuredPeak> readPeaks() const;
    void writePeaks(const std::vector<FittedPeak>& peaks) const;
    void writeIdentifications(const std::vector<Identification>& identifications) const;

    const DataSourceAccess& dataSource_;
    std::vector<double> contents_;
    Calibration calibration_;
    std::vector<double> widths_;
    double significanceLimit_ = 0.0;
    MatchingRules rules_{};
};

}  // namespace embedded::engines

#endif
