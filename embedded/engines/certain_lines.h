// Corrects the energies of peaks by lines that were certainly identified.
#ifndef PYORV3_EMBEDDED_ENGINES_CERTAIN_LINES_H
#define PYORV3_EMBEDDED_ENGINES_CERTAIN_LINES_H

#include <span>
#include <vector>

#include "embedded/engines/peak_origin.h"

namespace embedded::engines {

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
