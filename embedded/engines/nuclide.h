// A nuclide and the lines that a measurement is expected to show; K X-rays; and how probable
// nuclides and X-rays are before a measurement.
#ifndef PYORV3_EMBEDDED_ENGINES_NUCLIDE_H
#define PYORV3_EMBEDDED_ENGINES_NUCLIDE_H

#include <cmath>
#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace embedded::engines {

inline constexpr double hour = 3600.0;  // seconds

struct ExpectedLine {
    double energy;             // keV
    double energyUncertainty;  // keV
    double weight;             // expected net counts for an activity of 1
    double weightUncertainty;  // relative, of this line alone, such as that of its yield
    double detectionLimit;     // net counts below which the line may be missed; may be infinite
    bool key;                  // the nuclide is not identified without this line
    // Relative, of the correction of coincidence summing; all lines share the sign convention.
    double summingUncertainty = 0.0;
};

struct Nuclide {
    std::string name;
    std::vector<ExpectedLine> lines;
    std::optional<std::size_t> parent;  // index in the library, if the parent lives longer
    double halfLife = 0.0;              // seconds; 0 if it is unknown or stable
};

// False for a line whose weight is zero, negative or not finite; such a line is ignored.
inline bool isUsable(const ExpectedLine& line) {
    return std::isfinite(line.weight) && line.weight > 0.0;
}

// A K X-ray of an element. Materials near any source emit them.
struct XRayLine {
    double energy;     // keV
    double intensity;  // relative to K alpha 1
};

struct XRayElement {
    std::string_view symbol;
    std::vector<XRayLine> lines;
};

// Zinc to curium, in the order of the periodic table.
std::span<const XRayElement> xRayElements();

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
    // name: such as "Eu-152"; must outlive the object.
    void addNuclide(std::string_view name);

    double improbabilityOf(std::string_view element) const;

    // True if its X-rays are expected without this nuclide.
    bool isExpectedWithout(std::string_view nuclide, std::string_view element) const;

  private:
    std::map<std::string_view, std::set<std::string_view>> nuclides_;  // of each element
};

}  // namespace embedded::engines

#endif
