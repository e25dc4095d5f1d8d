// Fit of one region of a spectrum: overlapping peaks on a continuum (peak_model.h), by the maximum
// likelihood of Poisson statistics: least squares in which each channel is weighted with the
// variance that the current model gives, until the model no longer changes. Its areas are unbiased
// where weights from the contents are not: S. Baker and R. D. Cousins, Nucl. Instr. Meth. 221
// (1984) 437. That the common width factor is 1 +- 0.05 counts as one more observation, so that the
// calibration rules faint peaks and the data strong ones; so does that a tail's length is 1.5 +- 1
// sigma.
#ifndef PYORV3_EMBEDDED_ENGINES_PEAK_FIT_H
#define PYORV3_EMBEDDED_ENGINES_PEAK_FIT_H

#include <Eigen/Core>
#include <algorithm>
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "embedded/engines/peak_model.h"
#include "embedded/engines/spectrum.h"

namespace embedded::engines {

// Chi-square scatters wildly where a channel's variance is far below 1, so that it is taken for
// more.
inline constexpr double smallestVarianceOfChiSquare = 0.5;

// One fit under way: the values of the unknowns, the model and the equations at them.
class LikelihoodFit {
  public:
    // Keeps spectrum and model, which must outlive it. Unknowns that the shape has not are fixed.
    LikelihoodFit(const Spectrum& spectrum, const PeakModel& model, const Shape& shape);

    // Keeps an unknown at its first value.
    void fix(Eigen::Index unknown) { fixed_[static_cast<std::size_t>(unknown)] = true; }

    // Fits, from these values on.
    void converge(const Eigen::VectorXd& values);

    const Eigen::VectorXd& values() const { return values_; }
    const Eigen::VectorXd& contents() const { return contents_; }
    // -2 ln of the likelihood, less that of a model which is the contents.
    double unlikelihood() const { return unlikelihood_; }
    double chiSquare() const;
    double freeUnknowns() const { return static_cast<double>(std::ranges::count(fixed_, false)); }
    // Of the unknowns; empty where they cannot be told apart.
    Eigen::VectorXd variances();

  private:
    std::size_t index(Eigen::Index row) const {
        return model_.region().first + static_cast<std::size_t>(row);
    }
    double excess(Eigen::Index row) const { return spectrum_.excessAt(index(row)); }
    double content(Eigen::Index row) const { return spectrum_.contents[index(row)]; }
    double variance(Eigen::Index row) const;
    double unlikelihoodOfAll(const Eigen::VectorXd& values, const Eigen::VectorXd& contents) const;
    Eigen::VectorXd restrained(const Eigen::VectorXd& values) const {
        return values.cwiseMax(model_.lowest()).cwiseMin(model_.highest());
    }
    bool isHeld(Eigen::Index unknown) const;
    void makeEquations();
    void hold(Eigen::Index unknown);

    const Spectrum& spectrum_;
    const PeakModel& model_;
    std::vector<bool> fixed_;
    Eigen::VectorXd values_;
    Eigen::VectorXd contents_;
    Eigen::MatrixXd derivatives_;
    Eigen::MatrixXd matrix_;
    Eigen::VectorXd right_;
    double unlikelihood_ = 0.0;
};

// In widths: what of the spectrum on each side of a centroid counts as below the peak.
inline constexpr double peakReach = 1.25;

struct FittedPeak {
    double channel;          // centroid of the Gaussian
    double width;            // FWHM of the Gaussian in channels
    double area;             // net counts, tail included; may be negative
    double areaUncertainty;  // one standard deviation, positive
    double continuum;        // counts below the peak, within the peak's reach, not negative
    double significance;     // in standard deviations; see below
    Region region;           // in which it was fitted
    double reducedChiSquare;
};

struct RegionFit {
    Region region;
    std::vector<ExpectedPeak> expected;
    Shape shape;
    Eigen::VectorXd values;         // of the unknowns of the model
    std::vector<FittedPeak> peaks;  // in the order of the expected peaks
    double unlikelihood;            // -2 ln(likelihood), but for a constant of the spectrum
    double chiSquare;
    double degreesOfFreedom;
    std::vector<double> model;  // content of each channel of the region
};

// What is expected at the channels, which are clamped to the spectrum; channels where no peak is
// looked for are left out.
std::vector<ExpectedPeak> expectedAt(const Spectrum& spectrum, std::span<const double> channels);

// Whether chi-square lies within three standard deviations of what statistics alone gives.
bool describesRegion(const RegionFit& fit);

// By what uncertainties are too small: the root of chi-square per degree of freedom where the model
// does not describe the region, else 1.
double enlargementOf(const RegionFit& fit);

// Fits all expected peaks (at least one) at once. The uncertainties are enlarged as above; the
// significances are areas in their uncertainties. Nothing where the region has fewer channels than
// unknowns or the peaks cannot be told apart.
// region: within the spectrum; start: a fit of the first of the expected peaks to begin with.
std::optional<RegionFit> fitRegion(const Spectrum& spectrum, Region region,
                                   std::vector<ExpectedPeak> expected, const Shape& shape,
                                   const RegionFit* start = nullptr);

// Takes an edge into the unknowns to begin with, as high as the step that it takes the place of.
void placeEdge(const ExpectedPeak& edge, Eigen::VectorXd& values);

}  // namespace embedded::engines

#endif
