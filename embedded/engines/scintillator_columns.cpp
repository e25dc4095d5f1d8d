#include "embedded/engines/scintillator_columns.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numeric>
#include <string_view>
#include <utility>

#include "embedded/engines/nuclide.h"
#include "embedded/engines/scintillator_response.h"

namespace embedded::engines {

namespace {

// Standard deviations of the detector state; a shielded source may have any absorber.
constexpr double offsetDeviationOfState = 2.0;  // keV
constexpr double gainDeviationOfState = 0.012;
constexpr double broadeningDeviationOfState = 0.1;
constexpr double powerDeviation = 0.5;
constexpr double absorberDeviation = 2.5;
constexpr double maxDeviationsOfState = 3.0;
constexpr double minAbsorber = -0.05;  // deviations
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
constexpr double weakestOfSum = 0.05;
constexpr std::size_t maxOfSum = 8;          // lines
constexpr double minScatteredEnergy = 60.0;  // keV

// Escape of annihilation photons.
constexpr double minPairEnergy = 1300.0;  // keV
constexpr double pairEscapePart = 0.3;    // of the counts of a line at 2.6 MeV

// The materials around a source determine which angles are frequent.
constexpr std::array<CosineRange, 4> backscatterCosines = {
    CosineRange{-1.0, -0.85}, {-0.85, -0.6}, {-0.6, -0.2}, {-0.2, 0.4}};

constexpr double xRayPart = 1.0;  // counts of a nuclide's K X-rays, of those of all its lines

// Escape of K X-rays from the crystal.
struct Escape {
    double energy;  // keV
    double edge;
    double part;  // of the counts of a line at twice the edge

    double partAt(double lineEnergy) const {
        return lineEnergy > edge ? std::min(0.25, part * std::pow(2.0 * edge / lineEnergy, 2.0))
                                 : 0.0;
    }
};
constexpr auto xRayEscapes = std::to_array<Escape>({
    {27.0, 33.0, 0.1},  // cadmium, tellurium, iodine
    {34.0, 40.0, 0.1},  // iodine, caesium, lanthanum, cerium
    {77.0, 91.0, 0.1},  // bismuth
});
// Peaks of unknown crystals have this escape; the fit exchanges it for another.
constexpr Escape usualEscape = {30.0, 42.0, 0.05};

double intensityUncertainty(double energy) {
    return std::min(1.0, intensityDeviation + std::pow(absorbedEnergy / energy, 2.0));
}

// Peaks that are in many spectra without a nuclide: parts of all counts, one standard deviation.
struct CommonPeak {
    std::size_t column;
    double energy;  // keV
    double part;
};
constexpr auto commonPeaks = std::to_array<CommonPeak>({
    {0, 511.0, 0.012},  // annihilation
    {1, 74.2, 0.02},    // X-rays of lead
    {1, 85.3, 0.006},
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
constexpr double pileUpPartOfColumn = 0.02;

}  // namespace

CalibrationDeviations usualDeviations() {
    return {offsetDeviationOfState, gainDeviationOfState, broadeningDeviationOfState};
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
    if (mayContainLanthanum(calibration_)) {
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
        response.addPeak(contents, line.energy - usualEscape.energy,
                         usualEscape.partAt(line.energy) * counts);
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
          escapes{intensity, intensity, intensity},
          singleEscape(intensity),
          doubleEscape(intensity),
          compton(intensity),
          backscatter{intensity, intensity, intensity, intensity},
          edge(intensity),
          aboveEdge(intensity),
          multiple(intensity) {}

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

    // Columns of all lines together.
    void endNuclide() {
        const auto append = [this](const Eigen::VectorXd& column) {
            if (column.maxCoeff() > 0.0) {
                columns.push_back(column);
            }
        };
        append(step);
        append(above);
        append(below);
        std::ranges::for_each(escapes, append);
        append(singleEscape);
        append(doubleEscape);
        append(compton);
        std::ranges::for_each(backscatter, append);
        append(edge);
        append(aboveEdge);
        append(multiple);
    }

    Eigen::VectorXd intensity;
    Eigen::VectorXd shift;
    Eigen::VectorXd width;
    Eigen::VectorXd step;
    Eigen::VectorXd above;
    Eigen::VectorXd below;
    std::array<Eigen::VectorXd, xRayEscapes.size()> escapes;
    Eigen::VectorXd singleEscape;
    Eigen::VectorXd doubleEscape;
    Eigen::VectorXd compton;
    std::array<Eigen::VectorXd, backscatterCosines.size()> backscatter;
    Eigen::VectorXd edge;
    Eigen::VectorXd aboveEdge;
    Eigen::VectorXd multiple;
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
    for (std::size_t number = 0; number < xRayEscapes.size(); ++number) {
        response.addPeak(shapes.escapes[number], energy - xRayEscapes[number].energy,
                         xRayEscapes[number].partAt(energy) * counts);
    }
    if (energy > minPairEnergy) {
        const double part = pairEscapePart * (energy - 2.0 * electronMass) / 1600.0;
        response.addPeak(shapes.singleEscape, energy - electronMass, part * counts);
        response.addPeak(shapes.doubleEscape, energy - 2.0 * electronMass, part * counts);
    }
    if (energy > minScatteredEnergy) {
        response.addCompton(shapes.compton, energy, counts);
        for (std::size_t range = 0; range < backscatterCosines.size(); ++range) {
            response.addBackscatter(shapes.backscatter[range], energy, backscatterCosines[range],
                                    counts);
        }
        response.addEdge(shapes.edge, energy, -0.3, edgePart * counts);
        response.addEdge(shapes.aboveEdge, energy, 0.5, edgePart * counts);
        response.addMultiple(shapes.multiple, energy, counts);
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
    shapes.endNuclide();
    const double allCounts = std::accumulate(counts.begin(), counts.end(), 0.0);
    for (const std::vector<TemplateLine>& xRays : nuclide.xRays) {
        Eigen::VectorXd column = Eigen::VectorXd::Zero(bins_.size());
        for (const TemplateLine& line : xRays) {
            response.addPeak(column, line.energy, xRayPart * line.weight * allCounts);
        }
        shapes.columns.push_back(std::move(column));
    }
    std::ranges::move(sums(response, nuclide, counts), std::back_inserter(shapes.columns));
    return std::move(shapes.columns);
}

// Photons of one decay that are detected together. Each column has the sums of one of the strongest
// lines with all of them, because cascades differ.
std::vector<Eigen::VectorXd> ScintillatorColumns::sums(const ScintillatorResponse& response,
                                                       const TemplateNuclide& nuclide,
                                                       std::span<const double> counts) const {
    std::vector<std::size_t> strong;
    const double maxCounts = std::ranges::max(counts);
    for (std::size_t number = 0; number < counts.size(); ++number) {
        if (counts[number] > weakestOfSum * maxCounts) {
            strong.push_back(number);
        }
    }
    std::ranges::sort(strong, std::ranges::greater(),
                      [counts](std::size_t number) { return counts[number]; });
    strong.resize(std::min(strong.size(), maxOfSum));
    std::vector<Eigen::VectorXd> columns;
    for (std::size_t one = 0; one < strong.size(); ++one) {
        Eigen::VectorXd contents = Eigen::VectorXd::Zero(bins_.size());
        const double energy = nuclide.lines[strong[one]].energy;
        for (std::size_t other = one; other < strong.size(); ++other) {
            // Only annihilation gives two photons of the same energy.
            if (other != one || std::abs(energy - electronMass) < 1.0) {
                response.addPeak(contents, energy + nuclide.lines[strong[other]].energy,
                                 sumPart * counts[strong[one]] * counts[strong[other]] / maxCounts);
            }
        }
        if (contents.maxCoeff() > 0.0) {
            columns.push_back(std::move(contents));
        }
    }
    return columns;
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
constexpr double strongPartOfPhotons = 0.05;  // of the strongest line's photons

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

// Returns the K X-rays, as parts of all, of the elements that a decay of the nuclide leaves: one
// below and one above in the periodic table.
std::vector<std::vector<TemplateLine>> xRaysOf(std::string_view nuclide) {
    const std::span<const XRayElement> elements = xRayElements();
    const auto own =
        std::ranges::find(elements, nuclide.substr(0, nuclide.find('-')), &XRayElement::symbol);
    std::vector<std::vector<TemplateLine>> result;
    for (std::size_t number = 0; own != elements.end() && number < elements.size(); ++number) {
        const auto distance = static_cast<std::ptrdiff_t>(number) - (own - elements.begin());
        if (std::abs(distance) == 1) {
            std::vector<TemplateLine>& lines = result.emplace_back();
            double sum = 0.0;
            for (const XRayLine& line : elements[number].lines) {
                sum += line.intensity;
            }
            for (const XRayLine& line : elements[number].lines) {
                lines.push_back({line.energy, line.intensity / sum});
            }
        }
    }
    return result;
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
            result.nuclides.push_back({std::move(lines), xRaysOf(nuclides[number].name), cost});
            result.numbers.push_back(number);
        }
    }
    return result;
}

}  // namespace embedded::engines
