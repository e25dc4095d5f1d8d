#include "embedded/engines/nuclide_rarity.h"

#include <algorithm>
#include <array>

namespace embedded::engines {

namespace {

constexpr auto everyday = std::to_array<std::string_view>({
    // natural
    "K-40",
    "Pb-210",
    "Pb-212",
    "Pb-214",
    "Bi-212",
    "Bi-214",
    "Tl-208",
    "Ac-228",
    "Th-228",
    "Lu-176",
    // test sources and industry
    "Na-22",
    "Mn-54",
    "Co-57",
    "Co-60",
    "Se-75",
    "Ba-133",
    "Cs-134",
    "Cs-137",
    "Eu-152",
    "Yb-169",
    "Ir-192",
    "Am-241",
    // medicine
    "F-18",
    "Ga-67",
    "Tc-99m",
    "In-111",
    "I-123",
    "I-131",
    "Xe-133",
    "Lu-177",
    "Tl-201",
    // nuclear material
    "U-233",
    "U-235",
    "U-238",
    "Np-237",
    "Pu-239",
});

constexpr double hour = 3600.0;
constexpr double day = 24.0 * hour;

struct Step {
    double halfLife;  // at least
    double rarity;
};
constexpr std::array<Step, 4> steps = {
    {{30.0 * day, 14.0}, {day, 18.0}, {hour, 22.0}, {0.0, 26.0}}};

}  // namespace

double rarity(std::string_view nuclide, double halfLife) {
    if (std::ranges::find(everyday, nuclide) != everyday.end()) {
        return 0.0;
    }
    if (!(halfLife > 0.0)) {
        return steps.front().rarity;
    }
    return std::ranges::find_if(steps,
                                [halfLife](const Step& step) { return halfLife >= step.halfLife; })
        ->rarity;
}

}  // namespace embedded::engines
