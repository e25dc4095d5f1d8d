// How unlikely a nuclide is before anything is measured.
#ifndef PYORV3_EMBEDDED_ENGINES_NUCLIDE_RARITY_H
#define PYORV3_EMBEDDED_ENGINES_NUCLIDE_RARITY_H

#include <string_view>

namespace embedded::engines {

// Returns by how much the presence of the nuclide must raise 2 ln(likelihood) more than that of a
// nuclide in everyday use: 0 for natural nuclides and those of sources, industry and medicine, more
// for others, and the more the faster they decay. halfLife: seconds, of the longest-lived ancestor
// that may be present; 0 if it is unknown or the nuclide is stable.
double rarity(std::string_view nuclide, double halfLife);

}  // namespace embedded::engines

#endif
