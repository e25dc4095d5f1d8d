#include "embedded/engines/joint_fit.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace embedded::engines {

namespace {

constexpr double halfSupport = 9.0;           // three standard deviations
constexpr double equilibriumAllowance = 0.3;  // of the greater activity
constexpr double neighbourhood = 100.0;       // keV on each side
constexpr double farthest = 3.5;              // standard deviations between a line and its peak

bool counts(const ExpectedLine& line) {
    return std::isfinite(line.weight) && line.weight > 0.0;
}

// A correction by a power of the energy, the same for all lines.
double corrected(const ExpectedLine& line, double efficiencyPower) {
    return efficiencyPower == 0.0 ? line.weight
                                  : line.weight * std::pow(line.energy / 500.0, efficiencyPower);
}

double energyUncertainty(const MeasuredPeak& peak, const ExpectedLine& line) {
    return std::hypot(peak.energyUncertainty, line.energyUncertainty);
}

std::optional<std::size_t> nearestPeak(std::span<const MeasuredPeak> peaks,
                                       const ExpectedLine& line, double tolerance) {
    std::optional<std::size_t> nearest;
    double smallest = tolerance;
    for (std::size_t number = 0; number < peaks.size(); ++number) {
        const double distance = std::abs(peaks[number].energy - line.energy);
        if (distance <= smallest && distance <= farthest * energyUncertainty(peaks[number], line)) {
            smallest = distance;
            nearest = number;
        }
    }
    return nearest;
}

double deviationFactor(double deviation) {
    const double beyond = std::max(0.0, std::abs(deviation) - 1.0);
    return std::exp(-0.5 * beyond * beyond);
}

}  // namespace

JointFit::JointFit(std::vector<MeasuredPeak> peaks, std::span<const Nuclide> nuclides,
                   const MatchingRules& rules, double efficiencyPower)
    : peaks_(std::move(peaks)),
      nuclides_(nuclides),
      rules_(rules),
      possible_(nuclides.size(), false) {
    matchLines(efficiencyPower);
}

// A nuclide is possible where a line of it was found and none of its key lines is missing.
void JointFit::matchLines(double efficiencyPower) {
    for (std::size_t number = 0; number < nuclides_.size(); ++number) {
        bool keyMissing = false;
        bool found = false;
        for (const ExpectedLine& line : nuclides_[number].lines) {
            if (!counts(line)) {
                continue;
            }
            const auto peak = nearestPeak(peaks_, line, rules_.tolerance);
            keyMissing = keyMissing || (line.key && !peak);
            found = found || peak;
            matches_.push_back({number, &line, corrected(line, efficiencyPower), peak});
        }
        possible_[number] = found && !keyMissing;
    }
}

double JointFit::energyDeviation(const Match& match) const {
    const MeasuredPeak& peak = peaks_[*match.peak];
    return (match.line->energy - peak.energy) / energyUncertainty(peak, *match.line);
}

// Rows: the areas of the peaks, their centroids, and the lines that were not found. Columns: the
// nuclides, then the peaks that need none. The weights may be wrong by the allowance of the area.
JointFit::Equations JointFit::equations(const std::vector<PeakOrigin>& origins) const {
    const auto peakCount = static_cast<Eigen::Index>(peaks_.size());
    const auto nuclideCount = static_cast<Eigen::Index>(nuclides_.size());
    const auto missing =
        std::ranges::count_if(matches_, [](const Match& match) { return !match.peak.has_value(); });
    const auto others = std::ranges::count_if(
        origins, [](PeakOrigin origin) { return origin != PeakOrigin::line; });
    Equations made{Eigen::MatrixXd::Zero(2 * peakCount + missing, nuclideCount + others),
                   Eigen::VectorXd::Zero(2 * peakCount + missing)};
    Eigen::VectorXd sigmas(peakCount);
    Eigen::Index other = nuclideCount;
    for (Eigen::Index row = 0; row < peakCount; ++row) {
        const MeasuredPeak& peak = peaks_[static_cast<std::size_t>(row)];
        sigmas[row] = std::hypot(peak.areaUncertainty, rules_.weightAllowance * peak.area);
        made.observed[row] = peak.area / sigmas[row];
        if (origins[static_cast<std::size_t>(row)] != PeakOrigin::line) {
            made.design(row, other++) = 1.0 / sigmas[row];
        }
    }
    Eigen::Index row = 2 * peakCount;
    for (const Match& match : matches_) {
        const auto column = static_cast<Eigen::Index>(match.nuclide);
        const double weight = possible_[match.nuclide] ? match.weight : 0.0;
        if (match.peak) {
            const auto place = static_cast<Eigen::Index>(*match.peak);
            made.design(place, column) += weight / sigmas[place];
            made.design(peakCount + place, column) +=
                weight * energyDeviation(match) / peaks_[*match.peak].area;
        } else {
            made.design(row++, column) = 2.0 * weight / match.line->detectionLimit;
        }
    }
    return made;
}

// One row for each nuclide that the parent accompanies.
void JointFit::addEquilibrium(Equations& equations, const Eigen::VectorXd& activities) const {
    for (std::size_t number = 0; number < nuclides_.size(); ++number) {
        const auto daughter = static_cast<Eigen::Index>(number);
        const auto& parent = nuclides_[number].parent;
        if (!parent || !possible_[number] || !possible_[*parent] || activities[daughter] <= 0.0) {
            continue;
        }
        const Eigen::Index row = equations.observed.size();
        equations.design.conservativeResize(row + 1, Eigen::NoChange);
        equations.observed.conservativeResize(row + 1);
        equations.design.row(row).setZero();
        equations.observed[row] = 0.0;
        const auto mother = static_cast<Eigen::Index>(*parent);
        const double greater = std::max(activities[daughter], activities[mother]);
        equations.design(row, daughter) = 1.0 / (equilibriumAllowance * greater);
        equations.design(row, mother) = -equations.design(row, daughter);
    }
}

void JointFit::fit(const std::vector<PeakOrigin>& origins) {
    origins_ = origins;
    equations_ = equations(origins);
    fitted_ = fitNonnegative(equations_.design, equations_.observed);
    const Eigen::Index rows = equations_.observed.size();
    addEquilibrium(equations_, fitted_.values);
    if (equations_.observed.size() > rows) {
        fitted_ = fitNonnegative(equations_.design, equations_.observed);
    }
    areas_ = model(fitted_.values);
}

Eigen::VectorXd JointFit::model(const Eigen::VectorXd& activities) const {
    Eigen::VectorXd areas = Eigen::VectorXd::Zero(static_cast<Eigen::Index>(peaks_.size()));
    for (const Match& match : matches_) {
        if (match.peak && possible_[match.nuclide]) {
            areas[static_cast<Eigen::Index>(*match.peak)] +=
                match.weight * activities[static_cast<Eigen::Index>(match.nuclide)];
        }
    }
    auto other = static_cast<Eigen::Index>(nuclides_.size());
    for (std::size_t number = 0; number < peaks_.size(); ++number) {
        if (origins_[number] != PeakOrigin::line) {
            areas[static_cast<Eigen::Index>(number)] += activities[other++];
        }
    }
    return areas;
}

// The sum of squares, the allowance taken of what the nuclides explain of an area: what none
// explains is as certain as its counts.
double JointFit::misfit(const Eigen::VectorXd& activities) const {
    const Eigen::VectorXd areas = model(activities);
    const Eigen::VectorXd residuals = equations_.design * activities - equations_.observed;
    const auto peakCount = areas.size();
    double sum = residuals.tail(residuals.size() - peakCount).squaredNorm();
    for (Eigen::Index row = 0; row < peakCount; ++row) {
        const MeasuredPeak& peak = peaks_[static_cast<std::size_t>(row)];
        const double sigma = std::hypot(peak.areaUncertainty,
                                        rules_.weightAllowance * std::min(areas[row], peak.area));
        sum += std::pow((areas[row] - peak.area) / sigma, 2);
    }
    return sum;
}

double JointFit::support(std::size_t nuclide) const {
    Eigen::MatrixXd design = equations_.design;
    design.col(static_cast<Eigen::Index>(nuclide)).setZero();
    const NonnegativeFit without = fitNonnegative(design, equations_.observed);
    const double gain = std::max(0.0, misfit(without.values) - misfit(fitted_.values));
    return gain / (gain + halfSupport);
}

double JointFit::agreement(std::size_t nuclide) const {
    double sum = 0.0;
    double weights = 0.0;
    for (const Match& match : matches_) {
        if (match.nuclide != nuclide) {
            continue;
        }
        const double expected = match.weight * fitted_.values[static_cast<Eigen::Index>(nuclide)];
        double weight = expected / (expected + match.line->detectionLimit);
        double factor = 0.0;
        if (match.peak) {
            const MeasuredPeak& peak = peaks_[*match.peak];
            const double area = areas_[static_cast<Eigen::Index>(*match.peak)];
            // A factor that is wrong by the allowance is as far up as it is down.
            const double sigma = std::hypot(peak.areaUncertainty,
                                            rules_.weightAllowance * std::sqrt(area * peak.area));
            factor = deviationFactor((peak.area - area) / sigma) *
                     deviationFactor(energyDeviation(match));
        } else {
            factor = deviationFactor(2.0 * expected / match.line->detectionLimit);
            weight *= 1.0 - factor;
        }
        sum += weight * factor;
        weights += weight;
    }
    return weights > 0.0 ? sum / weights : 0.0;
}

double JointFit::chance(std::size_t nuclide) const {
    double logarithm = 0.0;  // of the probability that all is chance
    for (const Match& match : matches_) {
        const double area = match.peak ? areas_[static_cast<Eigen::Index>(*match.peak)] : 0.0;
        if (match.nuclide != nuclide || area <= 0.0) {
            continue;
        }
        const auto near = std::ranges::count_if(peaks_, [&match](const MeasuredPeak& peak) {
            return std::abs(peak.energy - match.line->energy) <= neighbourhood;
        });
        const double window =
            std::min(rules_.tolerance, 3.0 * peaks_[*match.peak].energyUncertainty);
        const double expected = window * static_cast<double>(near) / neighbourhood;
        const double part =
            match.weight * fitted_.values[static_cast<Eigen::Index>(nuclide)] / area;
        logarithm += part * std::log(1.0 - std::exp(-expected));
    }
    return 1.0 - std::exp(logarithm);
}

Identification JointFit::identification(std::size_t nuclide) const {
    Identification result{};
    double greatestWeight = 0.0;
    for (const Match& match : matches_) {
        if (match.nuclide == nuclide && match.peak && possible_[nuclide]) {
            result.peaks.push_back(*match.peak);
            if (match.weight > greatestWeight) {
                greatestWeight = match.weight;
                result.energy = match.line->energy;
            }
        }
    }
    const auto column = static_cast<Eigen::Index>(nuclide);
    if (possible_[nuclide] && fitted_.values[column] > 0.0) {
        result.activity = fitted_.values[column];
        result.uncertainty = std::sqrt(fitted_.variances[column]);
        result.confidence = support(nuclide) * agreement(nuclide) * chance(nuclide);
    }
    return result;
}

// An escape or sum peak that the nuclides explain is none.
std::vector<PeakOrigin> JointFit::confirmed(std::vector<PeakOrigin> origins) const {
    auto other = static_cast<Eigen::Index>(nuclides_.size());
    for (std::size_t number = 0; number < origins.size(); ++number) {
        if (origins[number] == PeakOrigin::line) {
            continue;
        }
        const double area = fitted_.values[other++];
        if (origins[number] != PeakOrigin::annihilation && area < 0.5 * peaks_[number].area) {
            origins[number] = PeakOrigin::line;
        }
    }
    return origins;
}

// The activities of what was found.
void JointFit::measure(std::vector<Identification>& found) const {
    const auto peakCount = static_cast<Eigen::Index>(peaks_.size());
    Eigen::MatrixXd design = equations_.design.topRows(peakCount);
    Eigen::VectorXd observed(peakCount);
    for (std::size_t number = 0; number < found.size(); ++number) {
        if (found[number].confidence < rules_.smallestConfidence) {
            design.col(static_cast<Eigen::Index>(number)).setZero();
        }
    }
    Eigen::VectorXd variances(peakCount);
    for (Eigen::Index row = 0; row < peakCount; ++row) {
        variances[row] = std::pow(peaks_[static_cast<std::size_t>(row)].areaUncertainty, 2);
    }
    for (const Match& match : matches_) {
        if (match.peak) {
            const double area = match.weight * found[match.nuclide].activity;
            variances[static_cast<Eigen::Index>(*match.peak)] +=
                std::pow(area * match.line->weightUncertainty, 2);
        }
    }
    for (Eigen::Index row = 0; row < peakCount; ++row) {
        const MeasuredPeak& peak = peaks_[static_cast<std::size_t>(row)];
        const double before = std::hypot(peak.areaUncertainty, rules_.weightAllowance * peak.area);
        design.row(row) *= before / std::sqrt(variances[row]);
        observed[row] = peak.area / std::sqrt(variances[row]);
    }
    const NonnegativeFit fitted = fitNonnegative(design, observed);
    const Eigen::VectorXd deviations = design * fitted.values - observed;
    for (std::size_t number = 0; number < found.size(); ++number) {
        const auto column = static_cast<Eigen::Index>(number);
        double squares = 0.0;
        for (const std::size_t peak : found[number].peaks) {
            squares += std::pow(deviations[static_cast<Eigen::Index>(peak)], 2);
        }
        const double degrees = static_cast<double>(found[number].peaks.size()) - 1.0;
        const double enlargement =
            degrees > 0.0 ? std::sqrt(std::max(1.0, squares / degrees)) : 1.0;
        found[number].activity = fitted.values[column];
        found[number].uncertainty = enlargement * std::sqrt(fitted.variances[column]);
    }
}

std::vector<std::string> JointFit::assigned(const std::vector<Identification>& found) const {
    std::vector<std::string> names(peaks_.size());
    std::vector<double> most(peaks_.size(), 0.0);
    for (const Match& match : matches_) {
        const Identification& identification = found[match.nuclide];
        if (!match.peak || identification.activity <= 0.0 ||
            identification.confidence < rules_.smallestConfidence) {
            continue;
        }
        const double area = match.weight * identification.activity;
        if (area > most[*match.peak]) {
            most[*match.peak] = area;
            names[*match.peak] = nuclides_[match.nuclide].name;
        }
    }
    return names;
}

}  // namespace embedded::engines
