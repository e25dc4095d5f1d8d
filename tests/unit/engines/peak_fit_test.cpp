#include "embedded/engines/peak_fit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <utility>
#include <vector>

#include "embedded/engines/calibration.h"
#include "embedded/engines/peak_evidence.h"
#include "embedded/engines/shape_calibration.h"

namespace {

using namespace embedded::engines;

// A wrong derivative gives wrong uncertainties and ends fits too early; a fit never leaves a point
// at which a derivative is 0.
TEST(PeakModel, DerivativesEqualDifferencesOfContents) {
    for (const auto& [widePeak, fraction] : {std::pair(0U, 0.2), std::pair(1U, 0.0)}) {
        const Shape shape{.curved = true,
                          .leftTail = true,
                          .rightTail = true,
                          .drifted = widePeak == 0U,
                          .widePeak = widePeak};
        const PeakModel model({100, 40}, {{115.3, 5.0}, {124.1, 5.2}}, shape);
        Eigen::VectorXd values(model.unknowns());
        values << 50.0, 5.0, 3.0, 20.0, 30.0, 130.2, 3.0, 1.1, 1.3, fraction, 1.4, fraction, 1.8,
            shape.drifted ? 1.2 : 0.0, 400.0, 115.1, 900.0, 124.4;
        Eigen::VectorXd below;
        Eigen::VectorXd above;
        Eigen::MatrixXd derivatives;
        model.evaluate(values, below, &derivatives);
        for (Eigen::Index unknown = 0; unknown < values.size(); ++unknown) {
            if (unknown == PeakModel::drift && !shape.drifted) {
                continue;
            }
            const Eigen::VectorXd moved = Eigen::VectorXd::Unit(values.size(), unknown) * 1e-4;
            model.evaluate(values - moved, below, nullptr);
            model.evaluate(values + moved, above, nullptr);
            const Eigen::VectorXd slope = (above - below) / 2e-4;
            EXPECT_LE((derivatives.col(unknown) - slope).norm(), 1e-6 * slope.norm()) << unknown;
        }
    }
}

// The parameters of peaks with a fixed area of 0 must not prevent a fit of the continuum.
TEST(LikelihoodFit, FixedPeaksDoNotPreventTheFitOfTheContinuum) {
    const std::vector<double> contents(40, 50.0);
    PeakModel model({0, 40}, {{20.0, 5.0}}, {.curved = true, .leftTail = true, .widePeak = 0U});
    Eigen::VectorXd values = model.estimate(contents);
    values[PeakModel::level] = 200.0;
    values[PeakModel::area(0)] = 0.0;
    const Spectrum spectrum{contents, {}};
    LikelihoodFit fit(spectrum, model);
    fit.fix(PeakModel::area(0));
    fit.converge(values);
    EXPECT_NEAR(0.0, fit.unlikelihood(), 0.01);
}

// Without the peak, the step below it and an edge elsewhere must not form a peak together.
TEST(LikelihoodSignificance, StrongPeakBesideAnEdgeKeepsItsSignificance) {
    constexpr double width = 6.0;
    std::vector<double> contents(94);
    for (std::size_t index = 0; index < contents.size(); ++index) {
        const double channel = static_cast<double>(index) + 1.0;
        const auto peak = [channel](double centre, double height) {
            return height * std::exp(-0.5 * std::pow((channel - centre) * fwhmPerSigma / width, 2));
        };
        const double edge = 15.0 * std::erfc((channel - 71.0) / width);
        const double ripple = 5.0 * std::sin(1.7 * channel);
        contents[index] = 60.0 + edge + ripple + peak(25.0, 920.0) + peak(55.0, 110.0);
    }
    const std::vector<double> widths(contents.size(), width);
    const Spectrum spectrum{contents, widths};
    const auto fit = fitRegion(spectrum, {0, contents.size()}, {{25.0, width}, {55.0, width}},
                               {.edge = ExpectedPeak{71.0, width}});
    ASSERT_TRUE(fit);
    EXPECT_GT(likelihoodSignificance(spectrum, *fit, 0), 50.0);
}

struct Measurement {
    std::vector<double> values;  // at channels 100, 200, ..., with a standard deviation of 0.1
    double expected;             // at channel 250
    double largestDeviation;
};

TEST(SmoothFunction, OutliersAreLeftOut) {
    for (const auto& [values, expected, largestDeviation] :
         {Measurement{{1.0, 1.1, 1.0, 0.9, 1.0}, 1.0, 0.06},
          Measurement{{1.0, 2.0, 3.0, 4.0, 5.0}, 2.5, 0.06},
          Measurement{{1.0, 1.1, 9.0, 0.9, 1.0}, 1.0, 0.06}, Measurement{{1.0, 3.0}, 2.0, 2.0}}) {
        std::vector<MeasuredValue> measured;
        for (const double value : values) {
            const auto channel = 100.0 * static_cast<double>(measured.size() + 1);
            measured.push_back({channel, {value, 0.01}});
        }
        const Expectation result = SmoothFunction::through(measured)->at(250.0);
        EXPECT_NEAR(expected, result.value, 1e-9);
        EXPECT_LT(std::sqrt(result.variance), largestDeviation);
        EXPECT_GT(std::sqrt(result.variance), 0.5 * largestDeviation);
    }
}

}  // namespace
