#include "embedded/engines/identification.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "embedded/engines/nuclide.h"
#include "embedded/engines/response_curve.h"

namespace {

using namespace embedded::engines;

constexpr double unreachable = std::numeric_limits<double>::infinity();
constexpr MatchingRules rules = {1.0, false, 0.5};

MeasuredPeak peak(double energy, double area) {
    return {energy, 0.05, area, std::sqrt(area + 100.0)};
}

ExpectedLine line(double energy, double weight, double limit = 50.0, bool key = false) {
    return {energy, 0.0, weight, 0.0, limit, key};
}

struct Case {
    std::string name;
    std::vector<MeasuredPeak> peaks;
    std::vector<Nuclide> nuclides;
    std::vector<std::string> identified;  // nuclides with a confidence of at least 0.5
    std::vector<std::string> assigned;    // the nuclide of each peak
};

class Identify : public testing::TestWithParam<Case> {};

// The result must not depend on the order of the library.
TEST_P(Identify, FindsExactlyTheNuclidesInTheSpectrum) {
    std::vector<Nuclide> nuclides = GetParam().nuclides;
    for (int order = 0; order < 2; ++order) {
        const Findings findings = identify(GetParam().peaks, nuclides, rules);
        std::vector<std::string> identified;
        for (std::size_t number = 0; number < nuclides.size(); ++number) {
            const double confidence = findings.nuclides[number].confidence;
            EXPECT_TRUE(confidence >= 0.0 && confidence < 1.0) << nuclides[number].name;
            if (confidence >= 0.5) {
                identified.push_back(nuclides[number].name);
            }
        }
        EXPECT_THAT(identified, testing::UnorderedElementsAreArray(GetParam().identified));
        EXPECT_EQ(GetParam().assigned, findings.assigned);
        std::ranges::reverse(nuclides);
        for (Nuclide& nuclide : nuclides) {
            if (nuclide.parent) {
                nuclide.parent = nuclides.size() - 1 - *nuclide.parent;
            }
        }
    }
}

const Nuclide radium{"Ra-226", {line(186.21, 0.0356)}, {}};
const Nuclide uranium{
    "U-235",
    {line(143.76, 0.1096), line(163.36, 0.0508), line(185.72, 0.572), line(205.31, 0.0501)},
    {}};
const Nuclide europium{"Eu-154",
                       {line(123.07, 0.404), line(723.30, 0.2005), line(873.18, 0.1217),
                        line(1004.72, 0.179), line(1274.43, 0.349)},
                       {}};
const Nuclide sodium{"Na-22", {line(511.0, 1.8), line(1274.54, 0.9994)}, {}};

const std::vector<Case> cases = {
    {"NoLineNear", {peak(663.0, 500)}, {{"Cs-137", {line(661.66, 0.85)}, {}}}, {}, {""}},
    {"StrongLineMissing",
     {peak(122.06, 1e5)},
     {{"Co-57", {line(122.06, 0.8549), line(136.47, 0.1071)}, {}}},
     {},
     {""}},
    {"InvisibleLinesMissing",
     {peak(100, 500)},
     {{"X-1", {line(100, 3), line(200, 1, 1e3), line(9e3, 9, unreachable)}, {}}},
     {"X-1"},
     {"X-1"}},
    {"KeyLineMissing",
     {peak(100, 500)},
     {{"X-1", {line(100, 3), line(200, 1e-3, 1e3, true), line(300, 1e-3, 1e3)}, {}}},
     {},
     {""}},
    {"NoWeightNoEvidence",
     {peak(100, 500)},
     {{"X-1", {line(100, 0), line(200, -1)}, {}}},
     {},
     {""}},
    {"NearerLineOfTwo", {peak(186.2, 3000)}, {uranium, radium}, {"Ra-226"}, {"Ra-226"}},
    {"AllLinesOfOne",
     {peak(143.8, 2000), peak(163.4, 930), peak(185.7, 10440), peak(205.3, 915)},
     {radium, uranium},
     {"U-235"},
     {"U-235", "U-235", "U-235", "U-235"}},
    {"LineOfAnotherNuclide",
     {peak(123.07, 4040), peak(723.3, 2005), peak(873.2, 1217), peak(1004.7, 1790),
      peak(1274.4, 3490)},
     {sodium, europium},
     {"Eu-154"},
     {"Eu-154", "Eu-154", "Eu-154", "Eu-154", "Eu-154"}},
    {"SharedPeak",
     {peak(100, 3000), peak(150, 1000), peak(200, 1000)},
     {{"X-1", {line(100, 1), line(150, 1)}, {}}, {"X-2", {line(100.1, 2), line(200, 1)}, {}}},
     {"X-1", "X-2"},
     {"X-2", "X-1", "X-2"}},
    {"AnnihilationAndEscapeAreNoEvidence",
     {peak(511.0, 900), peak(1592.5, 700), peak(2103.5, 900), peak(2614.5, 9000)},
     {{"X-1", {line(511, 1)}, {}},
      {"X-2", {line(1592.6, 1)}, {}},
      {"X-3", {line(2103.6, 1)}, {}},
      {"Tl-208", {line(2614.51, 1)}, {}}},
     {"Tl-208"},
     {"", "", "", "Tl-208"}},
    {"DividedAnnihilationPeakIsNoEvidence",
     {peak(509.7, 3e4), peak(511.3, 2e3), peak(810.8, 2e4)},
     {{"X-1", {line(510, 1)}, {}}, {"Co-58", {line(510.999, 0.3), line(810.76, 0.99)}, {}}},
     {"Co-58"},
     {"", "", "Co-58"}},
    {"OtherPeaksAtFaintLines",
     {peak(279.2, 6e4), peak(401.3, 2.4e3), peak(500.1, 9e3), peak(680.5, 1.6e4)},
     {{"X-1", {line(279.2, 0.8), line(401.3, 0.034), line(500.1, 0.004), line(680.5, 0.007)}, {}}},
     {"X-1"},
     {"X-1", "X-1", "X-1", "X-1"}},
    {"GreaterYieldOfEqualLines",
     {peak(514.0, 3000)},
     {{"X-1", {line(514.0, 0.0043)}, {}}, {"X-2", {line(514.0, 0.98)}, {}}},
     {"X-2"},
     {"X-2"}},
    {"SumPeakIsNoEvidence",
     {peak(1173.2, 1e5), peak(1332.5, 1e5), peak(2505.7, 2000)},
     {{"Co-60", {line(1173.23, 1), line(1332.49, 1)}, {}}, {"X-1", {line(2505.8, 1)}, {}}},
     {"Co-60"},
     {"Co-60", "Co-60", ""}},
    {"NoSumWithAFaintLine",
     {peak(1173.2, 1e5), peak(1332.5, 5e3), peak(2505.7, 2000)},
     {{"X-2", {line(1173.23, 1), line(1332.49, 0.05)}, {}}, {"X-1", {line(2505.8, 1)}, {}}},
     {"X-1", "X-2"},
     {"X-2", "X-2", "X-1"}},
    // Both lines fit equally well; the daughter is evidence for its parent.
    {"ParentInEquilibrium",
     {peak(186.0, 3560), peak(609.3, 45000)},
     {{"Ra-226", {line(186.0, 0.0356)}, {}},
      {"Bi-214", {line(609.31, 0.45)}, 0},
      {"X-1", {line(186.0, 0.0356)}, {}}},
     {"Bi-214", "Ra-226"},
     {"Ra-226", "Bi-214"}}};

INSTANTIATE_TEST_SUITE_P(Cases, Identify, testing::ValuesIn(cases),
                         [](const auto& instance) { return instance.param.name; });

TEST(Identify, AnnihilationEscapeAndSumPeaksGetTheirOrigin) {
    const std::vector<MeasuredPeak> peaks = {
        peak(511.0, 900),  peak(1173.2, 1e5),  peak(1332.5, 1e5), peak(1592.5, 700),
        peak(2103.5, 900), peak(2505.7, 2000), peak(2614.5, 9000)};
    const std::vector<Nuclide> nuclides = {{"Co-60", {line(1173.23, 1), line(1332.49, 1)}, {}}};
    using enum PeakOrigin;
    EXPECT_THAT(
        identify(peaks, nuclides, rules).origins,
        testing::ElementsAre(annihilation, line, line, doubleEscape, singleEscape, sum, line));
}

TEST(Identify, ActivityIsTheWeightedMeanOfItsLines) {
    const std::vector<MeasuredPeak> peaks = {{100, 0.05, 1000, 30}, {200, 0.05, 2100, 40}};
    ExpectedLine uncertain = line(200, 2);
    uncertain.weightUncertainty = 0.05;
    const Findings findings =
        identify(peaks, std::vector<Nuclide>{{"X-1", {line(100, 1), uncertain}, {}}}, rules);
    // Weighted mean of 1000 +- 30 and 1050 +- hypot(20, 0.05 x 1012).
    EXPECT_NEAR(1012.0, findings.nuclides[0].activity, 2.0);
    EXPECT_NEAR(26.3, findings.nuclides[0].uncertainty, 0.3);
}

// The calibration is wrong by half a keV, and the assumed efficiency falls far too fast.
TEST(Identify, StrongLinesCorrectWrongCalibrations) {
    for (const double slope : {4e-4, 0.0}) {
        const auto shown = [slope](double energy, double area) {
            return peak(energy + (slope > 0.0 ? 0.2 : 0.56) + slope * energy, area);
        };
        std::vector<MeasuredPeak> peaks;
        Nuclide sure{"Sure-1", {}, {}};
        for (const double energy : {200.0, 400.0, 700.0, 1000.0, 1400.0}) {
            peaks.push_back(shown(energy, 5000.0));
            sure.lines.push_back(line(energy, std::pow(energy / 500.0, -1.5)));
        }
        const Nuclide right{"Right-1", {line(650.0, 1.0)}, {}};
        const Nuclide wrong{"Wrong-1", {line(950.56, 1.0)}, {}};
        peaks.push_back(shown(650.0, 300.0));
        peaks.push_back(shown(950.0, 300.0));  // a line that is not in the library
        const MatchingRules assumed = {1.0, true, 0.5};
        const Findings findings = identify(peaks, std::vector{sure, right, wrong}, assumed);
        EXPECT_GT(findings.nuclides[0].confidence, 0.9) << slope;
        EXPECT_GT(findings.nuclides[1].confidence, 0.5) << slope;
        EXPECT_LT(findings.nuclides[2].confidence, 0.1) << slope;
    }
}

// A source behind an absorber that hides some of its lines.
struct ShieldedCase {
    std::string name;
    double lead;  // g/cm2
    double iron;  // g/cm2
};

class IdentifyShielded : public testing::TestWithParam<ShieldedCase> {};

TEST_P(IdentifyShielded, VisibleLinesIdentifyTheNuclide) {
    constexpr double limit = 100.0;
    const std::vector<std::pair<double, double>> lines = {
        {121.78, 0.286}, {244.70, 0.0757}, {344.28, 0.266}, {778.90, 0.130},
        {964.08, 0.146}, {1112.07, 0.137}, {1408.01, 0.209}};
    std::vector<MeasuredPeak> peaks;
    Nuclide source{"Source-1", {}, {}};
    for (const auto& [energy, photons] : lines) {
        const double weight = photons * std::pow(energy / 500.0, -0.9);
        const ResponseVector terms = responseTerms(energy);
        const double passing = std::exp(GetParam().lead * terms[2] + GetParam().iron * terms[3]);
        source.lines.push_back(line(energy, weight, limit, energy < 200.0));
        if (1e5 * weight * passing > limit) {
            peaks.push_back(peak(energy, 1e5 * weight * passing));
        }
    }
    ASSERT_GE(peaks.size(), 3U);
    const MatchingRules assumed = {1.0, true, 0.5};
    EXPECT_GT(identify(peaks, std::vector{source}, assumed).nuclides[0].confidence, 0.5);
    // Missing lines between the visible ones are evidence against the nuclide.
    source.lines.push_back(line(1020.0, 0.1, limit));
    source.lines.push_back(line(1250.0, 0.1, limit));
    source.lines.push_back(line(1330.0, 0.1, limit));
    const Findings findings = identify(peaks, std::vector{source}, assumed);
    EXPECT_LT(findings.nuclides[0].confidence, 0.9);
}

INSTANTIATE_TEST_SUITE_P(Absorbers, IdentifyShielded,
                         testing::Values(ShieldedCase{"None", 0.0, 0.0},
                                         ShieldedCase{"Lead", 13.6, 0.0},
                                         ShieldedCase{"Iron", 0.0, 39.3}),
                         [](const auto& instance) { return instance.param.name; });

TEST(Identify, XRaysOfLeadGetTheirOrigin) {
    Nuclide lead{"Pb", {}, {}};
    std::vector<MeasuredPeak> peaks;
    for (const auto& element : xRayElements()) {
        for (const XRayLine& xRay : element.lines) {
            if (element.symbol == "Pb") {
                lead.lines.push_back(line(xRay.energy, xRay.intensity, 500.0));
                peaks.push_back(peak(xRay.energy, 1e4 * std::pow(xRay.intensity, 1.2)));
            }
        }
    }
    // The intensities of the nuclide fit better.
    Nuclide other{"X-1", lead.lines, {}};
    for (ExpectedLine& xRay : other.lines) {
        xRay.weight = std::pow(xRay.weight, 1.2);
    }
    other.lines.push_back(line(569.7, 0.5, 2e4));
    const Findings findings = identify(peaks, std::vector{other}, rules, std::vector{lead});
    EXPECT_LT(findings.nuclides[0].confidence, 0.5);
    EXPECT_EQ(PeakOrigin::xRay, findings.origins[1]);
}

TEST(Identify, SameLineIdentifiesTheNuclideWithLongerHalfLife) {
    // Its second line should barely be visible.
    Nuclide lasting{"Long-1", {line(165.86, 1.0), line(200.0, 0.015)}, {}};
    Nuclide fleeting{"Short-1", {line(165.86, 1.0)}, {}};
    lasting.halfLife = 1e7;
    fleeting.halfLife = 5e3;
    const Findings findings =
        identify(std::vector{peak(165.9, 3000.0)}, std::vector{fleeting, lasting}, rules);
    EXPECT_LT(findings.nuclides[0].confidence, 0.1);
    EXPECT_GT(findings.nuclides[1].confidence, 0.5);
}

TEST(Identify, LinesHiddenByStrongNeighboursAreNotMissing) {
    Nuclide hidden{"X-1", {line(500.0, 1.0), line(800.0, 1.0), line(1001.5, 1.0, 50.0, true)}, {}};
    std::vector<MeasuredPeak> peaks = {peak(500.0, 3000.0), peak(800.0, 3000.0), peak(1000.0, 1e6)};
    for (MeasuredPeak& one : peaks) {
        one.width = 2.0;
    }
    EXPECT_GT(identify(peaks, std::vector{hidden}, rules).nuclides[0].confidence, 0.5);
    peaks.pop_back();
    EXPECT_LT(identify(peaks, std::vector{hidden}, rules).nuclides[0].confidence, 0.1);
}

}  // namespace
