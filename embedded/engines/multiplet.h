// Fits a group of neighbouring peaks: decides which expected peaks exist and which are missing. See
// docs/engine.md, "How the peak search works".
#ifndef PYORV3_EMBEDDED_ENGINES_MULTIPLET_H
#define PYORV3_EMBEDDED_ENGINES_MULTIPLET_H

#include <optional>
#include <vector>

#include "embedded/engines/peak_fit.h"

namespace embedded::engines {

// Channels that a fit may use. The peaks of other groups are outside.
struct ChannelRange {
    double min;
    double max;
};

// Returns a first fit with Gaussians on a straight continuum in the widest region.
std::optional<RegionFit> fitCoarsely(const Spectrum& spectrum, std::vector<ExpectedPeak> expected,
                                     ChannelRange range, double limit);

// Returns the fit in which every peak reaches the limit, or nullopt if none does.
// expected: at least one; morePeaks: false to try no peaks beyond the expected ones.
std::optional<RegionFit> fitMultiplet(const Spectrum& spectrum, std::vector<ExpectedPeak> expected,
                                      ChannelRange range, double limit, bool morePeaks);

}  // namespace embedded::engines

#endif
