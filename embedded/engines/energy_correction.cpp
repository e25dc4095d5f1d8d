#include "embedded/engines/energy_correction.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

namespace embedded::engines {

namespace {

// Lines of natural background with their approximate relative intensities.
const LinePattern naturalBackground = {"background",
                                       {{238.632, 3.0},
                                        {351.932, 1.8},
                                        {510.999, 1.5},
                                        {583.187, 1.1},
                                        {609.312, 2.2},
                                        {911.204, 1.0},
                                        {1120.287, 0.7},
                                        {1460.822, 5.0},
                                        {1764.494, 0.7},
                                        {2614.511, 1.0}},
                                       2.0};

// K X-rays that sources and shielding emit, with their approximate relative intensities.
const std::vector<LinePattern> xRays = {
    {"caesium", {{30.85, 1.0}, {35.05, 0.24}}, 3.0},
    {"barium", {{32.06, 1.0}, {36.5, 0.24}}, 3.0},
    {"samarium", {{39.9, 1.0}, {45.5, 0.26}}, 3.0},
    {"lead", {{72.80, 0.6}, {74.97, 1.0}, {84.8, 0.35}, {87.3, 0.1}}, 2.0},
    {"uranium", {{94.65, 0.62}, {98.44, 1.0}, {111.2, 0.36}, {114.5, 0.12}}, 3.0}};

// Nuclides that are often in spectra: calibration sources and natural ones.
constexpr auto commonNuclides = std::to_array<std::string_view>(
    {"Ac-228", "Am-241", "Ba-133", "Bi-214", "Cd-109", "Co-57", "Co-60",  "Cs-137",
     "Eu-152", "I-131",  "Ir-192", "K-40",   "Mn-54",  "Na-22", "Pb-212", "Pb-214",
     "Ra-226", "Th-228", "Tl-208", "U-235",  "U-238",  "Y-88",  "Zn-65"});
constexpr double commonSurprise = 3.0;
constexpr double rareSurprise = 2.3;  // beyond the logarithm of the number of nuclides

constexpr double xRayEnergy = 55.0;  // keV; lines of nuclides below are no evidence

struct Range {
    double offset;  // keV
    double gain;    // relative
};
constexpr Range scatter = {2.0, 0.003};
constexpr Range limit = {6.0, 0.008};

constexpr std::size_t minLines = 2;
constexpr double minGain = 7.0;       // of the score over the calibration as it is
constexpr double minAdvantage = 5.0;  // over any other correction

std::vector<LinePattern> patternsOf(std::span<const LinePattern> nuclides) {
    std::vector<LinePattern> patterns = {naturalBackground};
    patterns.insert(patterns.end(), xRays.begin(), xRays.end());
    const double rare = rareSurprise + std::log(static_cast<double>(nuclides.size() + 1));
    for (const LinePattern& nuclide : nuclides) {
        const bool isCommon =
            std::ranges::find(commonNuclides, nuclide.name) != commonNuclides.end();
        LinePattern pattern = {nuclide.name, {}, isCommon ? std::min(rare, commonSurprise) : rare};
        std::ranges::copy_if(nuclide.lines, std::back_inserter(pattern.lines),
                             [](const PatternLine& line) { return line.energy > xRayEnergy; });
        if (!pattern.lines.empty()) {
            patterns.push_back(pattern);
        }
    }
    return patterns;
}

}  // namespace

std::vector<PositionedPeak> positionedPeaks(std::span<const FittedPeak> peaks,
                                            const Calibration& calibration) {
    std::vector<PositionedPeak> result;
    for (const FittedPeak& peak : peaks) {
        const double gain = energyPerChannel(calibration, peak.channel);
        const double width = gain * peak.width;
        const double relative = peak.areaUncertainty / peak.area;
        if (peak.area > 0.0) {
            result.push_back({energyAt(calibration, peak.channel), width / fwhmPerSigma * relative,
                              width, peak.area, peak.areaUncertainty});
        }
    }
    return result;
}

EnergyCorrection energyCorrectionOf(std::span<const PositionedPeak> peaks,
                                    std::span<const LinePattern> nuclides) {
    const RelationLimits limits = {
        {0.0, 1.0}, scatter.offset, scatter.gain, limit.offset, limit.gain};
    const std::vector<LinePattern> patterns = patternsOf(nuclides);
    const LineAssignment assignment(peaks, patterns, limits);
    const std::vector<Assignment> best = assignment.best(2);
    if (best.empty() || best.front().matches.size() < minLines) {
        return {};
    }
    const double unchanged = assignment.assess(limits.expected).score;
    const double other = best.size() > 1 ? best[1].score : 0.0;
    if (best.front().score < unchanged + minGain || best.front().score < other + minAdvantage) {
        return {};
    }
    return {best.front().relation, best.front().matches.size()};
}

Calibration corrected(Calibration calibration, const EnergyRelation& relation) {
    for (double& coefficient : calibration.energy) {
        coefficient *= relation.gain;
    }
    calibration.energy.front() += relation.offset;
    double factor = relation.gain * relation.gain;
    for (double& coefficient : calibration.shape) {
        coefficient *= factor;
        factor /= relation.gain;
    }
    return calibration;
}

}  // namespace embedded::engines
