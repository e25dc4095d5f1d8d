#include "embedded/engines/identification.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace {

using namespace embedded::engines;

constexpr double unreachable = std::numeric_limits<double>::infinity();
constexpr MatchingRules rules = {1.0, 0.5};

struct Case {
    std::string name;
    std::vector<MeasuredPeak> peaks;
    std::vector<ExpectedLine> lines;
    double confidence;  // 0: not identified
};

class Identify : public testing::TestWithParam<Case> {};

TEST_P(Identify, WeighsTheLinesFoundAgainstThoseMissing) {
    const std::vector<Nuclide> nuclides = {{"X-1", GetParam().lines}};
    const auto found = identify(GetParam().peaks, nuclides, rules);
    if (GetParam().confidence == 0.0) {
        EXPECT_TRUE(found.empty());
        return;
    }
    ASSERT_EQ(found.size(), 1U);
    EXPECT_DOUBLE_EQ(found[0].confidence, GetParam().confidence);
}

const std::vector<Case> cases = {
    {"AllFound", {{100.2, 50.0}, {199.5, 50.0}}, {{100, 1, 9, false}, {200, 1, 9, false}}, 1.0},
    {"NoneWithinTolerance", {{101.1, 50.0}}, {{100, 1, 9, false}}, 0.0},
    {"JustWithinTolerance", {{101.0, 50.0}}, {{100, 1, 9, false}}, 1.0},
    {"MissingSpeaksAgainst", {{100, 50.0}}, {{100, 3, 9, false}, {200, 1, 9, false}}, 0.75},
    {"MissingBelowItsLimit", {{100, 50.0}}, {{100, 3, 9, false}, {200, 1, 20, false}}, 1.0},
    {"MissingOutsideSpectrum",
     {{100, 50.0}},
     {{100, 1, 9, false}, {9e3, 9, unreachable, false}},
     1.0},
    {"TooMuchMissing", {{100, 50.0}}, {{100, 1, 9, false}, {200, 2, 9, false}}, 0.0},
    {"KeyLineMissing", {{100, 50.0}}, {{100, 3, 9, false}, {200, 1, 99, true}}, 0.0},
    {"LeastActivityCounts",
     {{100, 900.0}, {200, 10.0}},
     {{100, 1, 9, false}, {200, 1, 9, false}, {300, 0.5, 9, false}},
     1.0},
    {"NoWeightNoEvidence", {{100, 50.0}}, {{100, 0, 9, false}, {200, -1, 9, true}}, 0.0},
};

INSTANTIATE_TEST_SUITE_P(Cases, Identify, testing::ValuesIn(cases),
                         [](const auto& instance) { return instance.param.name; });

TEST(AssignPeaks, GivesASharedPeakToTheMoreConfidentNuclide) {
    const std::vector<MeasuredPeak> peaks = {{100, 500.0}, {150, 40.0}, {200, 500.0}, {250, 9.0}};
    const std::vector<Nuclide> nuclides = {
        {"Less-1", {{100, 2, 9, false}, {150, 1, 9, false}, {300, 1, 9, false}}},
        {"More-1", {{100.4, 1, 9, false}, {200, 2, 9, false}}}};
    const auto found = identify(peaks, nuclides, rules);
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(found[0].name, "More-1");
    EXPECT_DOUBLE_EQ(found[0].energy, 200);
    EXPECT_THAT(assignPeaks(peaks.size(), found),
                testing::ElementsAre("More-1", "Less-1", "More-1", ""));
}

}  // namespace
