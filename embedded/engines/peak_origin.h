// Peaks that are not gamma lines of a nuclide: annihilation, escape and sum peaks.
#ifndef PYORV3_EMBEDDED_ENGINES_PEAK_ORIGIN_H
#define PYORV3_EMBEDDED_ENGINES_PEAK_ORIGIN_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace embedded::engines {

// The values of QAR_S_PEAKORIGIN.
enum class PeakOrigin : std::uint16_t { line, annihilation, singleEscape, doubleEscape, sum, xRay };

struct MeasuredPeak {
    double energy;             // keV
    double energyUncertainty;  // keV, of centroid and calibration
    double area;               // net counts
    double areaUncertainty;
    double width = 0.0;  // FWHM in keV; 0 if it is unknown
};

// The nuclide or element to which a peak was assigned.
struct PeakSource {
    std::string name;  // of the nuclide or element; "" if nothing explains the peak
    bool isXRay = false;
};

// Returns the possible origin of each peak other than a gamma line: annihilation, escape or sum.
// See docs/engine.md, "Peaks that are not gamma lines".
// sources: of each peak; tolerance: keV, the largest difference of energies that agree.
std::vector<PeakOrigin> originsOf(std::span<const MeasuredPeak> peaks,
                                  std::span<const PeakSource> sources, double tolerance);

}  // namespace embedded::engines

#endif
