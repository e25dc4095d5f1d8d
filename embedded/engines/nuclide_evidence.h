// Evidence for a nuclide from its part in a joint fit. See docs/engine.md, "Confidence".
#ifndef PYORV3_EMBEDDED_ENGINES_NUCLIDE_EVIDENCE_H
#define PYORV3_EMBEDDED_ENGINES_NUCLIDE_EVIDENCE_H

#include <cstddef>
#include <string>
#include <vector>

#include "embedded/engines/joint_fit.h"

namespace embedded::engines {

struct NuclideEvidence {
    double confidence = 0.0;  // 0 to 1
    std::string reason;       // why the confidence is not higher
};

// The part of each peak that is explained beyond doubt, 0 to 1.
using ExplainedParts = std::vector<double>;

// Returns the evidence for a nuclide that has an activity in the fit.
// explained: by nuclides that are certainly present; tolerance: keV.
NuclideEvidence evidenceOf(std::size_t nuclide, JointFit& fit, const JointFitInput& input,
                           const ExplainedParts& explained, double tolerance);

}  // namespace embedded::engines

#endif
