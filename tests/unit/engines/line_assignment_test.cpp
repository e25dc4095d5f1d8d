// Tests of assigning peaks to lines with a wrong calibration and without one.
#include "embedded/engines/line_assignment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "embedded/engines/calibration.h"
#include "embedded/engines/energy_correction.h"
#include "tests/unit/engines/simulated_spectrum.h"

namespace embedded::engines {
namespace {

// Energies in keV and photons per decay.
const LinePattern europium = {"Eu-152",
                              {{121.78, 0.284},
                               {244.70, 0.0755},
                               {344.28, 0.266},
                               {411.12, 0.0224},
                               {443.96, 0.0312},
                               {778.90, 0.130},
                               {867.38, 0.0424},
                               {964.06, 0.145},
                               {1085.84, 0.101},
                               {1112.08, 0.134},
                               {1299.14, 0.0163},
                               {1408.01, 0.208}},
                              0.0};
const LinePattern cobalt = {"Co-60", {{1173.23, 0.9985}, {1332.49, 0.9998}}, 0.0};
const LinePattern barium = {
    "Ba-133",
    {{81.0, 0.33}, {276.40, 0.0716}, {302.85, 0.183}, {356.01, 0.62}, {383.85, 0.0894}},
    0.0};
const LinePattern caesium = {"Cs-137", {{661.66, 0.85}}, 0.0};
const std::vector<LinePattern> library = {europium, cobalt, barium, caesium};

// A nuclide measured by a detector with a wrong energy calibration.
struct Case {
    LinePattern nuclide;
    double resolution;  // FWHM by energy at 662 keV
    double offset;      // keV; calibrated = offset + gain x true energy
    double gain;
};

std::vector<PositionedPeak> peaksOf(const Case& measured, const std::vector<double>& foreign = {}) {
    std::vector<PositionedPeak> peaks;
    const auto add = [&](double energy, double counts) {
        const double width = measured.resolution * std::sqrt(662.0 * energy);
        const double uncertainty = std::sqrt(counts + 400.0);
        peaks.push_back({measured.offset + measured.gain * energy,
                         width / 2.35 * uncertainty / counts, width, counts, uncertainty});
    };
    for (const PatternLine& line : measured.nuclide.lines) {
        add(line.energy, 2e7 * line.weight / line.energy);
    }
    for (const double energy : foreign) {
        add(energy, 3000.0);
    }
    std::ranges::sort(peaks, {}, &PositionedPeak::position);
    return peaks;
}

TEST(EnergyCorrection, WrongCalibrationIsCorrected) {
    const std::vector<Case> cases = {{europium, 0.0024, 0.0, 1.004},
                                     {europium, 0.0024, -3.0, 0.997},
                                     {cobalt, 0.0024, 0.0, 1.003}};
    for (const Case& measured : cases) {
        const auto correction =
            energyCorrectionOf(peaksOf(measured, {200.3, 511.0, 1460.8}), library);
        const double line = measured.nuclide.lines[1].energy;
        EXPECT_GE(correction.lines, std::min<std::size_t>(4, measured.nuclide.lines.size()))
            << measured.gain;
        EXPECT_NEAR(line, correction.relation.energyAt(measured.offset + measured.gain * line),
                    0.2 * measured.resolution * line)
            << measured.gain;
    }
}

TEST(EnergyCorrection, SingleLinesOfSeveralSourcesAndXRaysAreCombined) {
    Case measured = {{"", {{72.8, 2e-4}, {74.97, 3e-4}, {84.8, 1e-4}}, 0.0}, 0.0024, 3.0, 0.994};
    measured.nuclide.lines.push_back(caesium.lines.front());
    for (const PatternLine& line : cobalt.lines) {
        measured.nuclide.lines.push_back({line.energy, 1e-3});
    }
    const auto correction = energyCorrectionOf(peaksOf(measured), library);
    EXPECT_GE(correction.lines, 5U);
    EXPECT_NEAR(1332.49, correction.relation.energyAt(3.0 + 0.994 * 1332.49), 0.5);
}

TEST(EnergyCorrection, MissingEvidenceGivesNoCorrection) {
    const std::vector<std::vector<PositionedPeak>> cases = {
        {},
        peaksOf({europium, 0.0024, 0.0, 1.0}),   // correct calibration
        peaksOf({caesium, 0.0024, 0.0, 1.003}),  // only one line
        peaksOf({europium, 0.0024, 0.0, 1.05}),  // error out of range
        // nuclides that are not in the library
        peaksOf({{"", {}, 0.0}, 0.0024, 0.0, 1.0}, {140.5, 320.1, 834.8, 1099.2, 1674.7})};
    for (const auto& peaks : cases) {
        EXPECT_EQ(0U, energyCorrectionOf(peaks, library).lines) << peaks.size();
    }
}

// Returns the channel of an energy for a quadratic calibration of about 0.37 keV per channel.
double channelOf(double energy) {
    return (std::sqrt(0.37 * 0.37 + 8e-7 * (energy + 2.0)) - 0.37) / 4e-7;
}

TEST(EnergyCalibration, PeaksInChannelsGiveACalibration) {
    constexpr std::size_t channels = 4096;
    for (const LinePattern& nuclide : {europium, barium}) {
        auto peaks = peaksOf({nuclide, 0.0024, 0.0, 1.0}, {74.9, 511.0, 609.3, 1460.8, 2614.5});
        for (PositionedPeak& peak : peaks) {
            peak.position = channelOf(peak.position);
            peak.width /= 0.37;
            peak.uncertainty /= 0.37;
        }
        const auto energy = calibrateEnergy(peaks, std::vector{nuclide}, channels);
        ASSERT_TRUE(energy.has_value());
        for (const PatternLine& line : nuclide.lines) {
            EXPECT_NEAR(line.energy, polynomial(*energy, channelOf(line.energy)), 0.15);
        }
    }
}

TEST(EnergyCalibration, AmbiguousPeaksGiveNoCalibration) {
    const auto peaks = peaksOf({cobalt, 0.0024, 0.0, 1.0}, {250.0, 609.3, 1000.0, 1460.8});
    EXPECT_FALSE(calibrateEnergy(peaks, std::vector{caesium}, 4096));
    EXPECT_FALSE(calibrateEnergy(peaks, std::vector{europium}, 4096));
    EXPECT_FALSE(calibrateEnergy({}, std::vector{europium}, 4096));
}

}  // namespace
}  // namespace embedded::engines
