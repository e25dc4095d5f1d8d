// K X-rays of the elements. Materials near any source emit them.
#ifndef PYORV3_EMBEDDED_ENGINES_X_RAY_LINES_H
#define PYORV3_EMBEDDED_ENGINES_X_RAY_LINES_H

#include <span>
#include <string_view>
#include <vector>

namespace embedded::engines {

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

}  // namespace embedded::engines

#endif
