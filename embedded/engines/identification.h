// Identification of nuclides from the peaks of a spectrum. All nuclides are fitted together to the
// peaks; the fit is repeated with corrected energies and responses, and the part of each nuclide in
// it is evidence. See docs/engine.md, "How the identification works" and "Confidence".
#ifndef PYORV3_EMBEDDED_ENGINES_IDENTIFICATION_H
#define PYORV3_EMBEDDED_ENGINES_IDENTIFICATION_H

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "embedded/engines/line_matches.h"
#include "embedded/engines/nuclide.h"

namespace embedded::engines {

struct MatchingRules {
    double tolerance;            // keV
    bool efficiencyIsAssumed;    // true if there is no efficiency calibration
    double minConfidence = 0.0;  // of nuclides that get peaks and sums, 0 to 1
};

struct Identification {
    double confidence;               // 0 to 1
    double activity;                 // in the unit of the lines' weights; 0 if there is no evidence
    double uncertainty;              // from the areas and the weights of single lines
    double energy;                   // keV, of the line found that has the greatest weight
    std::vector<std::size_t> peaks;  // index of the peak of each line found
    std::string reason;              // why the confidence is not higher
};

struct Findings {
    std::vector<Identification> nuclides;  // one for each nuclide of the library
    std::vector<std::string> assigned;     // nuclide with the largest share of each peak, or ""
    std::vector<PeakOrigin> origins;
};

// Identifies the nuclides. A line is found if a peak is within the tolerance; the nearest one
// counts. Lines without a positive, finite weight are ignored.
Findings identify(std::span<const MeasuredPeak> peaks, std::span<const Nuclide> nuclides,
                  const MatchingRules& rules, std::span<const Nuclide> elements = {});

}  // namespace embedded::engines

#endif
