// Tests of activities with their characteristic limits, on simulated spectra.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "embedded/engines/activity_determination.h"
#include "embedded/engines/peak_search.h"
#include "tests/unit/engines/simulated_spectrum.h"

namespace embedded::engines {
namespace {

// ISO 11929 by hand: quantiles 1.6449, 1.3399 and 1.9894, density and distribution from a table.
TEST(DecisionLimits, FollowFromResultAndUncertainty) {
    const auto uncertaintyAt = [](double activity) {
        return std::sqrt(4.0 + activity + 0.01 * activity * activity);
    };
    const DecisionLimits limits = decisionLimits(3.0, 2.0, uncertaintyAt, {});
    EXPECT_NEAR(3.2897, limits.threshold, 1e-4);
    const double limit = limits.detectionLimit.value();
    EXPECT_NEAR(limits.threshold + 1.644854 * uncertaintyAt(limit), limit, 1e-5);
    EXPECT_NEAR(3.0 + 2.0 * 0.129518 / 0.933193, limits.bestEstimate, 1e-5);
    EXPECT_NEAR(std::sqrt(4.0 - (limits.bestEstimate - 3.0) * limits.bestEstimate),
                limits.bestEstimateUncertainty, 1e-6);
    EXPECT_NEAR(3.0 - 2.0 * 1.3399, limits.lower, 1e-3);
    EXPECT_NEAR(3.0 + 2.0 * 1.9894, limits.upper, 1e-3);
}

TEST(DecisionLimits, StayFiniteFarFromZeroAndWithoutDetectionLimit) {
    for (const double result : {-300.0, -3.0, 300.0}) {
        const auto limits = decisionLimits(
            result, 1.0, [](double activity) { return 1.0 + 0.7 * activity; }, {0.05, 0.05, 0.95});
        EXPECT_FALSE(limits.detectionLimit) << result;
        EXPECT_GE(limits.bestEstimate, std::max(0.0, result)) << result;
        EXPECT_GE(limits.lower, 0.0) << result;
        EXPECT_GT(limits.upper, limits.lower) << result;
        EXPECT_TRUE(std::isfinite(limits.bestEstimateUncertainty)) << result;
    }
    const auto plain = [](double) { return 1.0; };
    EXPECT_NEAR(300.0 - 1.96, decisionLimits(300.0, 1.0, plain, {}).lower, 1e-3);
    EXPECT_NEAR(2.3263, decisionLimits(0.0, 1.0, plain, {0.01, 0.05, 0.95}).threshold, 1e-3);
    EXPECT_NEAR(1.6449 + 2.3263,
                *decisionLimits(0.0, 1.0, plain, {0.05, 0.01, 0.95}).detectionLimit, 1e-3);
}

// A spectrum with its peaks, and the activities in it.
class Sample {
  public:
    explicit Sample(const simulated::SimulatedSpectrum& spectrum, bool isSearched = true)
        : contents_(spectrum.rounded()),
          widths_(spectrum.widths()),
          spectrum_{contents_, widths_},
          meter_(spectrum_, simulated::calibration(),
                 isSearched ? peaks() : std::vector<MeasuredPeak>()) {}

    const LineMeter& meter() const { return meter_; }
    std::vector<MeasuredActivity> activities(const std::vector<Nuclide>& nuclides,
                                             const std::vector<bool>& found,
                                             const BlankMeasurement* blank = nullptr,
                                             const EfficiencyUncertainty& efficiency = {},
                                             const Quantity& quantity = {}) const {
        const std::vector<PeakOrigin> origins(meter_.peaks().size(), PeakOrigin::line);
        const std::vector<double> decay(nuclides.size(), 0.02);
        return determineActivities(
            {meter_, blank, origins, nuclides, found, decay, efficiency, 1.0}, quantity, {});
    }

  private:
    std::vector<MeasuredPeak> peaks() const {
        std::vector<MeasuredPeak> peaks;
        for (const FittedPeak& peak : findPeaks(spectrum_, {5.0})) {
            peaks.push_back(
                {0.5 * peak.channel, 0.05, peak.area, peak.areaUncertainty, 0.5 * peak.width});
        }
        return peaks;
    }

    std::vector<double> contents_;
    std::vector<double> widths_;
    Spectrum spectrum_;
    LineMeter meter_;
};

ExpectedLine line(double energy, double weight, double weightUncertainty = 0.0) {
    return {energy, 0.02, weight, weightUncertainty, 50.0, false};
}

TEST(Activities, AreThoseOfTheSimulation) {
    simulated::SimulatedSpectrum spectrum;
    spectrum.addPeak(1200.0, 30.0);    // 600 keV, far below the limit of the search
    spectrum.addPeak(2000.0, 5000.0);  // 1000 keV, of A and B
    spectrum.addPeak(2400.0, 1000.0);  // 1200 keV, of B alone
    spectrum.addPeak(3000.0, 2000.0);  // 1500 keV, of something else
    spectrum.addPeak(1800.0, -300.0);  // 900 keV, a hole
    const Sample sample(spectrum);
    const std::vector<Nuclide> nuclides = {{"A", {line(1000.0, 30.0)}, {}},
                                           {"B", {line(1000.0, 20.0), line(1200.0, 10.0)}, {}},
                                           {"faint", {line(600.0, 3.0)}, {}},
                                           {"absent", {line(800.0, 10.0)}, {}},
                                           {"stray", {line(800.0, 10.0), line(1500.0, 10.0)}, {}},
                                           {"copy of A", {line(1000.0, 40.0)}, {}},
                                           {"outside", {line(5000.0, 40.0)}, {}},
                                           {"denied", {line(800.0, 10.0), line(900.0, 10.0)}, {}}};
    const auto results =
        sample.activities(nuclides, {true, true, false, false, false, false, false, false});
    const std::vector<double> expected = {100.0, 100.0, 10.0, 0.0, 0.0};
    for (std::size_t nuclide = 0; nuclide < expected.size(); ++nuclide) {
        const MeasuredActivity& one = results[nuclide];
        ASSERT_TRUE(one.isKnown) << nuclides[nuclide].name;
        EXPECT_NEAR(expected[nuclide], one.activity, 0.4 * one.uncertainties.total())
            << nuclides[nuclide].name;
    }
    EXPECT_GT(results[0].activity, results[0].limits.threshold);
    EXPECT_LT(results[2].activity, results[2].limits.threshold);
    EXPECT_GT(results[0].uncertainties.counts, results[1].uncertainties.counts / 2.0);
    EXPECT_EQ(1U, results[4].lines.size());  // the peak at 1500 keV belongs to something else
    EXPECT_EQ("not separable from A", results[5].reason);
    EXPECT_EQ("no usable channels at 5000.0 keV", results[6].reason);
    // Lines that disagree raise the decision threshold as well.
    EXPECT_GT(results[7].limits.threshold, 0.8 * results[3].limits.threshold);
}

TEST(Activities, SubtractBlankInPeaksAndBelowThem) {
    simulated::SimulatedSpectrum spectrum;
    simulated::SimulatedSpectrum empty;
    spectrum.addPeak(1200.0, 4000.0);
    spectrum.addPeak(2000.0, 40.0);
    empty.addPeak(1200.0, 3000.0);
    empty.addPeak(2000.0, 80.0);
    const Sample sample(spectrum);
    for (const bool isSearched : {true, false}) {  // the peaks of the blank need not be found
        const Sample blank(empty, isSearched);
        const BlankMeasurement subtracted{blank.meter(), 0.5};
        const auto results =
            sample.activities({{"A", {line(600.0, 10.0)}, {}}, {"B", {line(1000.0, 10.0)}, {}}},
                              {true, false}, &subtracted);
        EXPECT_NEAR(250.0, results[0].activity, 5.0);
        EXPECT_NEAR(150.0, results[0].blank, 5.0);
        EXPECT_NEAR(0.0, results[1].activity, 0.5);
        EXPECT_NEAR(0.5 * std::sqrt(3000.0) / 10.0, results[0].uncertainties.blank, 0.8);
        EXPECT_NEAR(1500.0, results[0].lines.front().blank, 40.0);
    }
}

TEST(Activities, UncertaintyHasItsParts) {
    simulated::SimulatedSpectrum spectrum;
    spectrum.addPeak(1200.0, 100000.0);
    const Sample sample(spectrum);
    Nuclide nuclide{"A", {line(600.0, 100.0, 0.03)}, {}};
    nuclide.lines[0].summingUncertainty = -0.04;
    EfficiencyUncertainty efficiency;
    efficiency.factor = lowerTriangle({0.01, 0.0, 0.005}, 2);
    const auto parts =
        sample.activities({nuclide}, {true}, nullptr, efficiency, {2.0, 0.06})[0].uncertainties;
    const double activity = 500.0;
    EXPECT_NEAR(activity * 0.03, parts.yield, 0.2);
    EXPECT_NEAR(activity * 0.04, parts.summing, 0.2);
    EXPECT_NEAR(activity * 0.02, parts.halfLife, 0.1);
    EXPECT_NEAR(activity * 0.06, parts.quantity, 0.3);
    EXPECT_NEAR(activity * std::hypot(0.01, 0.005 * std::log(600.0)), parts.efficiency, 0.2);
    EXPECT_NEAR(std::sqrt(100000.0) / 200.0, parts.counts, 0.1);
    EXPECT_EQ(0.0, parts.blank);
    efficiency.maxEnergy = 599.0;
    EXPECT_EQ("no efficiency at 600.0 keV",
              sample.activities({nuclide}, {true}, nullptr, efficiency)[0].reason);
}

// The peak at 600 keV is that of B: the counts of B are subtracted with all their uncertainties.
TEST(Activities, UncertaintiesOfOtherNuclidesRemainWithoutActivity) {
    simulated::SimulatedSpectrum spectrum;
    spectrum.addPeak(1200.0, 100000.0);
    spectrum.addPeak(2400.0, 100000.0);
    ExpectedLine shared = line(600.0, 100.0, 0.03);
    shared.summingUncertainty = 0.04;
    EfficiencyUncertainty efficiency;
    efficiency.factor = lowerTriangle({0.01, 0.0, 0.005}, 2);
    const auto absent = Sample(spectrum).activities(
        {{"A", {line(600.0, 100.0)}, {}}, {"B", {shared, line(1200.0, 100.0)}, {}}}, {false, true},
        nullptr, efficiency)[0];
    const double other = 1000.0;
    EXPECT_NEAR(0.0, absent.activity, 10.0);
    EXPECT_NEAR(other * 0.03, absent.uncertainties.yield, 0.3);
    EXPECT_NEAR(other * 0.04, absent.uncertainties.summing, 0.4);
    EXPECT_NEAR(other * 0.005 * std::log(2.0), absent.uncertainties.efficiency, 0.2);
    EXPECT_NEAR(0.0, absent.uncertainties.halfLife, 0.2);  // the same for both lines of B
}

}  // namespace
}  // namespace embedded::engines
