#include "embedded/engines/scintillator_identification.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "embedded/engines/nuclide_rarity.h"
#include "embedded/engines/scintillator_selection.h"

namespace embedded::engines {

namespace {

// Below this energy a peak may be the X-rays of any material.
constexpr double maxXRayEnergy = 70.0;  // keV
constexpr double xRayRarity = 30.0;
constexpr double strongPart = 0.03;  // of the strongest line's photons

constexpr double assignedPart = 0.2;  // of a peak's area
constexpr double annihilationEnergy = 510.999;

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

struct Candidates {
    std::vector<TemplateNuclide> templates;
    std::vector<std::size_t> numbers;  // in the library
};

Candidates candidates(std::span<const Nuclide> nuclides, const Calibration& calibration) {
    Candidates result;
    for (std::size_t number = 0; number < nuclides.size(); ++number) {
        auto lines = templateLines(nuclides[number], calibration);
        if (!lines.empty() && nuclides[number].name != ofDetector) {
            const double cost = rarityOf(nuclides, number, lines);
            result.templates.push_back({std::move(lines), cost});
            result.numbers.push_back(number);
        }
    }
    return result;
}

double shownEnergy(const DetectorState& state, double energy) {
    return energy * (1.0 + state.gain) + state.offset;
}

// Returns the counts of the nuclide in a peak of the spectrum, by its distance from the lines.
double countsAt(const TemplateNuclide& nuclide, double activity, const ScintillatorModel& model,
                const Calibration& calibration, double energy) {
    double sum = 0.0;
    for (const TemplateLine& line : nuclide.lines) {
        const double sigma = widthAtEnergy(calibration, line.energy) / fwhmPerSigma;
        const double distance = (energy - shownEnergy(model.state, line.energy)) / sigma;
        sum += activity * line.weight * std::exp(-0.5 * distance * distance);
    }
    return sum;
}

PeakOrigin originOf(const MeasuredPeak& peak, bool isAssigned, const Calibration& calibration) {
    const double distance = std::abs(peak.energy - annihilationEnergy);
    const bool isNear = distance < 0.25 * widthAtEnergy(calibration, annihilationEnergy);
    return isNear && !isAssigned ? PeakOrigin::annihilation : PeakOrigin::line;
}

Identification identification(const TemplateNuclide& nuclide, const Selection& selection,
                              std::size_t position) {
    const auto index = static_cast<Eigen::Index>(position);
    Identification result{};
    result.confidence = selection.confidences[position];
    result.activity = selection.model.activities[index];
    result.uncertainty = std::sqrt(selection.model.variances[index] * selection.model.misfit);
    result.energy = std::ranges::max(nuclide.lines, {}, &TemplateLine::weight).energy;
    return result;
}

void assignPeaks(Findings& findings, const Selection& selection, const Candidates& library,
                 std::span<const MeasuredPeak> peaks, std::span<const Nuclide> nuclides,
                 const Calibration& calibration, double minConfidence) {
    for (std::size_t number = 0; number < peaks.size(); ++number) {
        double maxCounts = assignedPart * peaks[number].area;
        for (std::size_t position = 0; position < selection.model.nuclides.size(); ++position) {
            const std::size_t candidate = selection.model.nuclides[position];
            const double counts =
                countsAt(library.templates[candidate],
                         selection.model.activities[static_cast<Eigen::Index>(position)],
                         selection.model, calibration, peaks[number].energy);
            const std::size_t nuclide = library.numbers[candidate];
            if (selection.confidences[position] >= minConfidence && counts > maxCounts) {
                maxCounts = counts;
                findings.assigned[number] = nuclides[nuclide].name;
            }
        }
        for (std::size_t nuclide = 0; nuclide < nuclides.size(); ++nuclide) {
            if (findings.assigned[number] == nuclides[nuclide].name) {
                findings.nuclides[nuclide].peaks.push_back(number);
            }
        }
        findings.origins[number] =
            originOf(peaks[number], !findings.assigned[number].empty(), calibration);
    }
}

}  // namespace

Findings identifyInScintillator(const Spectrum& spectrum, const Calibration& calibration,
                                std::span<const MeasuredPeak> peaks,
                                std::span<const Nuclide> nuclides, const MatchingRules& rules,
                                double limit) {
    Findings findings;
    findings.nuclides.resize(nuclides.size());
    findings.assigned.resize(peaks.size());
    findings.origins.resize(peaks.size(), PeakOrigin::line);
    const Candidates library = candidates(nuclides, calibration);
    const ScintillatorBins bins = scintillatorBins(spectrum, calibration);
    if (bins.size() == 0 || library.templates.empty()) {
        return findings;
    }
    const ScintillatorFit fit(bins, calibration, library.templates);
    const Selection selection = selectNuclides(fit, library.templates, limit);
    for (std::size_t position = 0; position < selection.model.nuclides.size(); ++position) {
        const std::size_t candidate = selection.model.nuclides[position];
        findings.nuclides[library.numbers[candidate]] =
            identification(library.templates[candidate], selection, position);
    }
    assignPeaks(findings, selection, library, peaks, nuclides, calibration, rules.minConfidence);
    return findings;
}

}  // namespace embedded::engines
