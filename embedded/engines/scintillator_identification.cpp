#include "embedded/engines/scintillator_identification.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "embedded/engines/scintillator_selection.h"
#include "embedded/engines/scintillator_templates.h"

namespace embedded::engines {

namespace {

constexpr double assignedPart = 0.2;  // of a peak's area
constexpr double annihilationEnergy = 510.999;

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

void assignPeaks(Findings& findings, const Selection& selection,
                 const ScintillatorTemplates& library, std::span<const MeasuredPeak> peaks,
                 std::span<const Nuclide> nuclides, const Calibration& calibration,
                 double minConfidence) {
    for (std::size_t number = 0; number < peaks.size(); ++number) {
        double maxCounts = assignedPart * peaks[number].area;
        for (std::size_t position = 0; position < selection.model.nuclides.size(); ++position) {
            const std::size_t candidate = selection.model.nuclides[position];
            const double counts =
                countsAt(library.nuclides[candidate],
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
    const ScintillatorTemplates library = scintillatorTemplates(nuclides, calibration);
    const ScintillatorBins bins = scintillatorBins(spectrum, calibration);
    if (bins.size() == 0 || library.nuclides.empty()) {
        return findings;
    }
    const ScintillatorFit fit(bins, calibration, usualDeviations(calibration), library.nuclides);
    const Selection selection = selectNuclides(fit, library.nuclides, limit);
    for (std::size_t position = 0; position < selection.model.nuclides.size(); ++position) {
        const std::size_t candidate = selection.model.nuclides[position];
        findings.nuclides[library.numbers[candidate]] =
            identification(library.nuclides[candidate], selection, position);
    }
    assignPeaks(findings, selection, library, peaks, nuclides, calibration, rules.minConfidence);
    return findings;
}

}  // namespace embedded::engines
