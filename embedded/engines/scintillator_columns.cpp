#include "embedded/engines/scintillator_columns.h"

#include <algorithm>
#include <cmath>

#include "embedded/engines/nuclide.h"
#include "embedded/engines/scintillator_response.h"

namespace embedded::engines {

namespace {

// Standard deviations of the detector state; a shielded source may have any absorber.
constexpr double offsetDeviationOfState = 0.1;  // FWHM at 100 keV
constexpr double gainDeviationOfState = 0.012;
constexpr double broadeningDeviationOfState = 0.1;
constexpr double powerDeviation = 0.5;
constexpr double absorberDeviation = 0.7;
constexpr double maxDeviationsOfState = 3.0;
constexpr double minAbsorber = -0.2;  // deviations
constexpr double maxAbsorber = 6.0;

// Deviation of one line relative to the others of its nuclide.
constexpr double intensityDeviation = 0.2;
constexpr double absorbedEnergy = 40.0;  // keV, at which an intensity may have any value
constexpr double shiftDeviation = 0.06;  // FWHM
constexpr double widthDeviation = 0.1;
constexpr double weakestLine = 0.01;    // of the strongest
constexpr double weakestShape = 0.05;   // whose position and width matter
constexpr double mergedDistance = 0.3;  // FWHM

constexpr double tailPart = 0.03;  // of the counts, about one FWHM away
constexpr double stepPart = 0.03;  // of the counts, in each FWHM below the peak
constexpr double edgePart = 0.3;
constexpr double sumPart = 0.05;
constexpr double weakestOfSum = 0.1;
constexpr double minScatteredEnergy = 150.0;  // keV

constexpr double escapeEnergy = 30.0;  // keV, K X-rays of iodine, caesium and lanthanum
constexpr double maxEscapeEnergy = 200.0;

double escapePart(double energy) {
    return energy > 1.4 * escapeEnergy && energy < maxEscapeEnergy
               ? std::min(0.25, 0.1 * std::pow(60.0 / energy, 2.0))
               : 0.0;
}

double intensityUncertainty(double energy) {
    return std::min(1.0, intensityDeviation + std::pow(absorbedEnergy / energy, 2.0));
}

// Counts of pairs of photons that arrive together, if each photon has one partner.
Eigen::VectorXd pileUpTemplate(const ScintillatorBins& bins) {
    Eigen::VectorXd sums = Eigen::VectorXd::Zero(bins.size());
    const double total = std::max(1.0, bins.counts.sum());
    for (Eigen::Index one = 0; one < bins.size(); ++one) {
        for (Eigen::Index other = 0; other < bins.size(); ++other) {
            const Eigen::Index bin = bins.binAt(bins.centre(one) + bins.centre(other));
            if (bin >= bins.size()) {
                break;
            }
            sums[bin] += bins.counts[one] * bins.counts[other] / total;
        }
    }
    return sums;
}

// Peaks that are in many spectra without a nuclide: parts of all counts, one standard deviation.
struct CommonPeak {
    std::size_t column;
    double energy;  // keV
    double part;
};
constexpr auto commonPeaks = std::to_array<CommonPeak>({
    {0, 511.0, 0.005},  // annihilation
    {1, 75.0, 0.006},   // X-rays of lead
    {1, 85.0, 0.002},
    {2, 18.0, 0.05},  // X-rays of other elements
    {3, 22.0, 0.05},
    {4, 27.0, 0.05},
    {5, 32.0, 0.05},
    {6, 38.0, 0.05},
    {7, 45.0, 0.05},
    {8, 54.0, 0.004},
    {9, 66.0, 0.004},
});
constexpr auto lanthanumPeaks = std::to_array<CommonPeak>({
    {10, 1436.0, 0.003},  // with and without the X-ray of barium
    {10, 1471.0, 0.007},
    {11, 789.0, 0.003},  // with beta particles
    {11, 830.0, 0.003},
    {11, 880.0, 0.003},
    {11, 940.0, 0.003},
});
constexpr Eigen::Index pileUpColumn = 12;
constexpr Eigen::Index commonCount = 13;
constexpr double pileUpPartOfColumn = 0.01;
constexpr double lanthanumResolution = 0.045;

}  // namespace

CalibrationDeviations usualDeviations(const Calibration& calibration) {
    return {offsetDeviationOfState * widthAtEnergy(calibration, 100.0), gainDeviationOfState,
            broadeningDeviationOfState};
}

ScintillatorColumns::ScintillatorColumns(const ScintillatorBins& bins,
                                         const Calibration& calibration,
                                         const CalibrationDeviations& deviations)
    : bins_(bins),
      calibration_(calibration),
      deviations_{deviations.offset, deviations.gain, deviations.broadening, powerDeviation,
                  absorberDeviation},
      common_(commonColumns()) {}

Eigen::MatrixXd ScintillatorColumns::commonColumns() const {
    const ScintillatorResponse response(bins_, calibration_, {});
    const double total = bins_.counts.sum();
    Eigen::MatrixXd columns = Eigen::MatrixXd::Zero(bins_.size(), commonCount);
    const auto add = [&](const CommonPeak& peak) {
        response.addPeak(columns.col(static_cast<Eigen::Index>(peak.column)), peak.energy,
                         peak.part * total);
    };
    std::ranges::for_each(commonPeaks, add);
    if (resolution(calibration_) < lanthanumResolution) {
        std::ranges::for_each(lanthanumPeaks, add);
    }
    columns.col(pileUpColumn) = pileUpPartOfColumn * pileUpTemplate(bins_);
    return columns;
}

Eigen::VectorXd ScintillatorColumns::nuclideTemplate(const TemplateNuclide& nuclide,
                                                     const DetectorState& state) const {
    const ScintillatorResponse response(bins_, calibration_, state);
    Eigen::VectorXd contents = Eigen::VectorXd::Zero(bins_.size());
    for (const TemplateLine& line : nuclide.lines) {
        const double counts = line.weight * response.efficiencyFactor(line.energy);
        response.addPeak(contents, line.energy, counts);
        response.addPeak(contents, line.energy - escapeEnergy, escapePart(line.energy) * counts);
    }
    return contents;
}

// The columns of a nuclide while its lines are added.
struct ScintillatorColumns::Shapes {
    explicit Shapes(Eigen::Index size)
        : intensity(Eigen::VectorXd::Zero(size)),
          shift(intensity),
          width(intensity),
          step(intensity),
          above(intensity),
          below(intensity),
          escape(intensity),
          compton(intensity),
          backscatter(intensity),
          edge(intensity) {}

    // Lines that cannot be resolved share their columns.
    void endGroup(double minCounts) {
        columns.push_back(intensity);
        if (groupCounts > minCounts) {
            columns.push_back(shift);
            columns.push_back(width);
        }
        intensity.setZero();
        shift.setZero();
        width.setZero();
        groupCounts = 0.0;
    }

    Eigen::VectorXd intensity;
    Eigen::VectorXd shift;
    Eigen::VectorXd width;
    Eigen::VectorXd step;
    Eigen::VectorXd above;
    Eigen::VectorXd below;
    Eigen::VectorXd escape;
    Eigen::VectorXd compton;
    Eigen::VectorXd backscatter;
    Eigen::VectorXd edge;
    std::vector<Eigen::VectorXd> columns;
    double groupEnergy = 0.0;
    double groupCounts = 0.0;
};

void ScintillatorColumns::addLine(Shapes& shapes, const ScintillatorResponse& response,
                                  double energy, double counts) const {
    const double fwhm = widthAtEnergy(calibration_, energy);
    shapes.groupCounts += counts;
    response.addPeak(shapes.intensity, energy, intensityUncertainty(energy) * counts);
    // Differences of moved peaks, for the first and second derivative by the position.
    const double near = 0.1 * fwhm;
    response.addPeak(shapes.shift, energy + near, 5.0 * shiftDeviation * counts);
    response.addPeak(shapes.shift, energy - near, -5.0 * shiftDeviation * counts);
    const double far = 0.3 * fwhm;
    response.addPeak(shapes.width, energy + far, widthDeviation * counts);
    response.addPeak(shapes.width, energy - far, widthDeviation * counts);
    response.addPeak(shapes.width, energy, -2.0 * widthDeviation * counts);
    response.addPeak(shapes.above, energy + fwhm, tailPart * counts);
    response.addPeak(shapes.below, energy - fwhm, tailPart * counts);
    response.addStep(shapes.step, energy, stepPart * counts);
    response.addPeak(shapes.escape, energy - escapeEnergy, escapePart(energy) * counts);
    if (energy > minScatteredEnergy) {
        response.addCompton(shapes.compton, energy, counts);
        response.addBackscatter(shapes.backscatter, energy, counts);
        response.addEdge(shapes.edge, energy, edgePart * counts);
    }
}

std::vector<Eigen::VectorXd> ScintillatorColumns::ofNuclide(const TemplateNuclide& nuclide,
                                                            double activity,
                                                            const DetectorState& state) const {
    const ScintillatorResponse response(bins_, calibration_, state);
    std::vector<double> counts;
    for (const TemplateLine& line : nuclide.lines) {
        counts.push_back(activity * line.weight * response.efficiencyFactor(line.energy));
    }
    const double maxCounts = std::ranges::max(counts);
    Shapes shapes(bins_.size());
    for (std::size_t number = 0; number < counts.size(); ++number) {
        const double energy = nuclide.lines[number].energy;
        if (counts[number] < weakestLine * maxCounts) {
            continue;
        }
        if (energy - shapes.groupEnergy > mergedDistance * widthAtEnergy(calibration_, energy)) {
            if (shapes.groupCounts > 0.0) {
                shapes.endGroup(weakestShape * maxCounts);
            }
            shapes.groupEnergy = energy;
        }
        addLine(shapes, response, energy, counts[number]);
    }
    shapes.endGroup(weakestShape * maxCounts);
    for (const Eigen::VectorXd* column :
         {&shapes.step, &shapes.above, &shapes.below, &shapes.escape, &shapes.compton,
          &shapes.backscatter, &shapes.edge}) {
        if (column->maxCoeff() > 0.0) {
            shapes.columns.push_back(*column);
        }
    }
    shapes.columns.push_back(sums(response, nuclide, counts));
    return std::move(shapes.columns);
}

// Photons of one decay that are detected together.
Eigen::VectorXd ScintillatorColumns::sums(const ScintillatorResponse& response,
                                          const TemplateNuclide& nuclide,
                                          std::span<const double> counts) const {
    Eigen::VectorXd contents = Eigen::VectorXd::Zero(bins_.size());
    const double maxCounts = std::ranges::max(counts);
    for (std::size_t one = 0; one < counts.size(); ++one) {
        for (std::size_t other = one; other < counts.size(); ++other) {
            if (std::min(counts[one], counts[other]) > weakestOfSum * maxCounts) {
                response.addPeak(contents, nuclide.lines[one].energy + nuclide.lines[other].energy,
                                 sumPart * counts[one] * counts[other] / maxCounts);
            }
        }
    }
    return contents;
}

Eigen::VectorXd ScintillatorColumns::inDeviations(const DetectorState& state) const {
    Eigen::VectorXd values(stateSize);
    for (Eigen::Index member = 0; member < stateSize; ++member) {
        values[member] = state.*stateMembers[static_cast<std::size_t>(member)] / deviation(member);
    }
    return values;
}

DetectorState ScintillatorColumns::limitedState(const Eigen::VectorXd& inDeviations) const {
    DetectorState state;
    for (Eigen::Index member = 0; member < stateSize; ++member) {
        const auto pointer = stateMembers[static_cast<std::size_t>(member)];
        const bool isAbsorber = pointer == &DetectorState::absorber;
        state.*pointer =
            deviation(member) * std::clamp(inDeviations[member],
                                           isAbsorber ? minAbsorber : -maxDeviationsOfState,
                                           isAbsorber ? maxAbsorber : maxDeviationsOfState);
    }
    return state;
}

namespace {

// Below this energy a peak may be the X-rays of any material.
constexpr double minLineEnergy = 70.0;  // keV
constexpr double xRayRarity = 30.0;
constexpr double strongPartOfPhotons = 0.03;  // of the strongest line's photons

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
        return line.energy > minLineEnergy && line.weight > strongPartOfPhotons * strongest;
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
