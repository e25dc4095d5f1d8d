// Estimate of a width calibration from the peaks of a spectrum. The square of the FWHM is a
// constant (electronic noise) plus a part proportional to the energy (statistics of the charge
// carriers or photons). See docs/engine.md, "Widths".
#ifndef PYORV3_EMBEDDED_ENGINES_WIDTH_ESTIMATE_H
#define PYORV3_EMBEDDED_ENGINES_WIDTH_ESTIMATE_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "embedded/engines/calibration.h"
#include "embedded/engines/width_samples.h"

namespace embedded::engines {

// The values are those of QAR_S_DETECTORKIND.
enum class DetectorKind : std::uint16_t {
    unknown = 0,
    germanium = 1,
    cadmiumZincTelluride = 2,
    lanthanumBromide = 3,
    sodiumIodide = 4,  // and caesium iodide
    bismuthGermanate = 5
};

struct WidthEstimate {
    std::vector<double> shape;  // (FWHM / keV)^2 = polynomial in the energy / keV
    DetectorKind kind;          // kind of detector with the nearest typical curve
    std::size_t peaks;          // number that determine the curve; 0: typical curve
};

// Returns the kind of detector whose typical width at 662 keV is nearest to a shape calibration.
DetectorKind kindOf(std::span<const double> shape);

// Estimates the width calibration.
// samples: of measureWidths(); calibration: its energies must rise, its shape is ignored.
WidthEstimate estimateWidths(std::span<const WidthSample> samples, const Calibration& calibration,
                             std::size_t channelCount);

// True if the calibrated widths contradict the estimate at the peaks that determine it. False if
// there are few such peaks.
bool contradictsPeaks(const Calibration& calibration, const WidthEstimate& estimate,
                      std::span<const WidthSample> samples);

}  // namespace embedded::engines

#endif
