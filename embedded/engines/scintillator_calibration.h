// Correction of the energy calibration of a scintillator from the nuclides that explain its
// spectrum. See docs/engine.md, "Energy correction".
#ifndef PYORV3_EMBEDDED_ENGINES_SCINTILLATOR_CALIBRATION_H
#define PYORV3_EMBEDDED_ENGINES_SCINTILLATOR_CALIBRATION_H

#include <span>

#include "embedded/engines/calibration.h"
#include "embedded/engines/energy_correction.h"
#include "embedded/engines/nuclide.h"
#include "embedded/engines/spectrum.h"

namespace embedded::engines {

// Fits nuclides in everyday use to the spectrum with a calibration that may be off by 10 %. Peaks,
// Compton edges and backscatter must agree in position, so a single line is enough. Returns no
// correction if any nuclides of the library explain the spectrum as well without one.
EnergyCorrection scintillatorCorrection(const Spectrum& spectrum, const Calibration& calibration,
                                        std::span<const Nuclide> nuclides);

}  // namespace embedded::engines

#endif
