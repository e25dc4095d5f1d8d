// How the energies of peaks differ from those of the lines that they certainly are.
#ifndef PYORV3_EMBEDDED_ENGINES_CERTAIN_LINES_H
#define PYORV3_EMBEDDED_ENGINES_CERTAIN_LINES_H

#include <span>
#include <vector>

#include "embedded/engines/peak_origin.h"

namespace embedded::engines {

// A line that certainly is a peak; energies in keV.
struct CertainLine {
    double measured;
    double expected;
    double uncertainty;  // of their difference, without that of the calibration
};

// The energy calibration may be off by half the tolerance.
std::vector<MeasuredPeak> withUncertainCalibration(std::span<const MeasuredPeak> peaks,
                                                   double tolerance);

// Corrects the energies by a polynomial through the differences, weighted with their certainty, and
// adds their scatter about it to the uncertainties. Beyond the lines the uncertainty grows. Needs
// four lines for a straight line and ten for a parabola; with fewer the calibration is uncertain.
std::vector<MeasuredPeak> withCorrectedEnergies(std::span<const MeasuredPeak> peaks,
                                                std::span<const CertainLine> lines,
                                                double tolerance);

}  // namespace embedded::engines

#endif
