// A spectrum, the scatter of its contents and candidates for peaks: maxima of the negative second
// difference, smoothed by a Gaussian about as wide as a peak.
// See docs/engine.md, "Candidates".
#ifndef PYORV3_EMBEDDED_ENGINES_SPECTRUM_H
#define PYORV3_EMBEDDED_ENGINES_SPECTRUM_H

#include <cstddef>
#include <span>
#include <vector>

#include "embedded/engines/shape_calibration.h"

namespace embedded::engines {

// Data of all channels, channel 1 first; not owned.
struct Spectrum {
    std::span<const double> contents;
    std::span<const double> widths;  // calibrated FWHM in channels; 0: not searched
    // Variance of a content beyond that of counting, due to the subtraction of a background; empty
    // if the contents are counts.
    std::span<const double> excess = {};
    const ShapeCalibration* shapes = nullptr;  // if known

    double excessAt(std::size_t index) const { return excess.empty() ? 0.0 : excess[index]; }
    PeakShape shapeAt(double channel) const {
        return shapes == nullptr ? PeakShape{} : shapes->at(channel);
    }
};

// Returns the variance of each content beyond that of a count if a background was subtracted, or
// empty if no content is negative. It is estimated from the second differences of about a hundred
// neighbouring channels. See docs/engine.md, "Subtracted background".
std::vector<double> excessVariance(std::span<const double> contents);

struct Candidate {
    double channel;       // of the maximum, interpolated between channels
    double significance;  // smoothed negative second difference in its standard deviations
};

// Returns the local maxima of the significance that reach `limit`, by rising channel. A channel
// whose neighbourhood has no variance has no significance.
// contents: of all channels (or residuals of a fit); variances: not negative; widths: FWHM in
// channels, 0 for channels that are not searched. All three have the same length.
std::vector<Candidate> findCandidates(std::span<const double> contents,
                                      std::span<const double> variances,
                                      std::span<const double> widths, double limit);

}  // namespace embedded::engines

#endif
