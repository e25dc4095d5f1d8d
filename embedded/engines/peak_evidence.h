// Significance of fitted peaks: the drop in likelihood if they are removed or replaced by an edge.
// See docs/engine.md, "Fit".
#ifndef PYORV3_EMBEDDED_ENGINES_PEAK_EVIDENCE_H
#define PYORV3_EMBEDDED_ENGINES_PEAK_EVIDENCE_H

#include <cstddef>
#include <optional>
#include <span>

#include "embedded/engines/peak_fit.h"

namespace embedded::engines {

// Returns the root of the gain in 2 ln(likelihood) that the peak brings, divided by the
// enlargement; 0 if its area is not positive.
double likelihoodSignificance(const Spectrum& spectrum, const RegionFit& fit, std::size_t peak);

// Returns the edge that explains the contents as well as some of the peaks, near the first of them.
// Returns nullopt if the peaks raise 2 ln(likelihood) by more than 9, three standard deviations, or
// if only they describe the region.
std::optional<ExpectedPeak> edgeInstead(const Spectrum& spectrum, const RegionFit& fit,
                                        std::span<const std::size_t> peaks);

// Replaces the significance of faint peaks by that of the likelihood.
void weighFaintPeaks(const Spectrum& spectrum, RegionFit& fit, double limit);

// True if the area is at least twice its uncertainty.
bool isCertain(const FittedPeak& peak);

// Returns the index of a peak that is too faint or cannot be separated from a stronger neighbour.
std::optional<std::size_t> superfluous(const RegionFit& fit, double limit);

}  // namespace embedded::engines

#endif
