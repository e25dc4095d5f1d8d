#include "embedded/engines/identification.h"

#include <Eigen/Core>
#include <algorithm>
#include <cmath>
#include <utility>

#include "embedded/engines/nonnegative_fit.h"

namespace embedded::engines {

namespace {

constexpr double halfSupport = 9.0;         // three standard deviations
constexpr double toleranceInSigmas = 2.0;   // what the tolerance is for the calibration
constexpr double equilibriumAllowance = 1.0;
constexpr double neighbourhood = 100.0;     // keV on each side
constexpr int mostPasses = 3;

// A line with the peak that it was found as.
struct Match {
    std::size_t nuclide;
    const ExpectedLine* line;
    std::optional<std::size_t> peak;
};

bool counts(const ExpectedLine& line) {
    return std::isfinite(line.weight) && line.weight > 0.0;
}

std::optional<std::size_t> nearestPeak(std::span<const MeasuredPeak> peaks, double energy,
                                       double tolerance) {
    std::optional<std::size_t> nearest;
    double smallest = tolerance;
    for (std::size_t number = 0; number < peaks.size(); ++number) {
        const double distance = std::abs(peaks[number].energy - energy);
        if (distance <= smallest) {
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

// All nuclides fitted to all peaks.
class JointFit {
  public:
    JointFit(std::span<const MeasuredPeak> peaks, std::span<const Nuclide> nuclides,
             const MatchingRules& rules);

    // Fits with these origins of the peaks.
    void fit(const std::vector<PeakOrigin>& origins);

    Identification identification(std::size_t nuclide) const;
    std::vector<std::string> assigned(const std::vector<Identification>& found) const;
    void measure(std::vector<Identification>& found) const;

  private:
    struct Equations {
        Eigen::MatrixXd design;
        Eigen::VectorXd observed;
    };

    void matchLines();
    Equations equations(const std::vector<PeakOrigin>& origins) const;
    void addEquilibrium(Equations& equations, const Eigen::VectorXd& activities) const;
    Eigen::VectorXd model(const Eigen::VectorXd& activities) const;
    double misfit(const Eigen::VectorXd& activities) const;
    double support(std::size_t nuclide) const;
    double agreement(std::size_t nuclide) const;
    double chance(std::size_t nuclide) const;
    double energyDeviation(const Match& match) const;

    std::span<const MeasuredPeak> peaks_;
    std::span<const Nuclide> nuclides_;
    const MatchingRules& rules_;
    std::vector<Match> matches_;
    std::vector<bool> possible_;
    Equations equations_;
    std::vector<PeakOrigin> origins_;
    NonnegativeFit fitted_;
    Eigen::VectorXd areas_;  // that the fit gives the peaks
};

JointFit::JointFit(std::span<const MeasuredPeak> peaks, std::span<const Nuclide> nuclides,
                   const MatchingRules& rules)
    : peaks_(peaks), nuclides_(nuclides), rules_(rules), possible_(nuclides.size(), false) {
    matchLines();
}

// A nuclide is possible where a line of it was found and none of its key lines is missing.
void JointFit::matchLines() {
    for (std::size_t number = 0; number < nuclides_.size(); ++number) {
        bool keyMissing = false;
        bool found = false;
        for (const ExpectedLine& line : nuclides_[number].lines) {
            if (!counts(line)) {
                continue;
            }
            const auto peak = nearestPeak(peaks_, line.energy, rules_.tolerance);
            keyMissing = keyMissing || (line.key && !peak);
            found = found || peak;
            matches_.push_back({number, &line, peak});
        }
        possible_[number] = found && !keyMissing;
    }
}

double JointFit::energyDeviation(const Match& match) const {
    const MeasuredPeak& peak = peaks_[*match.peak];
    const double uncertainty =
        std::hypot(peak.energyUncertainty, match.line->energyUncertainty,
                   rules_.tolerance / toleranceInSigmas);
    return (match.line->energy - peak.energy) / uncertainty;
}

// Rows: the areas of the peaks, their centroids, and the lines that were not found. Columns: the
// nuclides, then the peaks that need none. The weights may be wrong by the allowance of the area.
JointFit::Equations JointFit::equations(const std::vector<PeakOrigin>& origins) const {
    const auto peakCount = static_cast<Eigen::Index>(peaks_.size());
    const auto nuclideCount = static_cast<Eigen::Index>(nuclides_.size());
    const auto missing = std::ranges::count_if(
        matches_, [](const Match& match) { return !match.peak.has_value(); });
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
        const double weight = possible_[match.nuclide] ? match.line->weight : 0.0;
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
        const double weight = 1.0 / (equilibriumAllowance * activities[daughter]);
        equations.design(row, daughter) = weight;
        equations.design(row, static_cast<Eigen::Index>(*parent)) = -weight;
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
                match.line->weight * activities[static_cast<Eigen::Index>(match.nuclide)];
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
        const double expected =
            match.line->weight * fitted_.values[static_cast<Eigen::Index>(nuclide)];
        double weight = expected / (expected + match.line->detectionLimit);
        double factor = 0.0;
        if (match.peak) {
            const MeasuredPeak& peak = peaks_[*match.peak];
            const double area = areas_[static_cast<Eigen::Index>(*match.peak)];
            const double sigma = std::hypot(peak.areaUncertainty, rules_.weightAllowance * area);
            factor = deviationFactor((peak.area - area) / sigma) *
                     deviationFactor(energyDeviation(match));
        } else {
            factor = deviationFactor(2.0 * expected / match.line->detectionLimit);
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
        const double expected =
            2.0 * rules_.tolerance * static_cast<double>(near) / (2.0 * neighbourhood);
        const double part =
            match.line->weight * fitted_.values[static_cast<Eigen::Index>(nuclide)] / area;
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
            if (match.line->weight > greatestWeight) {
                greatestWeight = match.line->weight;
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
            const double area = match.line->weight * found[match.nuclide].activity;
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
        const double area = match.line->weight * identification.activity;
        if (area > most[*match.peak]) {
            most[*match.peak] = area;
            names[*match.peak] = nuclides_[match.nuclide].name;
        }
    }
    return names;
}

}  // namespace

Findings identify(std::span<const MeasuredPeak> peaks, std::span<const Nuclide> nuclides,
                  const MatchingRules& rules) {
    JointFit joint(peaks, nuclides, rules);
    Findings findings;
    // Which sums there are follows from which nuclides there are.
    for (int pass = 0; pass < mostPasses; ++pass) {
        auto origins = originsOf(peaks, findings.assigned, rules.tolerance);
        if (pass > 0 && origins == findings.origins) {
            break;
        }
        findings.origins = std::move(origins);
        joint.fit(findings.origins);
        findings.nuclides.clear();
        for (std::size_t number = 0; number < nuclides.size(); ++number) {
            findings.nuclides.push_back(joint.identification(number));
        }
        findings.assigned = joint.assigned(findings.nuclides);
    }
    joint.measure(findings.nuclides);
    return findings;
}

}  // namespace embedded::engines
