// What a fit lacks that does not describe its region: the data choose a width of its own for a lone
// peak, the tail, a curved continuum or another peak, whichever raises the likelihood most beyond
// what it costs in unknowns, as long as something does.
#ifndef PYORV3_EMBEDDED_ENGINES_FIT_IMPROVEMENT_H
#define PYORV3_EMBEDDED_ENGINES_FIT_IMPROVEMENT_H

#include "embedded/engines/peak_fit.h"

namespace embedded::engines {

// Peaks with this part of the limit stay in a fit, for the others come out wrong without them.
inline constexpr double keptPart = 0.8;

// limit: the significance that another peak must reach; morePeaks: whether any is tried.
RegionFit improved(const Spectrum& spectrum, RegionFit fit, double limit, bool morePeaks);

}  // namespace embedded::engines

#endif
