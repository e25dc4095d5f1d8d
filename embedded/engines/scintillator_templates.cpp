#include "embedded/engines/scintillator_templates.h"

#include <algorithm>
#include <cmath>

#include "embedded/engines/nuclide_prior.h"
#include "embedded/engines/scintillator_response.h"

namespace embedded::engines {

namespace {

// Below this energy a peak may be the X-rays of any material.
constexpr double maxXRayEnergy = 70.0;  // keV
constexpr double xRayRarity = 30.0;
constexpr double strongPart = 0.03;  // of the strongest line's photons

// Lanthanum bromide contains lanthanum-138, which the fit describes as part of the detector.
constexpr const char* ofDetector = "La-138";

std::vector<TemplateLine> templateLines(const Nuclide& nuclide, const Calibration& calibration) {
    std::vector<TemplateLine> lines;
    for (const ExpectedLine& line : nuclide.lines) {
        double weight = line.weight;
        if (calibration.efficiency.empty()) {
            weight *= scintillatorEfficiency(line.energy) / efficiencyAt(calibration, line.energy);
        }
        if (std::isfinite(weight) && weight > 0.0) {
            lines.push_back({line.energy, weight});
        }
    }
    std::ranges::sort(lines, std::ranges::less(), &TemplateLine::energy);
    return lines;
}

double rarityOf(std::span<const Nuclide> nuclides, std::size_t number,
                std::span<const TemplateLine> lines) {
    std::size_t ancestor = number;
    while (nuclides[ancestor].parent) {  // each lives longer, so there is no cycle
        ancestor = *nuclides[ancestor].parent;
    }
    const double common = rarity(nuclides[number].name, nuclides[ancestor].halfLife);
    const double strongest = std::ranges::max(lines, {}, &TemplateLine::weight).weight;
    const bool isXRay = std::ranges::none_of(lines, [strongest](const TemplateLine& line) {
        return line.energy > maxXRayEnergy && line.weight > strongPart * strongest;
    });
    return common > 0.0 && isXRay ? common + xRayRarity : common;
}

}  // namespace

ScintillatorTemplates scintillatorTemplates(std::span<const Nuclide> nuclides,
                                            const Calibration& calibration) {
    ScintillatorTemplates result;
    for (std::size_t number = 0; number < nuclides.size(); ++number) {
        auto lines = templateLines(nuclides[number], calibration);
        if (!lines.empty() && nuclides[number].name != ofDetector) {
            const double cost = rarityOf(nuclides, number, lines);
            result.nuclides.push_back({std::move(lines), cost});
            result.numbers.push_back(number);
        }
    }
    return result;
}

}  // namespace embedded::engines
