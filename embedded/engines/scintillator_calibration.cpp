#include "embedded/engines/scintillator_calibration.h"

#include <algorithm>
#include <array>
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
constexpr std::array unchangedGain = {0.0};
constexpr std::size_t unchangedStarts = 2;

constexpr double strongPart = 0.2;  // of the strongest line
constexpr double minShift = 0.05;   // FWHM; the identification tolerates smaller ones

std::vector<double> startGains(const Calibration& calibration) {
    const double step = gainStep * resolution(calibration);
    std::vector<double> gains = {0.0};
    const int steps = static_cast<int>(maxGain / step);
    for (int number = 1; number <= steps; ++number) {
        gains.push_back(number * step);
        gains.push_back(-number * step);
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

std::vector<TemplateNuclide> everydayNuclides(std::span<const TemplateNuclide> nuclides) {
    std::vector<TemplateNuclide> everyday;
    std::ranges::copy_if(nuclides, std::back_inserter(everyday),
                         [](const TemplateNuclide& one) { return !(one.rarity > 0.0); });
    return everyday;
}

// Returns no correction if the identification tolerates the departure.
EnergyCorrection correctionOf(const DetectorState& state, const std::vector<double>& lines,
                              const Calibration& calibration) {
    const double gain = 1.0 + state.gain;
    const EnergyRelation relation = {-state.offset / gain, 1.0 / gain};
    const bool isSmall = std::ranges::all_of(lines, [&](double energy) {
        return std::abs(relation.positionOf(energy) - energy) <
               minShift * widthAtEnergy(calibration, energy);
    });
    return isSmall ? EnergyCorrection{} : EnergyCorrection{relation, lines.size()};
}

}  // namespace

EnergyCorrection scintillatorCorrection(const Spectrum& spectrum, const Calibration& calibration,
                                        std::span<const Nuclide> nuclides) {
    const std::vector<TemplateNuclide> all = scintillatorTemplates(nuclides, calibration).nuclides;
    const std::vector<TemplateNuclide> everyday = everydayNuclides(all);
    const ScintillatorBins bins = scintillatorBins(spectrum, calibration);
    if (bins.size() == 0 || everyday.empty()) {
        return {};
    }
    const ScintillatorFit wide(bins, calibration,
                               {offsetDeviation, gainDeviation, broadeningDeviation}, everyday);
    const ScintillatorModel model = bestModel(wide, everyday, startGains(calibration), maxStarts);
    if (model.nuclides.empty()) {
        return {};
    }
    const ScintillatorFit narrow(bins, calibration, usualDeviations(calibration), all);
    const ScintillatorModel unchanged = bestModel(narrow, all, unchangedGain, unchangedStarts);
    const double misfit = std::min(model.misfit, unchanged.misfit);
    if (cost(model, everyday, misfit) >= cost(unchanged, all, misfit)) {
        return {};
    }
    return correctionOf(model.state, strongLines(model, everyday), calibration);
}

}  // namespace embedded::engines
