// Finds what a fit that does not describe its region lacks: a tail, a width, a curvature or a peak.
// See docs/engine.md, "How it works".
#ifndef PYORV3_EMBEDDED_ENGINES_FIT_IMPROVEMENT_H
#define PYORV3_EMBEDDED_ENGINES_FIT_IMPROVEMENT_H

#include "embedded/engines/peak_fit.h"

namespace embedded::engines {

// Peaks with this part of the limit stay in a fit, because the others are wrong without them.
inline constexpr double keptPart = 0.8;

// Adds what raises the likelihood most beyond what it costs in unknowns, as long as anything does.
// limit: the significance that another peak must reach; morePeaks: false to try no other peak.
RegionFit improved(const Spectrum& spectrum, RegionFit fit, double limit, bool morePeaks);

}  // namespace embedded::engines

#endif
