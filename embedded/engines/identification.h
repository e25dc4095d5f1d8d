// Identification of nuclides by the lines that were found as peaks.
//
// All nuclides are fitted together to the areas and energies of the peaks (joint_fit.h), each with
// the response that its own lines and those of the others show (nuclide_models.h). The evidence for
// each nuclide (nuclide_evidence.h) gives its confidence. Nuclides that are certainly present then
// correct the energies (certain_lines.h) and the response, and everything is repeated.
// docs/engine.md explains the method and its allowances.
#ifndef PYORV3_EMBEDDED_ENGINES_IDENTIFICATION_H
#define PYORV3_EMBEDDED_ENGINES_IDENTIFICATION_H

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "embedded/engines/nuclide.h"
#include "embedded/engines/peak_origin.h"

namespace embedded::engines {

struct MatchingRules {
    double tolerance;                 // keV
    bool efficiencyIsAssumed;         // whether the weights come from no calibration
    double smallestConfidence = 0.0;  // of what assigns a peak and makes sums, 0 to 1
};

struct Identification {
    double confidence;   // 0 to 1
    double activity;     // in the unit of the lines' weights; 0 where nothing speaks for it
    double uncertainty;  // of the areas and of the weights of single lines
    double energy;       // keV, of the line found that has the greatest weight
    std::vector<std::size_t> peaks;  // of each line found, the index of its peak
    std::string reason;              // why the confidence is not higher
};

struct Findings {
    std::vector<Identification> nuclides;  // one for each of those asked for
    std::vector<std::string> assigned;     // of each peak the nuclide that gives most of it, or ""
    std::vector<PeakOrigin> origins;
};

// A line is found when a peak lies within the tolerance; the nearest one counts. Lines with no
// positive, finite weight do not count.
Findings identify(std::span<const MeasuredPeak> peaks, std::span<const Nuclide> nuclides,
                  const MatchingRules& rules, std::span<const Nuclide> elements = {});

}  // namespace embedded::engines

#endif
