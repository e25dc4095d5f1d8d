// Fit of one region of a spectrum: overlapping peaks on a continuum.
//
// Model of a channel's content: the sum over the peaks of area x the part of a Gaussian that falls
// into the channel, plus a straight continuum, plus a step (1/2) height erfc((x - centroid) /
// (sqrt(2) sigma)) under the strongest peak, as small-angle scattering makes it: G. W. Phillips and
// K. W. Marlow, Nucl. Instr. Meth. 137 (1976) 525. The widths are those of the shape calibration
// times one factor for the region; that it is 1 +- 0.05 counts as one more observation, so that the
// calibration rules faint peaks and the data strong ones.
//
// The fit is the maximum likelihood of Poisson statistics: least squares in which each channel is
// weighted with the variance that the current model gives, until the model no longer changes. Its
// areas are unbiased where weights from the contents are not: S. Baker and R. D. Cousins, Nucl.
// Instr. Meth. 221 (1984) 437. A model variance below 1/2 counts as 1/2.
#ifndef PYORV3_EMBEDDED_ENGINES_PEAK_FIT_H
#define PYORV3_EMBEDDED_ENGINES_PEAK_FIT_H

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace embedded::engines {

// A range of channels, as indexes from 0: index = channel - 1.
struct Region {
    std::size_t first;
    std::size_t count;
};

// Where a peak is looked for: its centroid moves at most half its width from here.
struct ExpectedPeak {
    double channel;
    double width;  // calibrated FWHM in channels
};

// In widths: what of the spectrum on each side of a centroid counts as below the peak.
inline constexpr double peakReach = 1.25;

struct FittedPeak {
    double channel;          // centroid
    double width;            // FWHM in channels
    double area;             // net counts; may be negative
    double areaUncertainty;  // one standard deviation, positive
    double continuum;        // counts below the peak, within the peak's reach, not negative
};

// Net area in its standard deviations: what the significance limit is about.
double significance(const FittedPeak& peak);

struct RegionFit {
    Region region;
    std::vector<FittedPeak> peaks;  // in the order of the expected peaks
    double chiSquare;
    double degreesOfFreedom;
    std::vector<double> model;  // content of each channel of the region
};

// The variance of a channel for which the model gives this content.
double modelVariance(double content);

// Whether chi-square lies within three standard deviations of what statistics alone gives.
bool describesRegion(const RegionFit& fit);

// Fits all expected peaks (at least one) at once. Where the model does not describe the region the
// uncertainties are enlarged by the root of chi-square per degree of freedom. Nothing where the
// region has fewer channels than unknowns or the peaks cannot be told apart.
// region: within contents.
std::optional<RegionFit> fitRegion(std::span<const double> contents, Region region,
                                   std::span<const ExpectedPeak> expected);

}  // namespace embedded::engines

#endif
