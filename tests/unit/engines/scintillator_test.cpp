#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <ostream>
#include <string>

#include "embedded/engines/nuclide.h"
#include "embedded/engines/scintillator_identification.h"
#include "embedded/engines/scintillator_response.h"
#include "tests/unit/engines/simulated_scintillator.h"

namespace {

using namespace embedded::engines;
using simulated::ScintillatorSpectrum;

constexpr double year = 3.156e7;

struct Photons {
    double energy;
    double perDecay;
};

Nuclide nuclide(const std::string& name, double halfLife, const std::vector<Photons>& photons) {
    Nuclide result{name, {}, {}, halfLife};
    for (const Photons& line : photons) {
        result.lines.push_back({line.energy, 0.0, line.perDecay, 0.0, 0.0, false});
    }
    return result;
}

// The nuclides of the cases, each with nuclides that have similar lines.
const std::vector<Nuclide> physical = {
    nuclide("Cs-137", 30 * year, {{661.66, 0.85}}),
    nuclide("Nb-97", 0.0001 * year, {{657.94, 0.98}}),
    nuclide("Cs-132", 0.018 * year, {{464.5, 0.016}, {667.71, 0.976}}),
    nuclide("Co-60", 5.27 * year, {{1173.23, 0.9985}, {1332.49, 0.9998}}),
    nuclide("Na-22", 2.6 * year, {{511.0, 1.8}, {1274.54, 0.9994}}),
    nuclide("Mn-54", 0.85 * year, {{834.85, 0.9998}}),
    nuclide("Zn-65", 0.67 * year, {{511.0, 0.028}, {1115.54, 0.5004}}),
    nuclide("K-40", 1e9 * year, {{1460.82, 0.1055}}),
    nuclide("Ba-133", 10.5 * year,
            {{81.0, 0.329}, {276.4, 0.0716}, {302.85, 0.1834}, {356.01, 0.6205}, {383.85, 0.0894}}),
    nuclide("I-131", 0.022 * year,
            {{80.19, 0.026}, {284.31, 0.061}, {364.49, 0.815}, {636.99, 0.0716}, {722.91, 0.0177}}),
    nuclide("Pb-214", 1600 * year,
            {{242.0, 0.0727}, {295.22, 0.1842}, {351.93, 0.356}, {785.96, 0.0106}}),
    nuclide("Cr-51", 0.076 * year, {{320.08, 0.099}}),
    nuclide("Eu-152", 13.5 * year,
            {{121.78, 0.2853},
             {244.7, 0.0755},
             {344.28, 0.2659},
             {411.12, 0.0224},
             {778.9, 0.1293},
             {867.38, 0.0423},
             {964.06, 0.1451},
             {1085.84, 0.1011},
             {1112.08, 0.1367},
             {1408.01, 0.2087}}),
    nuclide("Y-88", 0.29 * year, {{898.04, 0.937}, {1836.06, 0.992}}),
    nuclide("Co-58", 0.194 * year, {{511.0, 0.298}, {810.76, 0.9945}}),
    nuclide("Lu-177", 0.018 * year, {{112.95, 0.062}, {208.37, 0.1038}}),
    nuclide("Am-241", 432 * year, {{59.54, 0.359}}),
    nuclide("Al-28", 4.26e-6 * year, {{1778.99, 1.0}})};

// Returns the nuclides as in a library without an efficiency calibration.
std::vector<Nuclide> library() {
    std::vector<Nuclide> nuclides = physical;
    for (Nuclide& one : nuclides) {
        for (ExpectedLine& line : one.lines) {
            line.weight *= efficiencyAt({}, line.energy);
        }
    }
    return nuclides;
}

const std::vector<double> everywhere(ScintillatorSpectrum::channels, 1.0);
constexpr MatchingRules scintillatorRules = {
    .tolerance = 1.0, .efficiencyIsAssumed = true, .minConfidence = 0.5};

struct ScintillatorCase {
    std::string name;
    simulated::Scintillator detector;
    std::map<std::string, int> counts;  // by nuclide
    int continuum;
    std::vector<Photons> otherLines = {};
    int otherCounts = 0;
};

void PrintTo(const ScintillatorCase& the, std::ostream* stream) {
    *stream << the.name;
}

class IdentifyInScintillator : public testing::TestWithParam<ScintillatorCase> {};

TEST_P(IdentifyInScintillator, FindsExactlyTheSources) {
    const ScintillatorCase& the = GetParam();
    ScintillatorSpectrum spectrum(the.detector, 1);
    std::vector<std::string> expected;
    for (const Nuclide& one : physical) {
        if (const auto counts = the.counts.find(one.name); counts != the.counts.end()) {
            spectrum.addNuclide(one.lines, counts->second);
            expected.push_back(one.name);
        }
    }
    spectrum.addContinuum(the.continuum);
    spectrum.addNuclide(nuclide("", 0.0, the.otherLines).lines, the.otherCounts);
    const std::vector<double> contents = spectrum.contents();
    const Findings findings = identifyInScintillator({contents, everywhere}, spectrum.calibration(),
                                                     {}, library(), scintillatorRules, 5.0);
    std::vector<std::string> identified;
    for (std::size_t number = 0; number < physical.size(); ++number) {
        if (findings.nuclides[number].confidence >= 0.5) {
            identified.push_back(physical[number].name);
            EXPECT_GT(findings.nuclides[number].activity, 0.0);
            EXPECT_GT(findings.nuclides[number].uncertainty, 0.0);
        }
    }
    EXPECT_THAT(identified, testing::UnorderedElementsAreArray(expected));
}

constexpr simulated::Scintillator sodiumIodide = {"NaI", 0.07, 260.0, 1.5};
constexpr simulated::Scintillator highGain = {"NaI", 0.07, 260.0, 1.5, 1.015};
constexpr simulated::Scintillator caesiumIodide = {"CsI", 0.09, 290.0, 1.2, 0.99};
constexpr simulated::Scintillator lanthanumBromide = {"LaBr3", 0.029, 240.0, 1.2, 1.02};
constexpr simulated::Scintillator germanate = {"BGO", 0.12, 500.0, 2.0};

const std::vector<ScintillatorCase> scintillatorCases = {
    {"CaesiumAmongNeighbours", sodiumIodide, {{"Cs-137", 200000}}, 10000},
    {"WrongGain", highGain, {{"Cs-137", 100000}, {"Co-60", 100000}}, 10000},
    {"WeakOverContinuum", caesiumIodide, {{"Cs-137", 8000}}, 40000},
    {"OverlappingLines", sodiumIodide, {{"Ba-133", 200000}}, 10000},
    {"LinesOfIodine", caesiumIodide, {{"I-131", 100000}}, 10000},
    {"ManyLines", lanthanumBromide, {{"Eu-152", 400000}}, 10000},
    {"GainErrorAsLargeAsPeakWidth", lanthanumBromide, {{"Co-60", 100000}, {"Mn-54", 30000}}, 5000},
    {"BroadPeaks", germanate, {{"Co-60", 100000}}, 10000},
    {"Annihilation", germanate, {{"Na-22", 100000}}, 10000},
    {"PureContinuum", sodiumIodide, {}, 200000},
    {"XRaysOfDaughter", sodiumIodide, {{"Lu-177", 80000}}, 5000, {{55.8, 4.0}, {63.2, 1.0}}, 40000},
    {"EscapesOfPairProduction",
     lanthanumBromide,
     {{"Y-88", 90000}},
     5000,
     {{1325.1, 1.0}, {814.1, 1.0}},
     12000},
    {"AlphasOfCrystal",
     lanthanumBromide,
     {{"Cs-137", 50000}},
     5000,
     {{1650.0, 1.0}, {1779.0, 2.0}, {2050.0, 1.0}, {2250.0, 1.0}},
     20000}};

INSTANTIATE_TEST_SUITE_P(Cases, IdentifyInScintillator, testing::ValuesIn(scintillatorCases),
                         [](const auto& instance) { return instance.param.name; });

// Returns the correction for a detector that shows other energies than its calibration.
EnergyCorrection correctionFor(const simulated::Scintillator& detector,
                               const std::vector<std::size_t>& sources, int continuum) {
    ScintillatorSpectrum spectrum(detector, 2);
    for (const std::size_t source : sources) {
        spectrum.addNuclide(physical[source].lines, 60000);
    }
    spectrum.addContinuum(continuum);
    const std::vector<double> contents = spectrum.contents();
    return scintillatorCorrection({contents, everywhere}, spectrum.calibration(), library());
}

TEST(ScintillatorCalibration, GainErrorIsCorrectedWithFewLines) {
    struct Measured {
        simulated::Scintillator detector;
        std::vector<std::size_t> sources;  // in `physical`
        double line;
    };
    const std::vector<Measured> measurements = {
        {{"NaI", 0.07, 260.0, 1.5, 0.95}, {0}, 661.66},       // Cs-137
        {{"NaI", 0.07, 260.0, 1.5, 1.07}, {0, 7}, 661.66},    // Cs-137, K-40
        {{"CsI", 0.09, 290.0, 1.2, 1.06}, {8}, 356.01},       // Ba-133
        {{"BGO", 0.12, 500.0, 2.0, 0.93}, {3}, 1332.49},      // Co-60
        {{"LaBr3", 0.029, 240.0, 1.2, 0.94}, {12}, 344.28}};  // Eu-152
    for (const Measured& the : measurements) {
        const EnergyCorrection correction = correctionFor(the.detector, the.sources, 5000);
        EXPECT_GE(correction.lines, 1U) << the.detector.name;
        EXPECT_NEAR(the.line, correction.relation.energyAt(the.detector.gain * the.line),
                    0.25 * the.detector.resolution * the.line)
            << the.detector.name << " " << the.detector.gain;
    }
}

TEST(ScintillatorCalibration, CorrectCalibrationAndPureContinuumStayUnchanged) {
    EXPECT_EQ(0U, correctionFor(sodiumIodide, {0, 7}, 5000).lines);
    EXPECT_EQ(0U, correctionFor(sodiumIodide, {}, 100000).lines);
}

TEST(IdentifyInScintillator, PeaksAreAssignedToTheStrongestNuclide) {
    ScintillatorSpectrum spectrum(sodiumIodide, 3);
    spectrum.addNuclide(physical[0].lines, 100000);
    spectrum.addContinuum(10000);
    const std::vector<double> contents = spectrum.contents();
    const std::vector<MeasuredPeak> peaks = {
        {184.0, 2.0, 5e3, 300.0}, {513.0, 3.0, 2e3, 300.0}, {662.5, 1.0, 2.5e4, 300.0}};
    const Findings findings = identifyInScintillator({contents, everywhere}, spectrum.calibration(),
                                                     peaks, library(), scintillatorRules, 5.0);
    EXPECT_THAT(findings.assigned, testing::ElementsAre("", "", "Cs-137"));
    EXPECT_THAT(findings.origins,
                testing::ElementsAre(PeakOrigin::line, PeakOrigin::annihilation, PeakOrigin::line));
    EXPECT_THAT(findings.nuclides[0].peaks, testing::ElementsAre(2));
    EXPECT_DOUBLE_EQ(661.66, findings.nuclides[0].energy);
}

TEST(IdentifyInScintillator, TooFewChannelsGiveNoNuclides) {
    const std::vector<double> few(4, 10.0);
    const Findings findings = identifyInScintillator({few, few}, {{0.0, 100.0}, {0.0, 3.2}, {}}, {},
                                                     library(), scintillatorRules, 5.0);
    EXPECT_EQ(0.0, findings.nuclides[0].confidence);
}

TEST(ScintillatorBins, BinsLieBetweenThresholdAndEndOfRange) {
    const Calibration calibration = {{0.0, 3.0}, {0.0, 3.2}, {}};
    std::vector<double> contents(1000, 10.0);
    std::fill_n(contents.begin(), 20, 0.0);
    std::vector<double> range(contents.size(), 1.0);
    std::fill(range.begin() + 800, range.end(), 0.0);
    const ScintillatorBins bins = scintillatorBins({contents, range}, calibration);
    const auto last = bins.size() - 1;
    EXPECT_NEAR(63.0 + 0.7 * widthAtEnergy(calibration, 63.0), bins.edges[0], 3.0);
    EXPECT_NEAR(2400.0, bins.edges[last + 1], 0.4 * widthAtEnergy(calibration, 2400.0));
    EXPECT_NEAR(10.0 / 3.0, bins.counts[last] / (bins.edges[last + 1] - bins.edges[last]), 0.01);
    EXPECT_EQ(last, bins.binAt(bins.centre(last)));
    EXPECT_EQ(bins.size(), bins.binAt(1e4));
    for (Eigen::Index bin = 0; bin < bins.size(); ++bin) {
        EXPECT_GE(bins.positions[bin + 1] - bins.positions[bin], binWidth);
    }
}

TEST(ScintillatorBins, PeakWidthIdentifiesScintillators) {
    EXPECT_TRUE(isScintillator({{}, {0.0, 0.55}, {}}));     // 2.9 %
    EXPECT_FALSE(isScintillator({{}, {1.0, 0.0025}, {}}));  // germanium
    EXPECT_FALSE(isScintillator({{}, {-1.0}, {}}));
}

TEST(ScintillatorResponse, LineGivesPeakComptonEdgeAndBackscatter) {
    const Calibration calibration = {{0.0, 3.0}, {0.0, 3.2}, {}};
    const std::vector<double> contents(1000, 10.0);
    const ScintillatorBins bins = scintillatorBins({contents, contents}, calibration);
    const ScintillatorResponse response(bins, calibration, {5.0, 0.01, 0.0, 0.0, 0.0});
    Eigen::VectorXd peak = Eigen::VectorXd::Zero(bins.size());
    response.addPeak(peak, 661.66, 1000.0);
    EXPECT_NEAR(1000.0, peak.sum(), 0.1);
    Eigen::Index top = 0;
    peak.maxCoeff(&top);
    EXPECT_NEAR(673.3, bins.centre(top), 10.0);
    Eigen::VectorXd compton = Eigen::VectorXd::Zero(bins.size());
    response.addCompton(compton, 661.66, 1000.0);
    EXPECT_GT(compton[bins.binAt(400.0)], 0.0);
    EXPECT_NEAR(0.0, compton[bins.binAt(620.0)], 1e-3);
    Eigen::VectorXd backscatter = Eigen::VectorXd::Zero(bins.size());
    response.addBackscatter(backscatter, 661.66, {-1.0, -0.2}, 1000.0);
    backscatter.maxCoeff(&top);
    EXPECT_NEAR(215.0, bins.centre(top), 30.0);
}

TEST(Rarity, ShorterHalfLifeGivesHigherRarity) {
    EXPECT_EQ(0.0, rarity("Cs-137", 30 * year));
    EXPECT_GT(rarity("Nb-95", 35 * 86400.0), 0.0);
    EXPECT_GT(rarity("Cs-132", 6 * 86400.0), rarity("Nb-95", 35 * 86400.0));
    EXPECT_GT(rarity("Nb-97", 4000.0), rarity("Cs-132", 6 * 86400.0));
    EXPECT_GT(rarity("Ba-137m", 153.0), rarity("Nb-97", 4000.0));
    EXPECT_EQ(rarity("Nb-95", 35 * 86400.0), rarity("X-1", 0.0));
}

}  // namespace
