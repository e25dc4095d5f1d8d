// The nuclide records of a data source: prepared for the identification, as the lines of each
// nuclide with their expected counts, and as patterns of lines for an unknown energy calibration.
#ifndef PYORV3_EMBEDDED_ENGINES_NUCLIDE_LIBRARY_H
#define PYORV3_EMBEDDED_ENGINES_NUCLIDE_LIBRARY_H

#include <optional>
#include <vector>

#include "embedded/engines/calibration.h"
#include "embedded/engines/data_source_access.h"
#include "embedded/engines/identification.h"
#include "embedded/engines/line_assignment.h"
#include "embedded/engines/peak_fit.h"

namespace embedded::engines {

// Returns the net counts at which a peak is found with the probability of q, after L. A. Currie,
// Anal. Chem. 40 (1968) 586: L = C + q sqrt(L + 2 background) with the critical level C = k sqrt(2
// background). A background below 2 counts as 2. See docs/engine.md, "Missing lines".
// background: counts, not negative; k: significance limit; q: normal quantile of the probability.
double detectionLimit(double background, double k, double q);

// The quantities that relate the counts of a measurement to an activity.
struct Measurement {
    std::optional<double> liveTime;  // seconds
    double realTime;                 // seconds; 0 if unknown
    double elapsed;                  // seconds from the time of reference to the start
    double sampling;                 // seconds of sampling before the time of reference; 0 if none
    bool isAbsolute;                 // true if efficiencies and a live time are known
};

// Returns the ratio of the counts to those without decay since the beginning of the sampling:
// exp(-c elapsed) mean(c real time) mean(c sampling) with the decay constant c and mean(x) = (1 -
// exp(-x)) / x.
// halfLife: seconds; 0 for no decay.
double decayFactor(const Measurement& measurement, double halfLife);

// Returns the relative uncertainty of the decay factor, from that of the half-life.
double decayUncertainty(const Measurement& measurement, double halfLife, double uncertainty);

class NuclideLibrary {
  public:
    // significanceLimit: of the search, standard deviations. Throws badSetting, recordUnreadable.
    NuclideLibrary(const DataSourceAccess& dataSource, const Spectrum& spectrum,
                   const Calibration& calibration, double significanceLimit);

    // The nuclides that are active and have not yet decayed. The weights of their lines are counts
    // per Bq if the measurement is absolute, otherwise relative.
    const std::vector<Nuclide>& nuclides() const { return nuclides_; }
    // Returns the K X-rays of the elements, as nuclides named by the symbols of the elements.
    std::vector<Nuclide> elements() const;
    const Measurement& measurement() const { return measurement_; }

    // Returns the relative uncertainty of the decay of each nuclide, from that of its half-life.
    const std::vector<double>& decayUncertainties() const { return decayUncertainties_; }

  private:
    struct Decay {
        double halfLife;  // seconds; 0 if the file does not contain it
        double uncertainty;
    };

    void readMeasurement();
    Decay decayOf(std::uint16_t record) const;
    std::optional<std::uint16_t> parentOf(std::uint16_t record) const;
    ExpectedLine readLine(std::uint16_t record, std::uint16_t entry, double factor) const;
    void readNuclide(std::uint16_t record);
    double detectionLimitAt(double energy) const;

    const DataSourceAccess& dataSource_;
    const Spectrum& spectrum_;
    const Calibration& calibration_;
    double significanceLimit_;
    double confidenceQuantile_ = 0.0;
    Measurement measurement_{};
    std::vector<std::string> names_;      // of all records
    std::vector<std::uint16_t> records_;  // of the nuclides
    std::vector<Nuclide> nuclides_;
    std::vector<double> decayUncertainties_;
};

// Returns the active nuclides and their lines with an energy and a positive yield. The weights are
// yield times efficiency. The surprise of all patterns is 0.
std::vector<LinePattern> readPatterns(const DataSourceAccess& dataSource,
                                      const Calibration& calibration);

}  // namespace embedded::engines

#endif
