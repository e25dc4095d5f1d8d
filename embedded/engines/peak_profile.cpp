#include "embedded/engines/peak_profile.h"

#include <array>
#include <cmath>
#include <numbers>

namespace embedded::engines {

namespace {

constexpr double outOfSight = 8.0;  // in sigma: less than 1e-15 of a Gaussian lies beyond

double normalDensity(double position) {
    constexpr double density = 0.5 * std::numbers::inv_sqrtpi * std::numbers::sqrt2;
    return density * std::exp(-0.5 * position * position);
}

// The amount by which folding with an exponential toward lower positions raises the integral of a
// Gaussian: exp(z/t + 1/2t^2) x Phi(-z - 1/t).
double raisedByFolding(double position, double inverseLength) {
    if (std::abs(position) > outOfSight &&
        (position > 0.0 || position * inverseLength < -3.0 * outOfSight)) {
        return 0.0;
    }
    return std::exp(inverseLength * (position + 0.5 * inverseLength)) *
           normalDistribution(-position - inverseLength);
}

// Adds a tail to a Gaussian. The tail on the right is the mirror image of one on the left.
TailDerivatives addTail(const Tail& tail, double position, double density, double sign,
                        PartBelow& part) {
    const double inverse = 1.0 / tail.length;
    const double raised = raisedByFolding(sign * position, inverse);
    part.value += sign * tail.fraction * raised;
    part.byPosition += tail.fraction * (raised * inverse - density);
    const double byLength = inverse * inverse * (density - (sign * position + inverse) * raised);
    return {sign * raised, sign * tail.fraction * byLength};
}

// Abscissas and weights of Gauss-Legendre quadrature over -1 to 1 with five points.
struct Node {
    double abscissa;
    double weight;
};
constexpr std::array nodes = {
    Node{-0.9061798459386640, 0.2369268850561891}, Node{-0.5384693101056831, 0.4786286704993665},
    Node{0.0, 0.5688888888888889}, Node{0.5384693101056831, 0.4786286704993665},
    Node{0.9061798459386640, 0.2369268850561891}};

void add(double weight, const TailDerivatives& part, TailDerivatives& sum) {
    sum.byFraction += weight * part.byFraction;
    sum.byLength += weight * part.byLength;
}

}  // namespace

double normalDistribution(double position) {
    if (std::abs(position) > outOfSight) {
        return position > 0.0 ? 1.0 : 0.0;  // far from the centroid erfc is slow
    }
    return 0.5 * std::erfc(-position / std::numbers::sqrt2);
}

PartBelow partBelow(double position, const Tail* left, const Tail* right) {
    const double density = std::abs(position) <= outOfSight ? normalDensity(position) : 0.0;
    PartBelow part{};
    part.value = normalDistribution(position);
    part.byPosition = density;
    if (left != nullptr) {
        part.left = addTail(*left, position, density, 1.0, part);
    }
    if (right != nullptr) {
        part.right = addTail(*right, position, density, -1.0, part);
    }
    return part;
}

PartBelow partBelowWithDrift(double position, double drift, const Tail* left, const Tail* right) {
    PartBelow sum{};
    for (const auto& [abscissa, weight] : nodes) {
        const double shift = 0.5 * abscissa;
        const PartBelow part = partBelow(position + shift * drift, left, right);
        const double share = 0.5 * weight;
        sum.value += share * part.value;
        sum.byPosition += share * part.byPosition;
        sum.byDrift += share * part.byPosition * shift;
        add(share, part.left, sum.left);
        add(share, part.right, sum.right);
    }
    return sum;
}

}  // namespace embedded::engines
