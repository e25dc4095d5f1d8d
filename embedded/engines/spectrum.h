// A spectrum as the search sees it, how its contents scatter, and the peak-like places in it.
//
// Method: M. A. Mariscotti, Nucl. Instr. Meth. 50 (1967) 309. The second difference of a spectrum
// vanishes where the continuum is straight and is strongly negative at the top of a peak; the
// spectrum is smoothed first by averaging, several times, over about a peak's width. Repeated
// averaging tends to a Gaussian weight, so smoothing and difference are done here in one step with
// the second derivative of a Gaussian as coefficients (J. T. Routti and S. G. Prussin, Nucl. Instr.
// Meth. 72 (1969) 125), whose width follows the shape calibration from channel to channel.
#ifndef PYORV3_EMBEDDED_ENGINES_SPECTRUM_H
#define PYORV3_EMBEDDED_ENGINES_SPECTRUM_H

#include <cstddef>
#include <span>
#include <vector>

#include "embedded/engines/shape_calibration.h"

namespace embedded::engines {

// All of all channels, channel 1 first; not owned.
struct Spectrum {
    std::span<const double> contents;
    std::span<const double> widths;  // calibrated FWHM in channels; 0 where no peak is looked for
    // Variance of a content beyond that of counting, as the subtraction of a background leaves it;
    // empty where the contents are counts.
    std::span<const double> excess = {};
    const ShapeCalibration* shapes = nullptr;  // if known

    double excessAt(std::size_t index) const { return excess.empty() ? 0.0 : excess[index]; }
    PeakShape shapeAt(double channel) const {
        return shapes == nullptr ? PeakShape{} : shapes->at(channel);
    }
};

// The variance of each content beyond that of a count, for a spectrum from which a background was
// subtracted: some contents are negative then, and all scatter by more than the roots of their
// values. What was subtracted is not known, but the second differences of neighbouring channels
// show the scatter, for a smooth continuum drops out of them: 1/6 of the square of
// content[i - 1] - 2 content[i] + content[i + 1], its median over about a hundred channels (peaks
// fill less than half of them) divided by that of chi-square with one degree of freedom, less the
// median content. Empty where no content is negative: then all are counts.
std::vector<double> excessVariance(std::span<const double> contents);

struct Candidate {
    double channel;       // of the maximum, interpolated between channels
    double significance;  // smoothed negative second difference in its standard deviations
};

// The local maxima of the significance that reach `limit`, in rising order of channels.
// contents: of all channels (or residuals of a fit); variances: theirs, not negative; widths: FWHM
// in channels, 0 where nothing is to be searched. All three have the same length. A channel whose
// neighbourhood has no variance has no significance.
std::vector<Candidate> findCandidates(std::span<const double> contents,
                                      std::span<const double> variances,
                                      std::span<const double> widths, double limit);

}  // namespace embedded::engines

#endif
