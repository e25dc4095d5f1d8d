// Correction of an energy calibration that is off: from lines of the library and of natural
// background, and from lines that were certainly identified. See docs/engine.md, "Energy
// correction".
#ifndef PYORV3_EMBEDDED_ENGINES_ENERGY_CORRECTION_H
#define PYORV3_EMBEDDED_ENGINES_ENERGY_CORRECTION_H

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "embedded/engines/calibration.h"
#include "embedded/engines/line_assignment.h"
#include "embedded/engines/line_matches.h"
#include "embedded/engines/peak_fit.h"

namespace embedded::engines {

struct EnergyCorrection {
    EnergyRelation relation{0.0, 1.0};  // from calibrated to corrected energy
    std::size_t lines = 0;              // number of lines that agree; 0: no correction
};

// Returns the peaks with a positive area, with calibrated energies in keV as positions.
std::vector<PositionedPeak> positionedPeaks(std::span<const FittedPeak> peaks,
                                            const Calibration& calibration);

// Returns the correction that explains the peaks best, or one without lines if the evidence is
// weak.
// peaks: of a detector with narrow peaks, such as germanium; nuclides: of the library, may be
// empty; their surprise is ignored.
EnergyCorrection energyCorrectionOf(std::span<const PositionedPeak> peaks,
                                    std::span<const LinePattern> nuclides);

// Corrects the energies and adapts the widths to the gain: widths in channels stay the same.
Calibration corrected(Calibration calibration, const EnergyRelation& relation);

// A line that certainly belongs to a peak; energies in keV.
struct CertainLine {
    double measured;
    double expected;
    double uncertainty;  // of their difference, without that of the calibration
};

// Adds the uncertainty of a calibration that may be off by half the tolerance.
std::vector<MeasuredPeak> withUncertainCalibration(std::span<const MeasuredPeak> peaks,
                                                   double tolerance);

// Corrects the energies by a polynomial fitted to the differences between measured and expected
// energies, and adds the scatter about it to the uncertainties. Outside the range of the lines the
// uncertainty grows. A straight line needs four lines and a parabola ten; with fewer than four
// lines the uncertainty of the calibration is added instead.
std::vector<MeasuredPeak> withCorrectedEnergies(std::span<const MeasuredPeak> peaks,
                                                std::span<const CertainLine> lines,
                                                double tolerance);

}  // namespace embedded::engines

#endif
