// Lines and peaks that belong together, and peaks that are not gamma lines of a nuclide.
#ifndef PYORV3_EMBEDDED_ENGINES_LINE_MATCHES_H
#define PYORV3_EMBEDDED_ENGINES_LINE_MATCHES_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "embedded/engines/nuclide.h"
#include "embedded/engines/response_curve.h"

namespace embedded::engines {

// The cause of a peak: a gamma line of a nuclide, or another one. The values are those of
// QAR_S_PEAKORIGIN.
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

// A line and its peak, if one was found.
struct LineResult {
    const ExpectedLine* line;
    std::optional<std::size_t> peak;
    double limit;  // net counts below which the line may be missed, also behind a neighbouring peak
    ResponseVector terms;  // of the line's energy
};

// The usable lines of one nuclide.
struct NuclideMatches {
    std::vector<LineResult> lines;
    std::size_t peakCount;  // number of different peaks that match a line
};

// Matches each line with the nearest peak within the tolerance (keV) and 3.5 standard deviations.
// The lines must outlive the result.
std::vector<NuclideMatches> matchLines(std::span<const MeasuredPeak> peaks,
                                       std::span<const Nuclide> nuclides, double tolerance);

// Returns the difference of the energies in standard deviations.
double energyDeviation(const MeasuredPeak& peak, const ExpectedLine& line);

}  // namespace embedded::engines

#endif
