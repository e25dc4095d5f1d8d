// The activities of the nuclides that were found.
#ifndef PYORV3_EMBEDDED_ENGINES_ACTIVITIES_H
#define PYORV3_EMBEDDED_ENGINES_ACTIVITIES_H

#include <vector>

#include "embedded/engines/identification.h"
#include "embedded/engines/joint_fit.h"

namespace embedded::engines {

// Fits the nuclides whose confidence is at least minConfidence to the areas of the peaks. Only
// the uncertainties of the areas and of single weights count. If the lines of a nuclide disagree by
// more, its uncertainty is enlarged by the root of chi-square per degree of freedom.
// Sets activity and uncertainty; 0 for the other nuclides.
void measureActivities(std::vector<Identification>& nuclides, const JointFitInput& input,
                       double minConfidence);

}  // namespace embedded::engines

#endif
