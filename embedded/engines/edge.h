// Tells the rounded shoulder of a step in the continuum, such as a Compton edge, from a peak.
#ifndef PYORV3_EMBEDDED_ENGINES_EDGE_H
#define PYORV3_EMBEDDED_ENGINES_EDGE_H

#include <span>

#include "embedded/engines/peak_fit.h"

namespace embedded::engines {

// Whether a straight continuum with one step, anywhere within two widths of a fitted peak and as
// rounded as the peaks are wide, stands for the region as well as all its peaks do: whether the
// peaks lower chi-square by at most 9, three standard deviations.
// contents: of all channels.
bool edgeReplacesPeaks(std::span<const double> contents, const RegionFit& fit);

}  // namespace embedded::engines

#endif
