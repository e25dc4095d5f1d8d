// Fit of one region of a spectrum: overlapping peaks on a continuum. See docs/engine.md, "Fit".
#ifndef PYORV3_EMBEDDED_ENGINES_PEAK_FIT_H
#define PYORV3_EMBEDDED_ENGINES_PEAK_FIT_H

#include <Eigen/Core>
#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "embedded/engines/peak_model.h"
#include "embedded/engines/spectrum.h"

namespace embedded::engines {

// Smallest variance of a channel in chi-square. With variances far below 1 chi-square would scatter
// too much.
inline constexpr double minVarianceOfChiSquare = 0.5;

// matrix x = right, for the change x of some unknowns that maximises the likelihood.
struct NormalEquations {
    Eigen::MatrixXd matrix;
    Eigen::VectorXd right;
};

// Maximum-likelihood fit of a peak model to the counts of a region, with Poisson statistics.
class LikelihoodFit {
  public:
    // Keeps references to spectrum and model, which must outlive it. Unknowns that the model's
    // shape lacks are fixed.
    LikelihoodFit(const Spectrum& spectrum, const PeakModel& model);

    // Keeps an unknown at its first value, whatever is expected of it.
    void fix(Eigen::Index unknown);

    // Fits, beginning with these values.
    void converge(const Eigen::VectorXd& values);

    const Eigen::VectorXd& values() const { return values_; }
    const Eigen::VectorXd& contents() const { return contents_; }
    // -2 ln(likelihood), less that of a model that equals the contents.
    double unlikelihood() const { return unlikelihood_; }
    double chiSquare() const;
    // Returns the number of channels and observations less the number of free unknowns.
    double degreesOfFreedom() const;
    // Returns the variance of each unknown, 0 for a fixed one; empty if the unknowns are
    // degenerate.
    Eigen::VectorXd variances();
    // Returns the equations for a change of fixed unknowns if the free ones follow; empty if the
    // free ones are degenerate.
    NormalEquations equationsOf(std::span<const Eigen::Index> unknowns);

  private:
    // Prior knowledge of an unknown, from outside the region.
    struct Observation {
        Eigen::Index unknown;
        Expectation expectation;
    };

    void observe(const Expectation& expectation, Eigen::Index unknown);
    std::size_t index(Eigen::Index row) const {
        return model_.region().first + static_cast<std::size_t>(row);
    }
    double excess(Eigen::Index row) const { return spectrum_.excessAt(index(row)); }
    double content(Eigen::Index row) const { return spectrum_.contents[index(row)]; }
    double variance(Eigen::Index row) const;
    double unlikelihoodOfAll(const Eigen::VectorXd& values, const Eigen::VectorXd& contents) const;
    Eigen::VectorXd restrained(const Eigen::VectorXd& values) const {
        return values.cwiseMax(model_.minValues()).cwiseMin(model_.maxValues());
    }
    Eigen::VectorXd stepped(const Eigen::VectorXd& step) const;
    void makeEquations();
    void hold(Eigen::Index position);
    void holdAtBounds(Eigen::Index end);
    bool isHeld(Eigen::Index position) const;

    const Spectrum& spectrum_;
    const PeakModel& model_;
    std::vector<Eigen::Index> free_;  // unknowns in the order of the equations
    std::vector<Observation> observations_;
    Eigen::VectorXd values_;
    Eigen::VectorXd contents_;
    Eigen::MatrixXd derivatives_;
    Eigen::MatrixXd matrix_;
    Eigen::VectorXd right_;
    double unlikelihood_ = 0.0;
};

// Distance from the centroid, in widths, within which the continuum under a peak is counted.
inline constexpr double peakReach = 1.25;

struct RegionCurve;

struct FittedPeak {
    double channel;          // centroid of the Gaussian
    double width;            // FWHM of the Gaussian in channels
    double area;             // net counts, tail included; may be negative
    double areaUncertainty;  // one standard deviation, positive
    double continuum;        // counts below the peak, within the peak's reach, not negative
    double significance;     // in standard deviations; see below
    Region region;           // in which it was fitted
    double reducedChiSquare;
    double broadening;                         // factor of the width that is the peak's own
    std::shared_ptr<const RegionCurve> curve;  // null during the search
};

struct RegionFit {
    Region region;
    std::vector<ExpectedPeak> expected;
    Shape shape;
    Eigen::VectorXd values;         // of the unknowns of the model
    Eigen::VectorXd variances;      // of the unknowns, 0 for a fixed one; not enlarged
    std::vector<FittedPeak> peaks;  // in the order of the expected peaks
    double unlikelihood;            // -2 ln(likelihood), but for a constant of the spectrum
    double chiSquare;
    double degreesOfFreedom;
    std::vector<double> model;  // content of each channel of the region
};

// Returns the channels of candidates or peaks.
template <typename Peaks>
std::vector<double> channelsOf(const Peaks& peaks) {
    std::vector<double> channels;
    channels.reserve(peaks.size());
    for (const auto& peak : peaks) {
        channels.push_back(peak.channel);
    }
    return channels;
}

// Returns peaks to fit at the channels, which are clamped to the spectrum. Channels in which no
// peak is searched are left out.
std::vector<ExpectedPeak> expectedAt(const Spectrum& spectrum, std::span<const double> channels);

// True if chi-square is within three standard deviations of its expected value.
bool describesRegion(const RegionFit& fit);

// Returns the factor for the uncertainties: the root of chi-square per degree of freedom if the
// model does not describe the region, otherwise 1.
double enlargementOf(const RegionFit& fit);

// Fits all expected peaks (at least one) at once. The uncertainties are enlarged as above; the
// significances are areas divided by their uncertainties. Returns nullopt if the region has fewer
// channels than unknowns or the peaks cannot be separated.
// region: within the spectrum; start: a fit of the first of the expected peaks to begin with.
std::optional<RegionFit> fitRegion(const Spectrum& spectrum, Region region,
                                   std::vector<ExpectedPeak> expected, const Shape& shape,
                                   const RegionFit* start = nullptr);

// Returns the model of a region, with the peak shape expected in its middle.
PeakModel modelOf(const Spectrum& spectrum, Region region, std::vector<ExpectedPeak> expected,
                  const Shape& shape);

// Writes an edge into the initial unknowns, as high as the step that it replaces.
void setEdge(const ExpectedPeak& edge, Eigen::VectorXd& values);

// A fall of the continuum, as rounded as a Gaussian.
struct Fall {
    double height;  // counts; negative if the continuum rises
    double channel;
    double width;  // FWHM of the Gaussian in channels
};

// The fitted model of a region in plain numbers, from which programs draw it. See docs/engine.md,
// "Curves of the fits".
struct RegionCurve {
    double level;      // continuum in the middle of the region, counts
    double slope;      // rise of the continuum from the middle to the end
    double curvature;  // of the continuum: counts at the ends beyond the straight line
    Fall step;         // below the strongest peak
    Fall edge;         // height 0: none
    Tail left;         // lengths in sigma of a peak of the common width, as for the drift
    Tail right;
    double drift;
    double degreesOfFreedom;
    double chiSquareOfShape;  // part of chi-square from the shape's distance to the expected one
    std::vector<FittedPeak> unreported;  // fitted peaks without a record of their own
};

// Returns the curve of a fit, without unreported peaks.
RegionCurve curveOf(const Spectrum& spectrum, const RegionFit& fit);

}  // namespace embedded::engines

#endif
