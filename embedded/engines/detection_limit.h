// Detection limits after L. A. Currie, Anal. Chem. 40 (1968) 586.
#ifndef PYORV3_EMBEDDED_ENGINES_DETECTION_LIMIT_H
#define PYORV3_EMBEDDED_ENGINES_DETECTION_LIMIT_H

#include "embedded/engines/multiplet.h"

namespace embedded::engines {

// Net counts that a signal must have to be detected reliably over a background that is itself known
// from one equal observation: k^2 + 2 k sqrt(2 background), Currie's 2.71 + 4.65 sqrt(background)
// for k = 1.645. background: counts, not negative; k: standard deviations, for both kinds of error.
double detectionLimit(double background, double k);

// The detection limit for a peak centred at the channel, where none was found: the background is
// the contents within 1.25 FWHM on each side. Infinite where no peak can be looked for.
double detectionLimitAt(const Spectrum& spectrum, double channel, double k);

}  // namespace embedded::engines

#endif
