#include "embedded/engines/peak_model.h"

#include <gtest/gtest.h>

#include <utility>

namespace {

// A wrong one spoils uncertainties and ends fits too early; from where one is 0 no fit returns.
TEST(PeakModel, HasTheDerivativesOfItsContents) {
    for (const auto& [widePeak, tailFraction] : {std::pair(0U, 0.2), std::pair(1U, 0.0)}) {
        const embedded::engines::PeakModel model({100, 40}, {{115.3, 5.0}, {124.1, 5.2}},
                                                 {true, true, widePeak, {}});
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

}  // namespace
