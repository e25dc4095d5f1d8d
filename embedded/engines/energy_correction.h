// Correction of an energy calibration that is off, from lines that are known to be certain.
//
// The lines of the nuclides of the library and those of natural background are assigned to the
// peaks (line_assignment.h) under small departures from the calibration. It is corrected only if
// the assignment explains the peaks far better than the calibration as it is and than any other
// departure, with three lines at least. X-rays do not count.
#ifndef PYORV3_EMBEDDED_ENGINES_ENERGY_CORRECTION_H
#define PYORV3_EMBEDDED_ENGINES_ENERGY_CORRECTION_H

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "embedded/engines/calibration.h"
#include "embedded/engines/line_assignment.h"
#include "embedded/engines/peak_fit.h"
#include "embedded/engines/width_estimate.h"

namespace embedded::engines {

struct EnergyCorrection {
    EnergyRelation relation{0.0, 1.0};  // corrected energy of a calibrated energy
    std::size_t lines = 0;              // that agree; 0: there is no correction
};

// The peaks with their positions in keV of the calibration; those without counts are left out.
std::vector<PlacedPeak> placedPeaks(std::span<const FittedPeak> peaks,
                                    const Calibration& calibration);

// nuclides: of the library, may be empty; their surprise is ignored. kind: limits how far a
// calibration can be off: for germanium 6 keV and 0.8 %, for other detectors 40 keV and 10 %.
EnergyCorrection energyCorrectionOf(std::span<const PlacedPeak> peaks,
                                    std::span<const LinePattern> nuclides, DetectorKind kind);

Calibration corrected(Calibration calibration, const EnergyRelation& relation);

}  // namespace embedded::engines

#endif
