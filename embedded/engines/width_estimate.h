// Estimate of a width calibration from the peaks of a spectrum.
//
// The square of the FWHM of a peak is a constant (electronic noise) plus a part that is
// proportional to the energy (statistics of the charge carriers or photons). Each pair of measured
// widths (width_samples.h) proposes such a curve; the one that most of the significance of all
// samples agrees with is fitted to them. Structures wider than the curve (edges, unresolved peaks,
// the annihilation peak) count for nothing, those narrower than it count against it: a detector
// gives no peak narrower than its resolution. The typical curve of the nearest kind of detector
// counts as a further observation, which decides if there are too few peaks.
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
    DetectorKind kind;          // whose typical curve is nearest
    std::size_t peaks;          // that determine the curve; 0: it is the typical one
};

// The kind whose typical width at 662 keV is nearest to that of a shape calibration.
DetectorKind kindOf(std::span<const double> shape);

// samples: of measureWidths(); calibration: its energies must rise, its shape is ignored.
WidthEstimate estimateWidths(std::span<const WidthSample> samples, const Calibration& calibration,
                             std::size_t channelCount);

// Whether the widths that the calibration gives differ from those of the estimate by more than a
// width calibration can be wrong, at the peaks that determine the estimate. False if these are few.
bool contradictsPeaks(const Calibration& calibration, const WidthEstimate& estimate,
                      std::span<const WidthSample> samples);

}  // namespace embedded::engines

#endif
