// Prior improbability of a nuclide in a scintillator spectrum.
#ifndef PYORV3_EMBEDDED_ENGINES_NUCLIDE_RARITY_H
#define PYORV3_EMBEDDED_ENGINES_NUCLIDE_RARITY_H

#include <string_view>

namespace embedded::engines {

// Returns the additional gain in 2 ln(likelihood) that the nuclide needs: 0 for natural nuclides
// and those of sources, industry and medicine, more for others, and more for those that decay fast.
// halfLife: seconds, of the longest-lived ancestor that may be present; 0 if unknown or stable.
double rarity(std::string_view nuclide, double halfLife);

}  // namespace embedded::engines

#endif
