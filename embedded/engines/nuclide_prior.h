// Prior improbability of nuclides and of the X-rays of elements.
#ifndef PYORV3_EMBEDDED_ENGINES_NUCLIDE_PRIOR_H
#define PYORV3_EMBEDDED_ENGINES_NUCLIDE_PRIOR_H

#include <set>
#include <span>
#include <string_view>

#include "embedded/engines/nuclide.h"

namespace embedded::engines {

// Returns the cost of a short half-life in the sum of squares of a fit. Nuclides that decay soon
// and have no parent in the library are less probable than others.
double improbabilityOf(const Nuclide& nuclide);

// Returns the additional gain in 2 ln(likelihood) that a nuclide needs in the spectrum of a
// scintillator: 0 for natural nuclides and those of sources, industry and medicine, more for
// others, and more for those that decay fast. halfLife: seconds, of the longest-lived ancestor that
// may be present; 0 if unknown or stable.
double rarity(std::string_view nuclide, double halfLife);

// The elements whose K X-rays are expected: materials of shields and linings, and the neighbours of
// nuclides that are present, whose decay leaves excited atoms.
class ExcitedElements {
  public:
    // name: such as "Eu-152".
    void addNuclide(std::string_view name);

    double improbabilityOf(std::string_view element) const;

  private:
    std::set<std::string_view> neighbours_;
};

}  // namespace embedded::engines

#endif
