#include "embedded/engines/scintillator_calibration.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <vector>

#include "embedded/engines/scintillator_selection.h"
#include "embedded/engines/scintillator_templates.h"

namespace embedded::engines {

namespace {

constexpr double offsetDeviation = 8.0;  // keV
constexpr double gainDeviation = 0.033;
constexpr double broadeningDeviation = 0.08;

// Distance of the gains at which the search starts, in the resolution.
constexpr double gainStep = 0.4;
constexpr double maxGain = 0.085;

constexpr std::size_t maxStarts = 8;

constexpr double strongPart = 0.2;  // of the strongest line
// A smaller correction in FWHM is left to the identification.
constexpr double minShift = 0.05;

std::vector<double> startGains(const Calibration& calibration) {
    const double step = gainStep * resolution(calibration);
    std::vector<double> gains = {0.0};
    for (double gain = step; gain <= maxGain; gain += step) {
        gains.push_back(gain);
        gains.push_back(-gain);
    }
    return gains;
}

std::vector<double> strongLines(const ScintillatorModel& model,
                                std::span<const TemplateNuclide> nuclides) {
    std::vector<double> energies;
    for (const std::size_t nuclide : model.nuclides) {
        const auto& lines = nuclides[nuclide].lines;
        const double strongest = std::ranges::max(lines, {}, &TemplateLine::weight).weight;
        for (const TemplateLine& line : lines) {
            if (line.weight >= strongPart * strongest) {
                energies.push_back(line.energy);
            }
        }
    }
    return energies;
}

}  // namespace

EnergyCorrection scintillatorCorrection(const Spectrum& spectrum, const Calibration& calibration,
                                        std::span<const Nuclide> nuclides) {
    const ScintillatorTemplates library = scintillatorTemplates(nuclides, calibration);
    const ScintillatorBins bins = scintillatorBins(spectrum, calibration);
    if (bins.size() == 0 || library.nuclides.empty()) {
        return {};
    }
    std::vector<TemplateNuclide> everyday;
    std::ranges::copy_if(library.nuclides, std::back_inserter(everyday),
                         [](const TemplateNuclide& one) { return !(one.rarity > 0.0); });
    const ScintillatorFit wide(bins, calibration,
                               {offsetDeviation, gainDeviation, broadeningDeviation}, everyday);
    const ScintillatorModel model = bestModel(wide, everyday, startGains(calibration), maxStarts);
    if (model.nuclides.empty()) {
        return {};
    }
    const ScintillatorFit usual(bins, calibration, usualDeviations(calibration), library.nuclides);
    const std::vector<double> unchangedGains = {0.0};
    const ScintillatorModel unchanged = bestModel(usual, library.nuclides, unchangedGains, 2);
    const double misfit = std::min(model.misfit, unchanged.misfit);
    if (cost(model, everyday, misfit) >= cost(unchanged, library.nuclides, misfit)) {
        return {};
    }
    const std::vector<double> lines = strongLines(model, everyday);
    const double gain = 1.0 + model.state.gain;
    const EnergyRelation relation = {-model.state.offset / gain, 1.0 / gain};
    const bool isSmall = std::ranges::all_of(lines, [&](double energy) {
        return std::abs(relation.positionOf(energy) - energy) <
               minShift * widthAtEnergy(calibration, energy);
    });
    return isSmall ? EnergyCorrection{} : EnergyCorrection{relation, lines.size()};
}

}  // namespace embedded::engines
