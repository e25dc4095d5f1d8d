#include "embedded/engines/nuclide_prior.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

#include "embedded/engines/x_ray_lines.h"

namespace embedded::engines {

namespace {

struct HalfLifePrior {
    double halfLife;  // seconds; of nuclides that live shorter
    double squares;
};
constexpr std::array halfLives = {HalfLifePrior{3600.0, 12.0}, HalfLifePrior{86400.0, 6.0}};

constexpr double unexpectedElement = 9.0;
constexpr std::array<std::string_view, 3> materials = {"Cd", "Sn", "Pb"};

// Elements excited by decay and fluorescence: from two before the nuclide to one after it.
constexpr std::ptrdiff_t before = 2;
constexpr std::ptrdiff_t after = 1;

}  // namespace

double improbabilityOf(const Nuclide& nuclide) {
    if (nuclide.halfLife <= 0.0 || nuclide.parent) {
        return 0.0;
    }
    const auto* const row = std::ranges::find_if(
        halfLives, [&](const HalfLifePrior& one) { return nuclide.halfLife < one.halfLife; });
    return row == halfLives.end() ? 0.0 : row->squares;
}

void ExcitedElements::addNuclide(std::string_view name) {
    const std::span<const XRayElement> elements = xRayElements();
    const std::string_view symbol = name.substr(0, name.find('-'));
    const auto own = std::ranges::find(elements, symbol, &XRayElement::symbol);
    for (auto element = elements.begin(); own != elements.end() && element != elements.end();
         ++element) {
        if (element - own >= -before && element - own <= after) {
            neighbours_.insert(element->symbol);
        }
    }
}

double ExcitedElements::improbabilityOf(std::string_view element) const {
    const bool isExpected =
        neighbours_.contains(element) || std::ranges::find(materials, element) != materials.end();
    return isExpected ? 0.0 : unexpectedElement;
}

}  // namespace embedded::engines
