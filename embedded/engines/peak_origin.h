// Peaks that are no gamma line of a nuclide: annihilation, escape and sum peaks.
#ifndef PYORV3_EMBEDDED_ENGINES_PEAK_ORIGIN_H
#define PYORV3_EMBEDDED_ENGINES_PEAK_ORIGIN_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace embedded::engines {

// As QAR_S_PEAKORIGIN holds it.
enum class PeakOrigin : std::uint16_t { line, annihilation, singleEscape, doubleEscape, sum, xRay };

struct MeasuredPeak {
    double energy;             // keV
    double energyUncertainty;  // keV, of centroid and calibration
    double area;               // net counts
    double areaUncertainty;
    double width = 0.0;  // FWHM in keV; 0 if it is unknown
};

// What a peak was assigned to.
struct PeakSource {
    std::string name;  // of the nuclide or element; "" if nothing explains the peak
    bool isXRay = false;
};

// What each peak may be instead of a gamma line. The annihilation peak is at 511.00 keV. An escape
// peak is one or two times that below a peak of more than 1,022 keV, in which a photon can make a
// pair, and its part of that peak's area is at most 0.5 at 2.6 MeV and less in proportion to the
// photon's energy beyond 1,022 keV. A sum peak is at the sum of two peaks. If both belong to one
// nuclide or one of them is an X-ray, they may come from one decay: then the sum has at most the
// area of either peak times the largest efficiency at the other. Two other peaks may pile up: then
// it has at most 0.2 % of the smaller area. sources: of each peak. tolerance: keV. Energies agree
// within three standard deviations, and within the tolerance.
std::vector<PeakOrigin> originsOf(std::span<const MeasuredPeak> peaks,
                                  std::span<const PeakSource> sources, double tolerance);

}  // namespace embedded::engines

#endif
