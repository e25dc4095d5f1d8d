#include "embedded/engines/activity_uncertainty.h"

#include <algorithm>
#include <cmath>

namespace embedded::engines {

double UncertaintyParts::total() const {
    double squares = 0.0;
    for (const double part : {counts, blank, efficiency, summing, yield, halfLife, quantity}) {
        squares += std::pow(part, 2);
    }
    return std::sqrt(squares);
}

UncertaintyParts UncertaintyParts::operator/(double divisor) const {
    return {counts / divisor, blank / divisor,    efficiency / divisor, summing / divisor,
            yield / divisor,  halfLife / divisor, quantity / divisor};
}

UncertaintyModel::UncertaintyModel(Eigen::Index efficiencyCauses, double quantityUncertainty)
    : otherEfficiency(Eigen::VectorXd::Zero(efficiencyCauses)),
      ownEfficiency(Eigen::VectorXd::Zero(efficiencyCauses)),
      quantity(quantityUncertainty) {}

void UncertaintyModel::addLine(const ExpectedLine& line, double sensitivity,
                               const Eigen::VectorXd& efficiency,
                               std::optional<double> otherActivity) {
    const double counts = sensitivity * otherActivity.value_or(1.0);
    (otherActivity ? otherYield : ownYield) += std::pow(counts * line.weightUncertainty, 2);
    (otherActivity ? otherSumming : ownSumming) += counts * line.summingUncertainty;
    (otherActivity ? otherEfficiency : ownEfficiency) += counts * efficiency;
}

void UncertaintyModel::addHalfLife(double deviation, std::optional<double> otherActivity) {
    (otherActivity ? otherHalfLife : ownHalfLife) +=
        std::pow(deviation * otherActivity.value_or(1.0), 2);
}

UncertaintyParts UncertaintyModel::at(double activity) const {
    double countingVariance = scatter;
    for (const Counting& one : counting) {
        const double expected = std::max(0.0, one.others + activity * one.own);
        countingVariance += one.weight * (one.variance + one.rise * expected);
    }
    UncertaintyParts parts;
    parts.counts = std::sqrt(countingVariance);
    parts.blank = std::sqrt(blank);
    parts.yield = std::sqrt(otherYield + std::pow(activity, 2) * ownYield);
    parts.efficiency = (otherEfficiency + activity * ownEfficiency).norm();
    parts.summing = std::abs(otherSumming + activity * ownSumming);
    parts.halfLife = std::sqrt(otherHalfLife + std::pow(activity, 2) * ownHalfLife);
    parts.quantity = std::abs(activity) * quantity;
    return parts;
}

}  // namespace embedded::engines
