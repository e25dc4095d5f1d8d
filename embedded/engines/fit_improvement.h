// Improves a fit that does not describe its region by a tail, a width, a curvature or a peak. See
// docs/engine.md, "How the peak search works".
#ifndef PYORV3_EMBEDDED_ENGINES_FIT_IMPROVEMENT_H
#define PYORV3_EMBEDDED_ENGINES_FIT_IMPROVEMENT_H

#include "embedded/engines/peak_fit.h"

namespace embedded::engines {

// Peaks above this part of the limit stay in a fit, because the other peaks are wrong without them.
inline constexpr double keptPart = 0.8;

// Repeatedly adds the change that raises the likelihood most, until no change is worth its
// unknowns.
// limit: the significance that another peak must reach; morePeaks: false to try no other peak.
RegionFit improved(const Spectrum& spectrum, RegionFit fit, double limit, bool morePeaks);

}  // namespace embedded::engines

#endif
