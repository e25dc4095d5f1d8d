// A nuclide and the lines that a measurement is expected to show.
#ifndef PYORV3_EMBEDDED_ENGINES_NUCLIDE_H
#define PYORV3_EMBEDDED_ENGINES_NUCLIDE_H

#include <cmath>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace embedded::engines {

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

}  // namespace embedded::engines

#endif
