// Tests of width calibrations estimated from the peaks of a spectrum.
#include "embedded/engines/width_estimate.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>

#include "embedded/engines/calibration.h"
#include "embedded/engines/spectrum.h"
#include "embedded/engines/width_samples.h"
#include "tests/unit/engines/simulated_spectrum.h"

namespace embedded::engines {
namespace {

struct Line {
    double energy;
    double area;
};

struct Detector {
    std::size_t channels;
    double range;               // keV
    std::vector<double> shape;  // see Calibration
    DetectorKind kind;

    Calibration calibration() const {
        return {{0.0, range / static_cast<double>(channels)}, shape, {}};
    }
};

// Returns the lines on an exponential continuum with this number of counts.
std::vector<double> spectrumOf(const Detector& detector, const std::vector<Line>& lines,
                               double continuum) {
    const Calibration calibration = detector.calibration();
    auto random = simulated::repeatableRandom(7);
    std::vector<double> contents(detector.channels);
    const double gain = calibration.energy[1];
    for (std::size_t index = 0; index < detector.channels; ++index) {
        const double energy = energyAt(calibration, static_cast<double>(index + 1));
        double mean = continuum * std::exp(-energy / 400.0) * gain / 400.0;
        for (const Line& line : lines) {
            const double sigma = std::sqrt(polynomial(detector.shape, line.energy)) / fwhmPerSigma;
            const auto below = [&](double edge) {
                return simulated::normalDistribution((edge - line.energy) / sigma);
            };
            mean += line.area * (below(energy + 0.5 * gain) - below(energy - 0.5 * gain));
        }
        contents[index] = std::poisson_distribution<std::int32_t>(mean)(random);
    }
    return contents;
}

double widthOf(const std::vector<double>& shape, double energy) {
    return std::sqrt(polynomial(shape, energy));
}

const std::vector<Detector> detectors = {
    {16384, 3000.0, {1.0, 0.0023}, DetectorKind::germanium},
    {4096, 2800.0, {4.0, 0.0030}, DetectorKind::germanium},
    {4096, 3000.0, {40.0, 0.25}, DetectorKind::cadmiumZincTelluride},
    {1024, 3000.0, {3.0, 0.55}, DetectorKind::lanthanumBromide},
    {512, 2800.0, {20.0, 3.0}, DetectorKind::sodiumIodide},
    {1024, 2500.0, {20.0, 9.0}, DetectorKind::bismuthGermanate},
};
const std::vector<Line> wellSeparated = {
    {122.0, 40000.0}, {356.0, 30000.0}, {662.0, 60000.0}, {1461.0, 30000.0}};

TEST(WidthEstimate, PeaksOfEveryDetectorKindGiveTheirWidths) {
    for (const Detector& detector : detectors) {
        const auto contents = spectrumOf(detector, wellSeparated, 300000.0);
        const auto estimate =
            estimateWidths(measureWidths(contents, {}), detector.calibration(), contents.size());
        EXPECT_EQ(detector.kind, estimate.kind) << &detector - detectors.data();
        EXPECT_GE(estimate.peaks, 3U);
        for (const Line& line : wellSeparated) {
            const double expected = widthOf(detector.shape, line.energy);
            const double allowed = line.energy > 300.0 ? 0.05 : 0.15;
            EXPECT_NEAR(1.0, widthOf(estimate.shape, line.energy) / expected, allowed)
                << &detector - detectors.data() << " at " << line.energy;
        }
    }
}

TEST(WidthEstimate, SinglePeakScalesTheTypicalCurve) {
    for (const Detector& detector : detectors) {
        const auto contents = spectrumOf(detector, {{662.0, 5000.0}}, 20000.0);
        const auto estimate =
            estimateWidths(measureWidths(contents, {}), detector.calibration(), contents.size());
        const double expected = widthOf(detector.shape, 662.0);
        EXPECT_NEAR(1.0, widthOf(estimate.shape, 662.0) / expected, 0.12)
            << &detector - detectors.data();
        EXPECT_GT(widthOf(estimate.shape, 2614.0), 1.15 * widthOf(estimate.shape, 662.0));
    }
}

TEST(WidthEstimate, WideStructuresAmongNarrowPeaksAreIgnored) {
    const Detector& detector = detectors.front();
    auto contents = spectrumOf(detector, wellSeparated, 100000.0);
    const Detector wide = {16384, 3000.0, {900.0}, DetectorKind::unknown};
    const auto humps = spectrumOf(wide, {{200.0, 900000.0}, {800.0, 900000.0}}, 0.0);
    std::ranges::transform(contents, humps, contents.begin(), std::plus());
    const auto estimate =
        estimateWidths(measureWidths(contents, {}), detector.calibration(), contents.size());
    EXPECT_NEAR(1.0, widthOf(estimate.shape, 662.0) / widthOf(detector.shape, 662.0), 0.05);
}

TEST(WidthEstimate, MissingPeaksGiveTheTypicalDetectorKind) {
    const Detector coarse = {1024, 3000.0, {}, DetectorKind::sodiumIodide};
    const Detector fine = {8192, 3000.0, {}, DetectorKind::germanium};
    for (const Detector& detector : {coarse, fine}) {
        for (const double counts : {0.0, 3.0, 50000.0}) {
            const auto contents = spectrumOf(detector, {}, counts);
            const auto estimate = estimateWidths(measureWidths(contents, {}),
                                                 detector.calibration(), contents.size());
            EXPECT_EQ(0U, estimate.peaks) << counts;
            EXPECT_EQ(detector.kind, estimate.kind) << counts;
        }
    }
}

TEST(WidthEstimate, OnlyWrongCalibrationsContradictThePeaks) {
    const Detector& detector = detectors.front();
    const auto samples = measureWidths(spectrumOf(detector, wellSeparated, 300000.0), {});
    const auto estimate = estimateWidths(samples, detector.calibration(), detector.channels);
    const auto contradicts = [&](double factor) {
        Calibration given = detector.calibration();
        for (double& coefficient : given.shape) {
            coefficient *= factor * factor;
        }
        return contradictsPeaks(given, estimate, samples);
    };
    EXPECT_FALSE(contradicts(0.85));
    EXPECT_FALSE(contradicts(1.2));
    EXPECT_TRUE(contradicts(0.6));
    EXPECT_TRUE(contradicts(1.6));
}

}  // namespace
}  // namespace embedded::engines
