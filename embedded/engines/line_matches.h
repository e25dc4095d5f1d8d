// The lines of a library matched with the peaks of a spectrum.
#ifndef PYORV3_EMBEDDED_ENGINES_LINE_MATCHES_H
#define PYORV3_EMBEDDED_ENGINES_LINE_MATCHES_H

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "embedded/engines/nuclide.h"
#include "embedded/engines/peak_origin.h"
#include "embedded/engines/response_curve.h"

namespace embedded::engines {

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
    bool keyMissing;        // a key line has no peak, and no neighbouring peak can hide it
};

// Matches each line with the nearest peak within the tolerance (keV) and 3.5 standard deviations.
// The lines must outlive the result.
std::vector<NuclideMatches> matchLines(std::span<const MeasuredPeak> peaks,
                                       std::span<const Nuclide> nuclides, double tolerance);

// Returns the difference of the energies in standard deviations.
double energyDeviation(const MeasuredPeak& peak, const ExpectedLine& line);

}  // namespace embedded::engines

#endif
