#include "embedded/engines/peak_fit.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace {

using namespace embedded::engines;

// A wrong one spoils uncertainties and ends fits too early; from where one is 0 no fit returns.
TEST(PeakModel, HasTheDerivativesOfItsContents) {
    for (const auto& [widePeak, tailFraction] : {std::pair(0U, 0.2), std::pair(1U, 0.0)}) {
        const PeakModel model({100, 40}, {{115.3, 5.0}, {124.1, 5.2}}, {true, true, widePeak, {}});
        Eigen::VectorXd values(model.unknowns());
        values << 50.0, 5.0, 3.0, 20.0, 30.0, 130.2, 3.0, 1.1, 1.3, tailFraction, 1.4, 400.0, 115.1,
            900.0, 124.4;
        Eigen::VectorXd below;
        Eigen::VectorXd above;
        Eigen::MatrixXd derivatives;
        model.evaluate(values, below, &derivatives);
        for (Eigen::Index unknown = 0; unknown < values.size(); ++unknown) {
            const Eigen::VectorXd moved = Eigen::VectorXd::Unit(values.size(), unknown) * 1e-4;
            model.evaluate(values - moved, below, nullptr);
            model.evaluate(values + moved, above, nullptr);
            const Eigen::VectorXd slope = (above - below) / 2e-4;
            EXPECT_LE((derivatives.col(unknown) - slope).norm(), 1e-6 * slope.norm()) << unknown;
        }
    }
}

// What belongs to peaks that are left out must not keep the rest from moving.
TEST(LikelihoodFit, FindsTheContinuumWithoutItsPeaks) {
    const std::vector<double> contents(40, 50.0);
    const Shape shape = {true, true, 0U, {}};
    PeakModel model({0, 40}, {{20.0, 5.0}}, shape);
    Eigen::VectorXd values = model.estimate(contents);
    values[PeakModel::level] = 200.0;
    values[PeakModel::area(0)] = 0.0;
    const Spectrum spectrum{contents, {}};
    LikelihoodFit fit(spectrum, model, shape);
    fit.fix(PeakModel::area(0));
    fit.converge(values);
    EXPECT_NEAR(0.0, fit.unlikelihood(), 0.01);
}

}  // namespace
