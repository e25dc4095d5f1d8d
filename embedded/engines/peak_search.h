// The peaks of a whole spectrum: second differences propose candidates, fits decide.
// See docs/engine.md, "How it works".
#ifndef PYORV3_EMBEDDED_ENGINES_PEAK_SEARCH_H
#define PYORV3_EMBEDDED_ENGINES_PEAK_SEARCH_H

#include <vector>

#include "embedded/engines/peak_fit.h"

namespace embedded::engines {

struct SearchSettings {
    double limit;            // standard deviations that a peak's significance must reach, positive
    bool multiplets = true;  // whether overlapping peaks are fitted together
    double smoothing = 0.0;  // channels over which candidates are looked for; 0: as peaks are wide
};

// Every peak whose significance reaches the limit, in rising order of channels.
std::vector<FittedPeak> findPeaks(const Spectrum& spectrum, const SearchSettings& settings);

}  // namespace embedded::engines

#endif
