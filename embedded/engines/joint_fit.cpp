#include "embedded/engines/joint_fit.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace embedded::engines {

namespace {

constexpr double equilibriumAllowance = 0.3;  // of the greater activity

// Largest cost of a single missing line, in standard deviations. It may be missing for a reason
// that is not part of the model.
constexpr double maxOfMissingLine = 4.0;

// Part of the activity at which the full cost applies.
constexpr double minPart = 0.25;
constexpr double smallPart = 0.4;  // part of the activity of a nuclide that is not needed

// Selects the more probable of nuclides that explain the same peaks, without changing activities.
constexpr double tieBreak = 0.02;

// The row of a centroid follows those of all areas.
Eigen::Index areaRow(std::size_t peak) {
    return static_cast<Eigen::Index>(peak);
}

}  // namespace

JointFit::JointFit(const JointFitInput& input) : input_(input) {
    chooseColumns();
    addAreas();
    setPenalties(Eigen::VectorXd::Ones(problem_.penalties.size()));
    values_ = NonnegativeFit(problem_).values();
    setPenalties(partsOfActivities());
    addEquilibrium();
    fit_.emplace(problem_);
    values_ = fit_->values();
    explanation_ = explained(values_);
    misfit_ = misfit(values_, explanation_);
    removeShortLived();
    alternatives_.resize(input_.nuclides.size());
}

// The fit does not include the costs of presence. Removes the short-lived nuclides without which
// the sum of squares with these costs is smaller.
void JointFit::removeShortLived() {
    for (const std::size_t nuclide : columns_) {
        if (activity(nuclide) <= 0.0 || improbabilityOf(input_.nuclides[nuclide]) <= 0.0) {
            continue;
        }
        const Eigen::Index column = *columnOf_[nuclide];
        const Eigen::VectorXd values = fit_->valuesWithout(column);
        Explanation other = explained(values);
        const double sum = misfit(values, other);
        if (sum < misfit_) {
            fit_->exclude(column);
            values_ = values;
            misfit_ = sum;
            explanation_ = std::move(other);
        }
    }
}

// One column for each nuclide that may be present and for each peak that does not need a nuclide.
void JointFit::chooseColumns() {
    columnOf_.resize(input_.nuclides.size());
    otherColumnOf_.resize(input_.peaks.size());
    Eigen::Index count = 0;
    for (std::size_t nuclide = 0; nuclide < input_.nuclides.size(); ++nuclide) {
        if (input_.models[nuclide].activity > 0.0) {
            columns_.push_back(nuclide);
            columnOf_[nuclide] = count++;
        }
    }
    for (std::size_t peak = 0; peak < input_.peaks.size(); ++peak) {
        if (input_.origins[peak] != PeakOrigin::line) {
            otherColumnOf_[peak] = count++;
        }
    }
    const auto rows = static_cast<Eigen::Index>(2 * input_.peaks.size());
    problem_ = {Eigen::MatrixXd::Zero(rows, count), Eigen::VectorXd::Zero(rows),
                Eigen::VectorXd::Zero(count)};
}

// The area of each peak is the sum over its lines, and its centroid is their mean energy.
void JointFit::addAreas() {
    const auto peakCount = static_cast<Eigen::Index>(input_.peaks.size());
    std::vector<double> deviations(input_.peaks.size());
    for (std::size_t number = 0; number < input_.peaks.size(); ++number) {
        const MeasuredPeak& peak = input_.peaks[number];
        deviations[number] = std::hypot(peak.areaUncertainty, input_.allowance * peak.area);
        problem_.observed[areaRow(number)] = peak.area / deviations[number];
        if (const auto column = otherColumnOf_[number]) {
            problem_.design(areaRow(number), *column) = 1.0 / deviations[number];
        }
    }
    for (const std::size_t nuclide : columns_) {
        const Eigen::Index column = *columnOf_[nuclide];
        const auto& lines = input_.matches[nuclide].lines;
        for (std::size_t line = 0; line < lines.size(); ++line) {
            if (const auto peak = lines[line].peak) {
                const double weight = input_.models[nuclide].weights[line];
                problem_.design(areaRow(*peak), column) += weight / deviations[*peak];
                problem_.design(peakCount + areaRow(*peak), column) +=
                    weight * energyDeviation(input_.peaks[*peak], *lines[line].line) /
                    input_.peaks[*peak].area;
            }
        }
    }
}

// Returns, for each column, the part of the activity at which limited costs are fully counted: 1,
// or a small part for a nuclide that is hardly needed.
Eigen::VectorXd JointFit::partsOfActivities() const {
    Eigen::VectorXd parts = Eigen::VectorXd::Ones(problem_.penalties.size());
    for (const std::size_t nuclide : columns_) {
        const Eigen::Index column = *columnOf_[nuclide];
        const double part = values_[column] / input_.models[nuclide].activity;
        parts[column] = part > smallPart ? 1.0 : minPart;
    }
    return parts;
}

// A line without a peak is an observation of no counts, with half the limit as its deviation. Its
// cost is limited, and so is that of an improbable nuclide: both reach their full value at a part
// of the activity from the nuclide's own lines.
void JointFit::setPenalties(const Eigen::VectorXd& parts) {
    problem_.penalties.setZero();
    for (const std::size_t nuclide : columns_) {
        const NuclideModel& model = input_.models[nuclide];
        const double activity = parts[*columnOf_[nuclide]] * model.activity;
        double& penalty = problem_.penalties[*columnOf_[nuclide]];
        penalty = tieBreak * input_.improbabilities[nuclide] / std::pow(activity, 2);
        const auto& lines = input_.matches[nuclide].lines;
        for (std::size_t line = 0; line < lines.size(); ++line) {
            if (lines[line].peak) {
                continue;
            }
            const double weight = model.weights[line] * std::exp(-model.uncertainties[line]);
            const double deviation = 2.0 * weight / lines[line].limit;
            penalty += std::pow(std::min(deviation, maxOfMissingLine / activity), 2);
        }
    }
}

// One row for each nuclide that is present together with its parent.
void JointFit::addEquilibrium() {
    std::vector<std::pair<Eigen::Index, Eigen::Index>> pairs;
    for (const std::size_t nuclide : columns_) {
        const auto& parent = input_.nuclides[nuclide].parent;
        if (parent && columnOf_[*parent] && values_[*columnOf_[nuclide]] > 0.0) {
            pairs.emplace_back(*columnOf_[nuclide], *columnOf_[*parent]);
        }
    }
    Eigen::Index row = problem_.observed.size();
    const Eigen::Index rows = row + static_cast<Eigen::Index>(pairs.size());
    problem_.design.conservativeResizeLike(Eigen::MatrixXd::Zero(rows, problem_.design.cols()));
    problem_.observed.conservativeResizeLike(Eigen::VectorXd::Zero(rows));
    for (const auto& [daughter, mother] : pairs) {
        const double greater = std::max(values_[daughter], values_[mother]);
        problem_.design(row, daughter) = 1.0 / (equilibriumAllowance * greater);
        problem_.design(row, mother) = -problem_.design(row, daughter);
        ++row;
    }
}

Explanation JointFit::explained(const Eigen::VectorXd& values) const {
    Explanation result{std::vector<double>(input_.nuclides.size(), 0.0),
                       std::vector<double>(input_.peaks.size(), 0.0),
                       std::vector<double>(input_.peaks.size(), 0.0)};
    for (const std::size_t nuclide : columns_) {
        const double activity = values[*columnOf_[nuclide]];
        result.activities[nuclide] = activity;
        const auto& lines = input_.matches[nuclide].lines;
        for (std::size_t line = 0; activity > 0.0 && line < lines.size(); ++line) {
            if (const auto peak = lines[line].peak) {
                result.areasOfNuclides[*peak] += activity * input_.models[nuclide].weights[line];
            }
        }
    }
    for (std::size_t peak = 0; peak < input_.peaks.size(); ++peak) {
        if (const auto column = otherColumnOf_[peak]) {
            result.otherAreas[peak] = values[*column];
        }
    }
    return result;
}

// Returns the sum of squares. The allowance applies only to the explained part of an area.
double JointFit::misfit(const Eigen::VectorXd& values, const Explanation& explanation) const {
    const Eigen::VectorXd residuals = fit_->residuals(values);
    const auto peakCount = static_cast<Eigen::Index>(input_.peaks.size());
    double sum = residuals.tail(residuals.size() - peakCount).squaredNorm() +
                 problem_.penalties.dot(values.cwiseAbs2());
    for (const std::size_t nuclide : columns_) {
        const double part = values[*columnOf_[nuclide]] / input_.models[nuclide].activity;
        sum += input_.improbabilities[nuclide] * std::min(1.0, part / minPart);
    }
    for (std::size_t number = 0; number < input_.peaks.size(); ++number) {
        const MeasuredPeak& peak = input_.peaks[number];
        const double area = explanation.area(number);
        const double deviation =
            std::hypot(peak.areaUncertainty, input_.allowance * std::min(area, peak.area));
        sum += std::pow((area - peak.area) / deviation, 2);
    }
    return sum;
}

const JointFit::Alternative& JointFit::without(std::size_t nuclide) {
    std::optional<Alternative>& alternative = alternatives_[nuclide];
    if (!alternative) {
        const Eigen::VectorXd values = fit_->valuesWithout(*columnOf_[nuclide]);
        alternative = Alternative{0.0, explained(values)};
        alternative->gain = std::max(0.0, misfit(values, alternative->explanation) - misfit_);
    }
    return *alternative;
}

namespace {

constexpr double minShare = 0.2;             // smallest share in a peak that is evidence
constexpr double limitDeviation = 0.3;       // of the logarithm of a detection limit
constexpr double uncertaintyOfOthers = 0.3;  // relative, of their part of a peak

// Smallest number of found lines minus missing ones for a nuclide that can be present.
constexpr double minBalance = -2.0;
constexpr double certainlyMissing = 3.0;     // times the detection limit
constexpr std::ptrdiff_t minLinesAbove = 2;  // that show an absorber

// Returns the counts that a line has at least, one standard deviation below the expected ones.
double lowCounts(const NuclideModel& model, std::size_t line) {
    return model.activity * model.weights[line] * std::exp(-model.uncertainties[line]);
}

// True if a key line has no peak, although no absorber or neighbouring peak hides it. Only two
// lines above it can show that an absorber does. shown: energies in keV of the lines that explain a
// part of their peaks.
bool isKeyMissing(const NuclideMatches& matches, const NuclideModel& model,
                  std::span<const double> shown) {
    for (std::size_t line = 0; line < matches.lines.size(); ++line) {
        const LineResult& match = matches.lines[line];
        const bool isHidden = match.limit >= 2.0 * match.line->detectionLimit;
        const auto above = std::ranges::count_if(
            shown, [&match](double energy) { return energy > match.line->energy; });
        const bool isAbsorbed = above >= minLinesAbove &&
                                model.activity * match.line->weight > match.limit &&
                                lowCounts(model, line) < match.limit;
        if (match.line->key && !match.peak && !isHidden && !isAbsorbed) {
            return true;
        }
    }
    return false;
}

}  // namespace

NuclideModels::NuclideModels(std::span<const MeasuredPeak> peaks,
                             std::span<const NuclideMatches> matches, const ResponseCurve& prior,
                             double allowance)
    : peaks_(peaks),
      matches_(matches),
      prior_(prior),
      common_(prior),
      allowance_(allowance),
      patterns_(matches.size()),
      models_(matches.size()) {
    for (std::size_t nuclide = 0; nuclide < matches.size(); ++nuclide) {
        fitModel(nuclide, nullptr);
    }
}

void NuclideModels::update(const JointFit& fit, std::span<const double> trust) {
    CommonResponse response(prior_);
    for (std::size_t nuclide = 0; nuclide < matches_.size(); ++nuclide) {
        if (trust[nuclide] > 0.0) {
            auto ratios = ratiosOf(nuclide, &fit);
            std::erase_if(ratios, [](const LineRatio& ratio) { return ratio.isLimit; });
            response.add(ratios, trust[nuclide], patterns_[nuclide]);
        }
    }
    common_ = response.fit();
    for (std::size_t nuclide = 0; nuclide < matches_.size(); ++nuclide) {
        if (models_[nuclide].activity > 0.0) {
            fitModel(nuclide, &fit);
        }
    }
}

// Subtracts the parts of other nuclides in a peak, from a fit.
std::vector<LineRatio> NuclideModels::ratiosOf(std::size_t nuclide, const JointFit* fit) const {
    const auto& lines = matches_[nuclide].lines;
    std::vector<LineRatio> ratios;
    ratios.reserve(lines.size());
    for (std::size_t line = 0; line < lines.size(); ++line) {
        const LineResult& match = lines[line];
        const double weight = match.line->weight;
        if (!match.peak) {
            if (std::isfinite(match.limit)) {
                ratios.push_back(
                    {match.terms, std::log(match.limit / weight), limitDeviation, true});
            }
            continue;
        }
        const MeasuredPeak& peak = peaks_[*match.peak];
        double others = 0.0;
        if (fit != nullptr) {
            const double own = fit->activity(nuclide) * models_[nuclide].weights[line];
            others = std::max(0.0, fit->area(*match.peak) - own);
        }
        const double area = peak.area - others;
        if (area > minShare * peak.area) {
            const double counting =
                std::hypot(peak.areaUncertainty, uncertaintyOfOthers * others) / area;
            ratios.push_back({match.terms, std::log(area / weight),
                              std::hypot(counting, allowance_, match.line->weightUncertainty),
                              false});
        }
    }
    return ratios;
}

void NuclideModels::fitModel(std::size_t nuclide, const JointFit* fit) {
    NuclideModel& model = models_[nuclide];
    const NuclideMatches& matches = matches_[nuclide];
    const std::vector<LineRatio> ratios = ratiosOf(nuclide, fit);
    const auto isPeak = [](const LineRatio& ratio) { return !ratio.isLimit; };
    if (std::ranges::none_of(ratios, isPeak)) {
        if (fit == nullptr) {
            model = {};
        }
        return;
    }
    const PatternFit pattern = fitPattern(ratios, responseOfNuclide(common_, matches.peakCount));
    patterns_[nuclide] = pattern;
    model = {std::exp(pattern.scale), {}, {}, pattern.priorMisfit, model.keyMissing};
    double balance = 0.0;
    std::vector<double> shown;
    for (const LineResult& match : matches.lines) {
        model.weights.push_back(match.line->weight * std::exp(pattern.parameters.dot(match.terms)));
        model.uncertainties.push_back(std::hypot(pattern.uncertainty(match.terms), allowance_));
        const double low = lowCounts(model, model.weights.size() - 1);
        const double expected = model.activity * model.weights.back();
        if (match.peak) {
            if (expected > minShare * peaks_[*match.peak].area) {
                balance += 1.0;
                shown.push_back(match.line->energy);
            }
        } else if (low > certainlyMissing * match.limit) {
            balance -= 1.0;
        }
    }
    if (fit == nullptr) {
        model.keyMissing = isKeyMissing(matches, model, shown);
        if (model.keyMissing || balance < minBalance) {
            model.activity = 0.0;
        }
    }
}

}  // namespace embedded::engines
