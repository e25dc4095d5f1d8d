// The nuclide records of a data source, ready for the identification: what a measurement under its
// conditions would show of each nuclide.
#ifndef PYORV3_EMBEDDED_ENGINES_NUCLIDE_LIBRARY_H
#define PYORV3_EMBEDDED_ENGINES_NUCLIDE_LIBRARY_H

#include <optional>
#include <vector>

#include "embedded/engines/calibration.h"
#include "embedded/engines/data_source_access.h"
#include "embedded/engines/identification.h"
#include "embedded/engines/peak_fit.h"

namespace embedded::engines {

// Net counts that a peak must have to be found with a probability, after L. A. Currie, Anal. Chem.
// 40 (1968) 586: L = C + q sqrt(L + 2 background), where C = k sqrt(2 background) is the critical
// level. With q = k this is his k^2 + 2 k sqrt(2 background). A background of fewer counts than 2
// counts as 2, for so many it may be.
// background: counts, not negative; k: the significance limit of the search; q: standard deviations
// of a normal distribution below which its probability is that of finding the peak.
double detectionLimit(double background, double k, double q);

// How many standard deviations of a normal distribution have the probability below them. 0 to 1,
// both excluded.
double normalQuantile(double probability);

// How the counts of a measurement depend on an activity.
struct Measurement {
    std::optional<double> liveTime;  // seconds
    double realTime;                 // seconds; 0 where it is not known
    double elapsed;                  // seconds from the time of reference to the start
    double efficiencyUncertainty;    // relative
    bool isAbsolute;                 // whether there are efficiencies and a live time
};

// Counts by the counts that the activity of the time of reference would give without decay:
// exp(-decay constant x elapsed) (1 - exp(-decay constant x real time)) / (decay constant x real
// time). halfLife: seconds; 0 for no decay.
double decayFactor(const Measurement& measurement, double halfLife);

// The relative uncertainty of the decay factor that comes from the half-life's.
double decayUncertainty(const Measurement& measurement, double halfLife, double uncertainty);

class NuclideLibrary {
  public:
    // significanceLimit: of the search, standard deviations. Throws badSetting, recordUnreadable.
    NuclideLibrary(const DataSourceAccess& dataSource, const Spectrum& spectrum,
                   const Calibration& calibration, double significanceLimit);

    // Those that are active and not yet decayed. The weights of their lines are counts per Bq,
    // where the measurement is absolute, otherwise in proportion to them.
    const std::vector<Nuclide>& nuclides() const { return nuclides_; }
    // The K X-rays of the elements, as nuclides with the symbols of the elements as names.
    std::vector<Nuclide> elements() const;
    const Measurement& measurement() const { return measurement_; }

    // The relative uncertainty that all lines of a nuclide share: of efficiency and decay.
    double commonUncertainty(std::size_t nuclide) const { return commonUncertainties_[nuclide]; }

    // The activity that the search would find with the probability of QAR_F_CONFIDENCE: the least
    // of the nuclide's lines. Infinite where none can be found.
    double detectionLimitOf(std::size_t nuclide) const;

  private:
    struct Decay {
        double halfLife;  // seconds; 0 where the file has none
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
    std::vector<double> commonUncertainties_;
};

}  // namespace embedded::engines

#endif
