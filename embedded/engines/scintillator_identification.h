// Identification of nuclides in the spectrum of a scintillator.
//
// Lines of a scintillator overlap, so single peaks are weak evidence. Nuclides are therefore fitted
// to the spectrum instead of to its peaks. See docs/engine.md, "Scintillators".
#ifndef PYORV3_EMBEDDED_ENGINES_SCINTILLATOR_IDENTIFICATION_H
#define PYORV3_EMBEDDED_ENGINES_SCINTILLATOR_IDENTIFICATION_H

#include <span>

#include "embedded/engines/calibration.h"
#include "embedded/engines/identification.h"
#include "embedded/engines/spectrum.h"

namespace embedded::engines {

// Returns the same as `identify`. A peak is assigned to the nuclide with the largest share.
// limit: significance, in standard deviations, at which a nuclide without competitors has a
// confidence of one half.
Findings identifyInScintillator(const Spectrum& spectrum, const Calibration& calibration,
                                std::span<const MeasuredPeak> peaks,
                                std::span<const Nuclide> nuclides, const MatchingRules& rules,
                                double limit);

}  // namespace embedded::engines

#endif
