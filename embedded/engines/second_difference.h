// Search for peak-like places by second differences.
//
// Method: M. A. Mariscotti, Nucl. Instr. Meth. 50 (1967) 309. The second difference of a spectrum
// vanishes where the continuum is straight and is strongly negative at the top of a peak; the
// spectrum is smoothed first by averaging, several times, over about a peak's width. Repeated
// averaging tends to a Gaussian weight, so smoothing and difference are done here in one step with
// the second derivative of a Gaussian as coefficients (J. T. Routti and S. G. Prussin, Nucl. Instr.
// Meth. 72 (1969) 125), whose width follows the shape calibration from channel to channel.
#ifndef PYORV3_EMBEDDED_ENGINES_SECOND_DIFFERENCE_H
#define PYORV3_EMBEDDED_ENGINES_SECOND_DIFFERENCE_H

#include <span>
#include <vector>

namespace embedded::engines {

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
