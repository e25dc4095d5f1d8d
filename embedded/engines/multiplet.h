// A group of neighbouring peaks: which of the expected ones are there, and which are missing.
//
// All are fitted together in the widest region; the least significant is dropped and the rest
// fitted again until each that is left reaches the limit. Where the model then does not describe
// the region, it is improved (fit_improvement.h). Only after that the region is narrowed. What
// reads as peaks but is the rounded shoulder of a step in the continuum, such as a Compton edge, is
// told apart in the widest region.
#ifndef PYORV3_EMBEDDED_ENGINES_MULTIPLET_H
#define PYORV3_EMBEDDED_ENGINES_MULTIPLET_H

#include <optional>
#include <vector>

#include "embedded/engines/peak_fit.h"

namespace embedded::engines {

// Channels that a fit may use; beyond them are the peaks of other groups.
struct ChannelRange {
    double lowest;
    double highest;
};

// A first look, with Gaussians on a straight continuum in the widest region.
std::optional<RegionFit> fitCoarsely(const Spectrum& spectrum, std::vector<ExpectedPeak> expected,
                                     ChannelRange range, double limit);

// The fit in which every peak reaches the limit; nothing where none does.
// expected: at least one; morePeaks: whether peaks beyond the expected ones are tried.
std::optional<RegionFit> fitMultiplet(const Spectrum& spectrum, std::vector<ExpectedPeak> expected,
                                      ChannelRange range, double limit, bool morePeaks);

}  // namespace embedded::engines

#endif
