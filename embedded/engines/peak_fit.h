// Fit of one region of a spectrum: overlapping peaks on a continuum (peak_model.h).
//
// The fit is the maximum likelihood of Poisson statistics: least squares in which each channel is
// weighted with the variance that the current model gives, until the model no longer changes. Its
// areas are unbiased where weights from the contents are not: S. Baker and R. D. Cousins, Nucl.
// Instr. Meth. 221 (1984) 437. That the common width factor is 1 +- 0.05 counts as one more
// observation, so that the calibration rules faint peaks and the data strong ones; so does that a
// tail's length is 1.5 +- 1 sigma.
#ifndef PYORV3_EMBEDDED_ENGINES_PEAK_FIT_H
#define PYORV3_EMBEDDED_ENGINES_PEAK_FIT_H

#include <Eigen/Core>
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "embedded/engines/peak_model.h"

namespace embedded::engines {

// All of all channels, channel 1 first; not owned.
struct Spectrum {
    std::span<const double> contents;
    std::span<const double> widths;  // calibrated FWHM in channels; 0 where no peak is looked for
    // Variance of a content beyond that of counting, as the subtraction of a background leaves it
    // (background_noise.h); empty where the contents are counts.
    std::span<const double> excess = {};
};

// In widths: what of the spectrum on each side of a centroid counts as below the peak.
inline constexpr double peakReach = 1.25;

// What the data may ask for beyond Gaussians of the calibrated width on a straight continuum.
struct Shape {
    bool curved = false;
    bool tailed = false;
    std::optional<std::size_t> widePeak;  // the number of the one with a width of its own
    std::optional<ExpectedPeak> edge;     // a step in the continuum, about as rounded as this peak
};

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

// Whether chi-square lies within three standard deviations of what statistics alone gives.
bool describesRegion(const RegionFit& fit);

// Fits all expected peaks (at least one) at once. Where the model does not describe the region, the
// uncertainties are enlarged by the root of chi-square per degree of freedom. The
// significances are areas in their uncertainties. Nothing where the region has fewer channels than
// unknowns or the peaks cannot be told apart.
// region: within the spectrum; start: a fit of the first of the expected peaks to begin with.
std::optional<RegionFit> fitRegion(const Spectrum& spectrum, Region region,
                                   std::vector<ExpectedPeak> expected, const Shape& shape,
                                   const RegionFit* start = nullptr);

// The significance of a peak of the fit: the root of twice the logarithm of the factor by which the
// likelihood of the best fit rises when the peak is allowed (S. S. Wilks, Ann. Math. Stat. 9 (1938)
// 60), by the enlargement; 0 where the area is not positive.
double likelihoodSignificance(const Spectrum& spectrum, const RegionFit& fit, std::size_t peak);

// The edge that stands for some of the peaks of the fit, about where the first of them is; nothing
// where they raise 2 ln(likelihood) by more than 9, three standard deviations, above it, or where
// it does not describe the region though the peaks do.
std::optional<ExpectedPeak> edgeInstead(const Spectrum& spectrum, const RegionFit& fit,
                                        std::span<const std::size_t> peaks);

}  // namespace embedded::engines

#endif
