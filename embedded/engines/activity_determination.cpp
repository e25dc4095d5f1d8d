#include "embedded/engines/activity_determination.h"

#include <Eigen/Core>
#include <Eigen/QR>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <utility>

namespace embedded::engines {

namespace {

constexpr double certainPart = 2.0;      // standard uncertainties below a result: certainly present
constexpr double minIndependent = 1e-4;  // part of a response that no other nuclide can imitate
constexpr double strayLimit = 4.0;       // standard deviations of a line above the others
constexpr int passesOverWeights = 3;     // until the weights of found nuclides no longer change

// The activity of one nuclide as a weighted sum of net areas.
struct Combination {
    std::vector<std::size_t> observations;
    std::vector<std::size_t> nuclides;  // the nuclide itself first, then those that share lines
    Eigen::VectorXd weights;            // of the observations
    Eigen::VectorXd variances;          // of the observations, from which the weights were computed
    double activity = 0.0;
    double uncertainty = 0.0;  // of the weights' variances
};

using Sensitivities = std::map<std::pair<std::size_t, const ExpectedLine*>, double>;

class Determination {
  public:
    Determination(const ActivityInput& input, const Quantity& quantity,
                  const LimitProbabilities& probabilities);

    MeasuredActivity resultOf(std::size_t nuclide) const;

  private:
    std::vector<std::size_t> sharing(std::size_t nuclide) const;
    Combination systemOf(std::size_t nuclide) const;
    double counts(std::size_t observation, std::size_t nuclide) const;
    double varianceOf(std::size_t observation, const Combination& combination,
                      double ownActivity) const;
    bool combine(Combination& combination, double certainActivity) const;
    std::vector<std::size_t> ownObservations(const Combination& combination) const;
    double misfit(const Combination& combination) const;
    double scatterOf(const Combination& combination) const;
    void removeStrays(Combination& combination) const;
    Sensitivities addCounting(const Combination& combination, UncertaintyModel& model) const;
    UncertaintyModel modelOf(const Combination& combination) const;
    UncertaintyModel modelOfPresent(const Combination& present) const;
    std::vector<MeasuredLine> linesOf(const Combination& combination) const;
    std::string inseparable(const Combination& combination) const;
    double residual(const Combination& combination, std::size_t row) const;
    double blankOf(const Combination& combination) const;

    const ActivityInput& input_;
    Quantity quantity_;
    LimitProbabilities probabilities_;
    LineObservations observations_;
    std::vector<double> activities_;  // of found nuclides; 0 of others
    std::vector<double> certain_;     // the part that is certainly present
};

// The activities of found nuclides are needed as weights and as interferences of others.
Determination::Determination(const ActivityInput& input, const Quantity& quantity,
                             const LimitProbabilities& probabilities)
    : input_(input),
      quantity_(quantity),
      probabilities_(probabilities),
      observations_(input),
      activities_(input.nuclides.size()),
      certain_(input.nuclides.size()) {
    for (int pass = 0; pass < passesOverWeights; ++pass) {
        std::vector<double> certain = certain_;
        for (std::size_t nuclide = 0; nuclide < input.nuclides.size(); ++nuclide) {
            if (!input.found[nuclide]) {
                continue;
            }
            Combination combination = systemOf(nuclide);
            if (combine(combination, certain_[nuclide])) {
                activities_[nuclide] = combination.activity;
                certain[nuclide] =
                    std::max(0.0, combination.activity - certainPart * combination.uncertainty);
            }
        }
        certain_ = certain;
    }
}

double Determination::counts(std::size_t observation, std::size_t nuclide) const {
    double sum = 0.0;
    for (const LineTerm& term : observations_[observation].terms) {
        sum += term.nuclide == nuclide ? term.counts : 0.0;
    }
    return sum;
}

// Returns a nuclide and all found nuclides that share observations with it or with each other.
std::vector<std::size_t> Determination::sharing(std::size_t nuclide) const {
    std::vector<std::size_t> nuclides = {nuclide};
    for (std::size_t next = 0; next < nuclides.size(); ++next) {
        for (const std::size_t number : observations_.ofNuclide(nuclides[next])) {
            for (const LineTerm& term : observations_[number].terms) {
                if (input_.found[term.nuclide] &&
                    std::ranges::find(nuclides, term.nuclide) == nuclides.end()) {
                    nuclides.push_back(term.nuclide);
                }
            }
        }
    }
    return nuclides;
}

Combination Determination::systemOf(std::size_t nuclide) const {
    Combination combination;
    if (observations_.ofNuclide(nuclide).empty()) {
        return combination;
    }
    combination.nuclides = sharing(nuclide);
    std::set<std::size_t> observations;
    for (const std::size_t member : combination.nuclides) {
        const auto& own = observations_.ofNuclide(member);
        observations.insert(own.begin(), own.end());
    }
    combination.observations.assign(observations.begin(), observations.end());
    return combination;
}

// The variance of a net area: counts, blank and, as if they were independent, the responses of the
// lines.
double Determination::varianceOf(std::size_t observation, const Combination& combination,
                                 double ownActivity) const {
    const Observation& one = observations_[observation];
    double expected = std::max(0.0, one.blank);
    double responses = 0.0;
    for (const LineTerm& term : one.terms) {
        const bool isOwn = term.nuclide == combination.nuclides.front();
        if (isOwn || input_.found[term.nuclide]) {
            const double area = (isOwn ? ownActivity : certain_[term.nuclide]) * term.counts;
            expected += area;
            responses +=
                std::pow(area, 2) * (std::pow(term.line->weightUncertainty, 2) +
                                     std::pow(term.line->summingUncertainty, 2) +
                                     input_.efficiency.deviations(term.line->energy).squaredNorm());
        }
    }
    return one.varianceAt(expected) + one.blankVariance + responses;
}

// Computes weights and activity by least squares, with the activities of the other nuclides as
// unknowns. Returns false if the others can imitate the nuclide.
bool Determination::combine(Combination& combination, double certainActivity) const {
    const auto rows = static_cast<Eigen::Index>(combination.observations.size());
    const auto columns = static_cast<Eigen::Index>(combination.nuclides.size());
    if (rows == 0) {
        return false;
    }
    combination.variances.resize(rows);
    Eigen::MatrixXd design(rows, columns);
    Eigen::VectorXd net(rows);
    for (Eigen::Index row = 0; row < rows; ++row) {
        const std::size_t number = combination.observations[static_cast<std::size_t>(row)];
        combination.variances[row] = varianceOf(number, combination, certainActivity);
        for (Eigen::Index column = 0; column < columns; ++column) {
            design(row, column) =
                counts(number, combination.nuclides[static_cast<std::size_t>(column)]);
        }
        net[row] = observations_[number].area - observations_[number].blank;
    }
    const Eigen::VectorXd deviations = combination.variances.cwiseSqrt();
    design = deviations.cwiseInverse().asDiagonal() * design;
    const Eigen::VectorXd own = design.col(0);
    Eigen::VectorXd independent = own;
    if (columns > 1) {
        const auto others = design.rightCols(columns - 1);
        independent -= others * others.colPivHouseholderQr().solve(own);
    }
    const double scale = independent.dot(own);
    if (!(scale > minIndependent * own.squaredNorm())) {
        return false;
    }
    combination.weights = independent.cwiseQuotient(deviations) / scale;
    combination.activity = combination.weights.dot(net);
    combination.uncertainty = 1.0 / std::sqrt(scale);
    return true;
}

std::vector<std::size_t> Determination::ownObservations(const Combination& combination) const {
    std::vector<std::size_t> rows;
    for (std::size_t row = 0; row < combination.observations.size(); ++row) {
        if (counts(combination.observations[row], combination.nuclides.front()) > 0.0) {
            rows.push_back(row);
        }
    }
    return rows;
}

// Returns the net area beyond the expected one.
double Determination::residual(const Combination& combination, std::size_t row) const {
    const std::size_t number = combination.observations[row];
    double expected = observations_[number].blank;
    for (const std::size_t member : combination.nuclides) {
        const bool isOwn = member == combination.nuclides.front();
        expected += (isOwn ? combination.activity : activities_[member]) * counts(number, member);
    }
    return observations_[number].area - expected;
}

// Returns chi-square per degree of freedom of the nuclide's lines if it is more than three standard
// deviations too large, otherwise 1.
double Determination::misfit(const Combination& combination) const {
    const std::vector<std::size_t> rows = ownObservations(combination);
    double chiSquare = 0.0;
    for (const std::size_t row : rows) {
        const double variance = varianceOf(combination.observations[row], combination,
                                           std::max(0.0, combination.activity));
        chiSquare += std::pow(residual(combination, row), 2) / variance;
    }
    const double degrees = static_cast<double>(rows.size()) - 1.0;
    return chiSquare > degrees + 3.0 * std::sqrt(2.0 * degrees) && degrees > 0.0
               ? chiSquare / degrees
               : 1.0;
}

// Returns the variance of the activity by which its lines disagree beyond their variances.
double Determination::scatterOf(const Combination& combination) const {
    return (misfit(combination) - 1.0) * combination.weights.cwiseAbs2().dot(combination.variances);
}

// A line of an absent nuclide with far more counts than its other lines allow belongs to something
// else.
void Determination::removeStrays(Combination& combination) const {
    while (misfit(combination) > 1.0) {
        std::optional<Combination> best;
        double maxExcess = strayLimit;
        for (const std::size_t row : ownObservations(combination)) {
            Combination without{combination.observations, combination.nuclides, {}, {}};
            without.observations.erase(without.observations.begin() +
                                       static_cast<std::ptrdiff_t>(row));
            if (!combine(without, 0.0)) {
                continue;
            }
            Combination all = combination;
            all.activity = without.activity;
            const std::size_t number = combination.observations[row];
            const double variance =
                varianceOf(number, all, std::max(0.0, all.activity)) +
                std::pow(counts(number, all.nuclides.front()) * without.uncertainty, 2);
            const double excess = residual(all, row) / std::sqrt(variance);
            if (excess > maxExcess) {
                maxExcess = excess;
                best = std::move(without);
            }
        }
        if (!best) {
            return;
        }
        combination = std::move(*best);
    }
}

// Adds the counts of each observation to the model. Returns the sensitivity of the activity to each
// line: of its expected counts for an activity of 1.
Sensitivities Determination::addCounting(const Combination& combination,
                                         UncertaintyModel& model) const {
    Sensitivities sensitivities;
    for (std::size_t row = 0; row < combination.observations.size(); ++row) {
        const double weight = combination.weights[static_cast<Eigen::Index>(row)];
        const Observation& one = observations_[combination.observations[row]];
        UncertaintyModel::Counting counting{std::pow(weight, 2), one.nullVariance,
                                            one.countVariance, std::max(0.0, one.blank), 0.0};
        for (const LineTerm& term : one.terms) {
            if (term.nuclide == combination.nuclides.front()) {
                counting.own += term.counts;
            } else if (input_.found[term.nuclide]) {
                counting.others += std::max(0.0, activities_[term.nuclide]) * term.counts;
            } else {
                continue;
            }
            sensitivities[{term.nuclide, term.line}] += weight * term.counts;
        }
        model.counting.push_back(counting);
        model.blank += std::pow(weight, 2) * one.blankVariance;
    }
    return sensitivities;
}

UncertaintyModel Determination::modelOf(const Combination& combination) const {
    UncertaintyModel model(input_.efficiency.deviations(1.0).size(), quantity_.uncertainty);
    const auto activityOf = [&](std::size_t member) {
        return member == combination.nuclides.front() ? std::nullopt
                                                      : std::optional(activities_[member]);
    };
    std::map<std::size_t, double> sensitivityToNuclides;
    for (const auto& [key, sensitivity] : addCounting(combination, model)) {
        const auto& [member, line] = key;
        model.addLine(*line, sensitivity, input_.efficiency.deviations(line->energy),
                      activityOf(member));
        sensitivityToNuclides[member] += sensitivity;
    }
    for (const auto& [member, sensitivity] : sensitivityToNuclides) {
        model.addHalfLife(sensitivity * input_.decayUncertainties[member], activityOf(member));
    }
    return model;
}

// Returns the model at the determined activity. The counts are known, so that their variance need
// not be computed from the result.
UncertaintyModel Determination::modelOfPresent(const Combination& present) const {
    UncertaintyModel model = modelOf(present);
    for (std::size_t row = 0; row < present.observations.size(); ++row) {
        model.counting[row].others = std::max(0.0, observations_[present.observations[row]].area) -
                                     present.activity * model.counting[row].own;
    }
    model.scatter = scatterOf(present);
    return model;
}

std::vector<MeasuredLine> Determination::linesOf(const Combination& combination) const {
    std::vector<MeasuredLine> lines;
    for (const std::size_t row : ownObservations(combination)) {
        const Observation& one = observations_[combination.observations[row]];
        lines.push_back({one.energy, one.area, std::sqrt(one.varianceAt(one.area)),
                         std::sqrt(one.nullVariance), one.blank, std::sqrt(one.blankVariance)});
    }
    return lines;
}

double Determination::blankOf(const Combination& combination) const {
    double sum = 0.0;
    for (std::size_t row = 0; row < combination.observations.size(); ++row) {
        sum += combination.weights[static_cast<Eigen::Index>(row)] *
               observations_[combination.observations[row]].blank;
    }
    return sum;
}

// Returns the reason why a nuclide cannot be separated: the first other one that shares its lines.
std::string Determination::inseparable(const Combination& combination) const {
    return combination.nuclides.size() > 1
               ? "not separable from " + input_.nuclides[combination.nuclides[1]].name
               : "no usable lines";
}

MeasuredActivity Determination::resultOf(std::size_t nuclide) const {
    MeasuredActivity result;
    Combination absent = systemOf(nuclide);
    if (absent.observations.empty()) {
        result.reason = observations_.reason(nuclide);
        return result;
    }
    if (!combine(absent, 0.0)) {
        result.reason = inseparable(absent);
        return result;
    }
    if (!input_.found[nuclide]) {
        removeStrays(absent);
    }
    Combination present = absent;
    const double certain = input_.found[nuclide]
                               ? certain_[nuclide]
                               : std::max(0.0, absent.activity - certainPart * absent.uncertainty);
    combine(present, certain);

    UncertaintyModel absentModel = modelOf(absent);
    if (!input_.found[nuclide]) {
        absentModel.scatter = scatterOf(absent);
    }

    const double quantity = quantity_.value;
    const UncertaintyParts parts = modelOfPresent(present).at(present.activity) / quantity;
    result.isKnown = true;
    result.activity = present.activity / quantity;
    result.uncertainties = parts;
    result.blank = blankOf(present) / quantity;
    result.limits = decisionLimits(
        result.activity, parts.total(),
        [&](double activity) { return absentModel.at(activity * quantity).total() / quantity; },
        probabilities_);
    if (!result.limits.detectionLimit) {
        result.reason = "too uncertain for a detection limit";
    }
    result.lines = linesOf(present);
    return result;
}

}  // namespace

std::vector<MeasuredActivity> determineActivities(const ActivityInput& input,
                                                  const Quantity& quantity,
                                                  const LimitProbabilities& probabilities) {
    const Determination determination(input, quantity, probabilities);
    std::vector<MeasuredActivity> results;
    for (std::size_t nuclide = 0; nuclide < input.nuclides.size(); ++nuclide) {
        results.push_back(determination.resultOf(nuclide));
    }
    return results;
}

}  // namespace embedded::engines
