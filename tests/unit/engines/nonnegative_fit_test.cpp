#include "embedded/engines/nonnegative_fit.h"

#include <gtest/gtest.h>

#include <random>

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
    fit.exclude(2);
    EXPECT_EQ(0.0, fit.valuesWithout(0)[2]);
    EXPECT_NEAR(2.5, fit.valuesWithout(0)[1], rounding);
}

// At the minimum no free unknown has a gradient, and no other one a gradient into its range. The
// method frees and holds many unknowns on the way; some of them depend linearly on others.
TEST(NonnegativeFit, RandomProblemsEndAtTheirMinimum) {
    std::mt19937_64 random(11);
    std::normal_distribution<double> normal;
    const auto draw = [&] { return normal(random); };
    for (int number = 0; number < 20; ++number) {
        NonnegativeProblem random60{Eigen::MatrixXd::NullaryExpr(50, 60, draw),
                                    Eigen::VectorXd::NullaryExpr(50, draw),
                                    Eigen::VectorXd::Zero(60)};
        random60.design.rightCols(10) = 2.0 * random60.design.leftCols(10);
        NonnegativeFit fit(random60);
        const Eigen::VectorXd all = fit.values();
        const Eigen::VectorXd without = fit.valuesWithout(20);
        fit.exclude(20);
        for (const Eigen::VectorXd& values : {all, without, fit.values()}) {
            const Eigen::VectorXd gradient =
                random60.design.transpose() * (random60.design * values - random60.observed);
            EXPECT_NEAR(0.0, gradient.dot(values), rounding);
            EXPECT_GE(values.minCoeff(), 0.0);
            for (Eigen::Index unknown = 0; unknown < values.size(); ++unknown) {
                EXPECT_TRUE(gradient[unknown] > -1e-6 || (unknown == 20 && values[unknown] == 0.0));
            }
        }
    }
}

}  // namespace
