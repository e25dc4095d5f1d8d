#include "embedded/engines/nonnegative_fit.h"

#include <gtest/gtest.h>

namespace {

using embedded::engines::NonnegativeFit;
using embedded::engines::NonnegativeProblem;

constexpr double rounding = 1e-9;

// Columns (1, 0, 1), (0, 1, 1) and (1, 1, 0).
NonnegativeProblem problem(const Eigen::Vector3d& observed) {
    Eigen::MatrixXd design(3, 3);
    design << 1, 0, 1, 0, 1, 1, 1, 1, 0;
    return {design, observed, Eigen::VectorXd::Zero(3)};
}

TEST(NonnegativeFit, NegativeUnknownsAreFixedAtZero) {
    // The solution without constraints is (1.5, 1.5, -0.5).
    const NonnegativeFit fit(problem({1, 1, 3}));
    EXPECT_NEAR(4.0 / 3.0, fit.values()[0], rounding);
    EXPECT_NEAR(4.0 / 3.0, fit.values()[1], rounding);
    EXPECT_EQ(0.0, fit.values()[2]);
    EXPECT_NEAR(2.0 / 3.0, fit.variances()[0], rounding);
    EXPECT_EQ(0.0, fit.variances()[2]);
}

TEST(NonnegativeFit, PenaltyReducesUnknown) {
    NonnegativeProblem pulled{Eigen::MatrixXd::Identity(1, 1), Eigen::VectorXd::Constant(1, 3.0),
                              Eigen::VectorXd::Constant(1, 2.0)};
    EXPECT_NEAR(1.0, NonnegativeFit(pulled).values()[0], rounding);
}

TEST(NonnegativeFit, ExcludedUnknownChangesTheOthers) {
    NonnegativeFit fit(problem({3, 3, 2}));  // solution: (1, 1, 2)
    EXPECT_NEAR(2.0, fit.values()[2], rounding);
    const Eigen::VectorXd without = fit.valuesWithout(2);
    EXPECT_NEAR(5.0 / 3.0, without[0], rounding);
    EXPECT_NEAR(5.0 / 3.0, without[1], rounding);
    EXPECT_EQ(0.0, without[2]);
    EXPECT_NEAR(2.0, fit.values()[2], rounding);
}

}  // namespace
