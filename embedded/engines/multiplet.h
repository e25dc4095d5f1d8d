// A group of neighbouring peaks: which of the expected ones are there, and which are missing.
//
// All are fitted together; the least significant is dropped and the rest fitted again until each
// that is left reaches the limit. Where the model then does not describe the region, the region is
// narrowed; if that does not help either, another peak is tried where the residuals have their most
// significant second difference, so that close doublets are resolved.
#ifndef PYORV3_EMBEDDED_ENGINES_MULTIPLET_H
#define PYORV3_EMBEDDED_ENGINES_MULTIPLET_H

#include <optional>
#include <span>
#include <vector>

#include "embedded/engines/peak_fit.h"

namespace embedded::engines {

// Both of all channels, channel 1 first; not owned.
struct Spectrum {
    std::span<const double> contents;
    std::span<const double> widths;  // calibrated FWHM in channels; 0 where no peak is looked for
};

// Channels that a fit may use; beyond them are the peaks of other groups.
struct ChannelRange {
    double lowest;
    double highest;
};

// What is expected at the channels, which are clamped to the spectrum; channels where no peak is
// looked for are left out.
std::vector<ExpectedPeak> expectedAt(const Spectrum& spectrum, std::span<const double> channels);

// The fit in which every peak reaches the limit; nothing where none does.
// expected: at least one.
std::optional<RegionFit> fitMultiplet(const Spectrum& spectrum, std::vector<ExpectedPeak> expected,
                                      ChannelRange range, double limit);

}  // namespace embedded::engines

#endif
