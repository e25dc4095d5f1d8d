// Widths of the peaks of a spectrum, measured without a width calibration.
//
// Second differences at a ladder of widths propose candidates, which are fitted with a free width.
// Wide peaks are searched and fitted in a spectrum whose channels are added up to a few per FWHM,
// so that the time does not grow with the width. See docs/engine.md, "Widths".
#ifndef PYORV3_EMBEDDED_ENGINES_WIDTH_SAMPLES_H
#define PYORV3_EMBEDDED_ENGINES_WIDTH_SAMPLES_H

#include <span>
#include <vector>

namespace embedded::engines {

struct WidthSample {
    double channel;       // centroid
    double width;         // FWHM of the Gaussian part in channels
    double uncertainty;   // of the width, relative, one standard deviation
    double area;          // net counts
    double significance;  // area in its uncertainty, enlarged if the fit does not describe the peak
};

// Returns peaks, and smooth structures that resemble peaks, by falling significance; at most a few
// dozen for each width.
// contents: of all channels; excess: see Spectrum, empty or of the same length.
std::vector<WidthSample> measureWidths(std::span<const double> contents,
                                       std::span<const double> excess);

}  // namespace embedded::engines

#endif
