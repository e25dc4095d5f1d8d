// The counts from which activities are computed, and the efficiency at their energies.
#ifndef PYORV3_EMBEDDED_ENGINES_LINE_OBSERVATIONS_H
#define PYORV3_EMBEDDED_ENGINES_LINE_OBSERVATIONS_H

#include <Eigen/Core>
#include <cstddef>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "embedded/engines/line_areas.h"
#include "embedded/engines/line_matches.h"
#include "embedded/engines/nuclide.h"

namespace embedded::engines {

// The range of an efficiency calibration and its relative uncertainty as a function of the energy.
struct EfficiencyUncertainty {
    // Lower triangular matrix whose product with its transpose is the covariance of the
    // coefficients of ln(efficiency); empty: `relative` applies to all energies.
    Eigen::MatrixXd factor;
    double relative = 0.0;
    double minEnergy = 0.0;  // keV
    double maxEnergy = std::numeric_limits<double>::infinity();

    bool covers(double energy) const { return energy >= minEnergy && energy <= maxEnergy; }

    // Returns the relative deviations that the independent causes bring about at an energy, each of
    // one standard deviation. All lines share the causes.
    Eigen::VectorXd deviations(double energy) const;
};

// Returns the matrix from its elements, row by row; empty if they are all 0.
// size: number of rows. Missing elements are 0.
Eigen::MatrixXd lowerTriangle(const std::vector<double>& elements, std::size_t size);

// The counts from which activities are computed: peaks that were found, and areas at lines without
// a peak, each with the counts of the blank. See docs/activity.md, "Areas at the lines".

// A spectrum whose areas are subtracted.
struct BlankMeasurement {
    const LineMeter& meter;
    double scale;  // live time of the sample divided by that of the blank
};

struct ActivityInput {
    const LineMeter& meter;
    const BlankMeasurement* blank;               // null: none
    std::span<const PeakOrigin> origins;         // of each peak of the meter
    std::span<const Nuclide> nuclides;           // weights of the lines: counts for 1 Bq
    const std::vector<bool>& found;              // true for each nuclide that was identified
    std::span<const double> decayUncertainties;  // relative, of each nuclide
    const EfficiencyUncertainty& efficiency;
    double tolerance;  // keV, between a line and its peak
};

// The counts that a line of a nuclide adds to an observation for an activity of 1.
struct LineTerm {
    std::size_t nuclide;
    const ExpectedLine* line;
    double counts;
};

struct Observation {
    double energy;         // keV, of the strongest line
    double area;           // net counts, with those of the blank
    double nullVariance;   // of an area without net counts
    double countVariance;  // rise of the variance with the net counts
    double blank;          // scaled counts
    double blankVariance;
    std::vector<LineTerm> terms;

    double varianceAt(double counts) const {
        return nullVariance + countVariance * (counts > 0.0 ? counts : 0.0);
    }
};

// The observations of each nuclide. Those of found nuclides include the lines of all of them.
class LineObservations {
  public:
    // The input must outlive the observations.
    explicit LineObservations(const ActivityInput& input);

    const Observation& operator[](std::size_t number) const { return observations_[number]; }
    // Returns the numbers of the observations to which a nuclide contributes.
    const std::vector<std::size_t>& ofNuclide(std::size_t nuclide) const {
        return ofNuclides_[nuclide];
    }
    // Returns the reason if a nuclide has no observation.
    const std::string& reason(std::size_t nuclide) const { return reasons_[nuclide]; }

  private:
    struct Amount {
        double counts;
        double variance;
    };
    using Lines = std::vector<const ExpectedLine*>;

    void observe(std::size_t nuclide);
    bool observePeak(std::size_t nuclide, std::size_t peak, const Lines& lines);
    bool observeTemplate(std::size_t nuclide, const Lines& lines);
    std::vector<Lines> clustersOf(const Lines& lines, double sensitivityLimit) const;
    std::optional<Amount> blankAtPeak(double energy) const;
    std::optional<Amount> blankAtLines(const Lines& lines, const LineArea& area) const;
    void addFoundLines(std::size_t nuclide, const LineArea& area, double counts,
                       Observation& observation) const;

    const ActivityInput& input_;
    std::vector<NuclideMatches> matches_;
    std::vector<Observation> observations_;
    std::vector<std::optional<std::size_t>> ofPeaks_;
    std::vector<std::vector<std::size_t>> ofNuclides_;
    std::vector<std::string> reasons_;
};

}  // namespace embedded::engines

#endif
