// What speaks for a peak of a fit: what the likelihood loses without it, or with an edge instead.
#ifndef PYORV3_EMBEDDED_ENGINES_PEAK_EVIDENCE_H
#define PYORV3_EMBEDDED_ENGINES_PEAK_EVIDENCE_H

#include <cstddef>
#include <optional>
#include <span>

#include "embedded/engines/peak_fit.h"

namespace embedded::engines {

// The significance of a peak of the fit: the root of twice the logarithm of the factor by which the
// likelihood of the best fit rises when the peak is allowed (S. S. Wilks, Ann. Math. Stat. 9 (1938)
// 60), by the enlargement; 0 where the area is not positive.
double likelihoodSignificance(const Spectrum& spectrum, const RegionFit& fit, std::size_t peak);

// The edge that stands for some of the peaks of the fit, about where the first of them is; nothing
// where they raise 2 ln(likelihood) by more than 9, three standard deviations, above it, or where
// it does not describe the region though the peaks do.
std::optional<ExpectedPeak> edgeInstead(const Spectrum& spectrum, const RegionFit& fit,
                                        std::span<const std::size_t> peaks);

// Gives the peaks of the fit whose areas are not many times their uncertainties the significance by
// likelihood.
void weighFaintPeaks(const Spectrum& spectrum, RegionFit& fit, double limit);

// Whether the area is known well enough to be one.
bool isCertain(const FittedPeak& peak);

// The number of the peak that the fit shows to be none: too faint, or not to be told from a
// stronger neighbour.
std::optional<std::size_t> superfluous(const RegionFit& fit, double limit);

}  // namespace embedded::engines

#endif
