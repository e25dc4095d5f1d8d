// Finds the peaks of a whole spectrum: second differences propose candidates, fits decide. See
// docs/engine.md, "How the peak search works".
#ifndef PYORV3_EMBEDDED_ENGINES_PEAK_SEARCH_H
#define PYORV3_EMBEDDED_ENGINES_PEAK_SEARCH_H

#include <vector>

#include "embedded/engines/peak_fit.h"

namespace embedded::engines {

struct SearchSettings {
    double limit;            // standard deviations that a peak's significance must reach, positive
    bool multiplets = true;  // true to fit overlapping peaks together
    double smoothing = 0.0;  // channels, for the candidates; 0: the width of a peak
};

// Returns all peaks whose significance reaches the limit, by rising channel.
std::vector<FittedPeak> findPeaks(const Spectrum& spectrum, const SearchSettings& settings);

}  // namespace embedded::engines

#endif
