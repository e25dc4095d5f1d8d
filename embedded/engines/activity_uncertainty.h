// The uncertainty of an activity as a function of its true value. See docs/activity.md,
// "Combination of lines".
#ifndef PYORV3_EMBEDDED_ENGINES_ACTIVITY_UNCERTAINTY_H
#define PYORV3_EMBEDDED_ENGINES_ACTIVITY_UNCERTAINTY_H

#include <Eigen/Core>
#include <optional>
#include <vector>

#include "embedded/engines/nuclide.h"

namespace embedded::engines {

// The standard uncertainties of an activity by their causes, which are independent.
struct UncertaintyParts {
    double counts = 0.0;
    double blank = 0.0;
    double efficiency = 0.0;
    double summing = 0.0;
    double yield = 0.0;
    double halfLife = 0.0;
    double quantity = 0.0;

    double total() const;
    UncertaintyParts operator/(double divisor) const;
};

// The uncertainties of the activity of one nuclide before division by the quantity. The lines of
// other nuclides that share its peaks add parts that do not depend on its activity.
struct UncertaintyModel {
    struct Counting {
        double weight;    // squared
        double variance;  // without net counts of the nuclide
        double rise;      // with the counts
        double others;    // counts of other nuclides and of the blank
        double own;       // counts for an activity of 1
    };

    // efficiencyCauses: number of independent causes of the uncertainty of the efficiency;
    // quantityUncertainty: relative.
    UncertaintyModel(Eigen::Index efficiencyCauses, double quantityUncertainty);

    // Adds the uncertainties of a line, to which the activity is sensitive.
    // efficiency: relative deviations by the causes; otherActivity: of the nuclide of the line;
    // nullopt if it is the nuclide of the model.
    void addLine(const ExpectedLine& line, double sensitivity, const Eigen::VectorXd& efficiency,
                 std::optional<double> otherActivity);
    // deviation: of the activity by the half-life of a nuclide with an activity of 1.
    void addHalfLife(double deviation, std::optional<double> otherActivity);

    UncertaintyParts at(double activity) const;

    std::vector<Counting> counting;
    double scatter = 0.0;  // variance by which lines disagree
    double blank = 0.0;    // variance
    // Variances of yields and half-lives; deviations by the efficiency and by summing. Own ones are
    // for an activity of 1.
    double otherYield = 0.0;
    double ownYield = 0.0;
    Eigen::VectorXd otherEfficiency;
    Eigen::VectorXd ownEfficiency;
    double otherSumming = 0.0;
    double ownSumming = 0.0;
    double otherHalfLife = 0.0;
    double ownHalfLife = 0.0;
    double quantity;  // relative uncertainty
};

}  // namespace embedded::engines

#endif
