// Fit of one region of a spectrum: overlapping peaks on a continuum.
// See docs/engine.md, "Fit".
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

}  // namespace embedded::engines

#endif
