// The peaks of a whole spectrum: second differences propose candidates, generously
// (second_difference.h); fits of neighbouring ones decide (multiplet.h).
#ifndef PYORV3_EMBEDDED_ENGINES_PEAK_SEARCH_H
#define PYORV3_EMBEDDED_ENGINES_PEAK_SEARCH_H

#include <vector>

#include "embedded/engines/multiplet.h"

namespace embedded::engines {

// Every peak whose net area is at least `limit` (positive) of its standard deviations, in rising
// order of channels.
std::vector<FittedPeak> findPeaks(const Spectrum& spectrum, double limit);

}  // namespace embedded::engines

#endif
