#include "embedded/engines/activities.h"

#include <Eigen/Core>
#include <algorithm>
#include <cmath>
#include <cstddef>

#include "embedded/engines/nonnegative_fit.h"

namespace embedded::engines {

namespace {

// Returns the variances of all areas, including those of the weights of their lines.
Eigen::VectorXd variancesOf(const std::vector<Identification>& nuclides,
                            const JointFitInput& input) {
    Eigen::VectorXd variances(static_cast<Eigen::Index>(input.peaks.size()));
    for (std::size_t peak = 0; peak < input.peaks.size(); ++peak) {
        variances[static_cast<Eigen::Index>(peak)] = std::pow(input.peaks[peak].areaUncertainty, 2);
    }
    for (std::size_t nuclide = 0; nuclide < nuclides.size(); ++nuclide) {
        const auto& lines = input.matches[nuclide].lines;
        for (std::size_t line = 0; line < lines.size(); ++line) {
            const double activity = nuclides[nuclide].activity;
            if (const auto peak = lines[line].peak; peak && activity > 0.0) {
                const double area = activity * input.models[nuclide].weights[line];
                variances[static_cast<Eigen::Index>(*peak)] +=
                    std::pow(area * lines[line].line->weightUncertainty, 2);
            }
        }
    }
    return variances;
}

// One row for each area; one column for each nuclide and for each peak of another origin.
NonnegativeProblem areasOf(const std::vector<std::size_t>& identified, const JointFitInput& input,
                           const Eigen::VectorXd& deviations) {
    const auto rows = static_cast<Eigen::Index>(input.peaks.size());
    const auto others = std::ranges::count_if(
        input.origins, [](PeakOrigin origin) { return origin != PeakOrigin::line; });
    const Eigen::Index columns = static_cast<Eigen::Index>(identified.size()) + others;
    NonnegativeProblem problem{Eigen::MatrixXd::Zero(rows, columns), Eigen::VectorXd(rows),
                               Eigen::VectorXd::Zero(columns)};
    for (std::size_t number = 0; number < identified.size(); ++number) {
        const auto& lines = input.matches[identified[number]].lines;
        for (std::size_t line = 0; line < lines.size(); ++line) {
            if (const auto peak = lines[line].peak) {
                const auto row = static_cast<Eigen::Index>(*peak);
                problem.design(row, static_cast<Eigen::Index>(number)) +=
                    input.models[identified[number]].weights[line] / deviations[row];
            }
        }
    }
    auto other = static_cast<Eigen::Index>(identified.size());
    for (Eigen::Index row = 0; row < rows; ++row) {
        const auto peak = static_cast<std::size_t>(row);
        problem.observed[row] = input.peaks[peak].area / deviations[row];
        if (input.origins[peak] != PeakOrigin::line) {
            problem.design(row, other++) = 1.0 / deviations[row];
        }
    }
    return problem;
}

}  // namespace

void measureActivities(std::vector<Identification>& nuclides, const JointFitInput& input,
                       double minConfidence) {
    std::vector<std::size_t> identified;
    for (std::size_t nuclide = 0; nuclide < nuclides.size(); ++nuclide) {
        Identification& one = nuclides[nuclide];
        if (one.activity > 0.0 && one.confidence >= minConfidence) {
            identified.push_back(nuclide);
        } else {
            one.activity = 0.0;
        }
    }
    const Eigen::VectorXd deviations = variancesOf(nuclides, input).cwiseSqrt();
    const NonnegativeProblem problem = areasOf(identified, input, deviations);
    const NonnegativeFit fit(problem);
    const Eigen::VectorXd variances = fit.variances();
    const Eigen::VectorXd residuals = problem.design * fit.values() - problem.observed;
    for (std::size_t number = 0; number < identified.size(); ++number) {
        Identification& one = nuclides[identified[number]];
        double squares = 0.0;
        for (const std::size_t peak : one.peaks) {
            squares += std::pow(residuals[static_cast<Eigen::Index>(peak)], 2);
        }
        const double degrees = static_cast<double>(one.peaks.size()) - 1.0;
        const double enlargement =
            degrees > 0.0 ? std::sqrt(std::max(1.0, squares / degrees)) : 1.0;
        const auto column = static_cast<Eigen::Index>(number);
        one.activity = fit.values()[column];
        one.uncertainty = enlargement * std::sqrt(variances[column]);
    }
}

}  // namespace embedded::engines
