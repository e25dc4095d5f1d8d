// Evidence for a nuclide in the joint fit. See docs/engine.md, "Confidence".
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

// The parts of each peak that prove no nuclide, 0 to 1.
struct ExplainedParts {
    std::vector<double> beyondDoubt;  // from nuclides that are certainly present
    std::vector<double> xRays;        // the largest part that expected X-rays may have
};

// Returns the evidence for a nuclide that has an activity in the fit. tolerance: keV.
NuclideEvidence evidenceOf(std::size_t nuclide, JointFit& fit, const JointFitInput& input,
                           const ExplainedParts& explained, double tolerance);

}  // namespace embedded::engines

#endif
