// Peaks that are no gamma line of a nuclide: annihilation, escape and sum peaks.
#ifndef PYORV3_EMBEDDED_ENGINES_PEAK_ORIGIN_H
#define PYORV3_EMBEDDED_ENGINES_PEAK_ORIGIN_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace embedded::engines {

// As QAR_S_PEAKORIGIN holds it.
enum class PeakOrigin : std::uint16_t { line, annihilation, singleEscape, doubleEscape, sum };

struct MeasuredPeak {
    double energy;             // keV
    double energyUncertainty;  // keV, of centroid and calibration
    double area;               // net counts
    double areaUncertainty;
};

// What each peak may be instead of a gamma line. The annihilation peak lies at 511.00 keV. An
// escape peak lies one or two times that below a peak of more than 1,022 keV, in which a photon can
// make a pair, and its part of that peak's area is at most 0.5 at 2.6 MeV and less in proportion to
// what the photon has beyond 1,022 keV. A sum peak lies at the sum of two of the ten strongest
// peaks that belong to one nuclide, or at twice one of them, and has at most a twentieth of the
// smaller area. nuclides: of each peak the name of the one to which it was assigned, or ""; empty
// for no sums. tolerance: keV. Energies agree within three standard deviations, and within the
// tolerance.
std::vector<PeakOrigin> originsOf(std::span<const MeasuredPeak> peaks,
                                  std::span<const std::string> nuclides, double tolerance);

}  // namespace embedded::engines

#endif
