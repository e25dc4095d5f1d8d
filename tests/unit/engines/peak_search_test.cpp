#include "embedded/engines/peak_search.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "embedded/engines/spectrum.h"
#include "tests/unit/engines/simulated_spectrum.h"

namespace {

using embedded::engines::findPeaks;
using embedded::engines::FittedPeak;
using simulated::SimulatedSpectrum;

constexpr double limit = 5.0;

struct Peak {
    double channel;
    double area;
};

// Adds ten peaks of 60 to 120,000 counts, each with a Compton edge and a step, at random channels
// at least three widths apart.
std::vector<Peak> addRandomPeaks(SimulatedSpectrum& spectrum, std::mt19937_64& random) {
    std::uniform_real_distribution<double> uniform;
    std::vector<Peak> peaks;
    while (peaks.size() < 10) {
        const double channel = 120.0 + 3856.0 * uniform(random);
        const double area = 60.0 * std::pow(2000.0, uniform(random));
        const double width = spectrum.width(channel);
        const auto isNear = [channel, width](const Peak& other) {
            return std::abs(other.channel - channel) < 3.0 * width;
        };
        if (std::ranges::any_of(peaks, isNear)) {
            continue;
        }
        const double edge = channel / (1.0 + 511.0 / channel);  // two channels per keV
        peaks.push_back({channel, area});
        spectrum.addEdge(edge, 0.6 * area / edge);
        spectrum.addEdge(channel, 0.002 * area / width);
    }
    return peaks;
}

// Returns the net area in units of its standard deviation, if a second measurement of the same
// duration gives the continuum.
double expectedSignificance(const SimulatedSpectrum& continuum, const Peak& peak) {
    return peak.area / std::sqrt(peak.area + 2.0 * continuum.countsAround(peak.channel));
}

// Statistics of (measured area - true area) / uncertainty.
struct Pulls {
    double sum = 0.0;
    double squares = 0.0;
    int count = 0;
    int beyondThree = 0;
    double max = 0.0;

    void add(double pull) {
        sum += pull;
        squares += pull * pull;
        ++count;
        beyondThree += std::abs(pull) > 3.0 ? 1 : 0;
        max = std::max(max, std::abs(pull));
    }
    double mean() const { return sum / count; }
    double deviation() const { return std::sqrt(squares / count - mean() * mean()); }
};

// Removes the nearest peak within 0.6 widths from the list and returns it.
std::vector<FittedPeak> take(std::vector<FittedPeak>& results, double channel, double width) {
    const auto distance = [channel](const FittedPeak& peak) {
        return std::abs(peak.channel - channel);
    };
    const auto nearest = std::ranges::min_element(results, {}, distance);
    if (nearest == results.end() || distance(*nearest) > 0.6 * width) {
        return {};
    }
    std::vector<FittedPeak> taken = {*nearest};
    results.erase(nearest);
    return taken;
}

TEST(PeakSearch, RandomSpectraGiveAllPeaksAndNoOthers) {
    auto random = simulated::repeatableRandom(20240229);
    Pulls pulls;
    for (int number = 0; number < 100; ++number) {
        SimulatedSpectrum spectrum;
        const std::vector<Peak> peaks = addRandomPeaks(spectrum, random);
        const SimulatedSpectrum continuum = spectrum;
        for (const Peak& peak : peaks) {
            spectrum.addPeak(peak.channel, peak.area);
        }
        auto results = findPeaks({spectrum.draw(random), spectrum.widths()}, {limit});
        for (const Peak& peak : peaks) {
            const auto taken = take(results, peak.channel, spectrum.width(peak.channel));
            if (expectedSignificance(continuum, peak) < limit) {
                continue;
            }
            ASSERT_EQ(1U, taken.size()) << "spectrum " << number << " channel " << peak.channel;
            pulls.add((taken[0].area - peak.area) / taken[0].areaUncertainty);
        }
        EXPECT_TRUE(results.empty()) << "spectrum " << number << " channel " << results[0].channel;
    }
    // Correct areas scatter by one uncertainty. Of about 850 areas, two deviate by more than three
    // uncertainties by chance; more than eight do so with a probability of 1/1000, and one deviates
    // by more than 4.5 with a probability of 1/200.
    EXPECT_GT(pulls.count, 700);
    EXPECT_NEAR(0.0, pulls.mean(), 0.12);
    EXPECT_NEAR(1.0, pulls.deviation(), 0.1);
    EXPECT_LE(pulls.beyondThree, 8);
    EXPECT_LT(pulls.max, 4.5);
}

// 20 counts per channel without noise, so the limits are narrow.
TEST(PeakSearch, MultipletsAreResolved) {
    const double first = 2000.3;
    std::vector<std::vector<Peak>> multiplets = {
        // distances from the first peak in widths
        {{0, 1e3}, {1.25, 333}}, {{0, 1e3}, {-1.25, 333}},
        {{0, 1e3}, {1.5, 333}},  {{0, 1e3}, {2.0, 333}},
        {{0, 1e5}, {1.0, 1e4}},  {{0, 1e5}, {-1.0, 1e4}},
        {{0, 1e5}, {1.5, 4e3}},  {{0, 9e3}, {1.6, 5e3}, {3.0, 1.2e4}},
        {{0, 9e3}, {6.0, 2e3}}};
    for (const double distance : {0.85, 1.0, 1.05, 1.1, 1.2, 1.5}) {
        multiplets.push_back({{0, 1e4}, {distance, 1e4}});
        multiplets.push_back({{0, 1e6}, {distance, 1e6}});
    }
    for (const std::vector<Peak>& peaks : multiplets) {
        SimulatedSpectrum spectrum(20.0, 0.0);
        const double width = spectrum.width(first);
        for (const Peak& peak : peaks) {
            spectrum.addPeak(first + peak.channel * width, peak.area);
        }
        auto results = findPeaks({spectrum.rounded(), spectrum.widths()}, {limit});
        for (const Peak& peak : peaks) {
            const auto taken = take(results, first + peak.channel * width, 0.3 * width);
            ASSERT_EQ(1U, taken.size()) << peak.area << " at " << peak.channel;
            const double part = &peak == peaks.data() ? 0.05 : 0.1;
            EXPECT_NEAR(peak.area, taken[0].area, part * peak.area) << peak.channel;
            EXPECT_LT(taken[0].areaUncertainty, 0.2 * peak.area) << peak.channel;
        }
        EXPECT_TRUE(results.empty()) << peaks[0].area << " " << peaks[1].channel;
    }
}

struct Unusual {
    double area;
    double broadening;
    double tail;
    double tolerance;  // relative, of the area
};

// The annihilation peak is about twice as wide as others; a tail must not become a second peak.
TEST(PeakSearch, BroadOrTailedPeaksAreSinglePeaks) {
    auto random = simulated::repeatableRandom(6);
    for (const auto& [area, broadening, tail, tolerance] :
         {Unusual{1e4, 2.0, 0.0, 0.05}, Unusual{1.6e5, 2.0, 0.1, 0.05},
          Unusual{1e6, 2.4, 0.0, 0.02}, Unusual{1e5, 1.0, 0.15, 0.015},
          Unusual{1e6, 1.0, 0.3, 0.01}, Unusual{3e3, 0.75, 0.0, 0.06}}) {
        SimulatedSpectrum spectrum;
        spectrum.addPeak(1022.0, area, broadening, tail);
        const auto results = findPeaks({spectrum.draw(random), spectrum.widths()}, {limit});
        ASSERT_EQ(1U, results.size()) << area << " " << broadening << " " << tail;
        EXPECT_NEAR(area, results[0].area, tolerance * area) << broadening << " " << tail;
    }
}

struct Tailed {
    double left;
    double right;
    double drift;  // in widths
};

// Pile-up, drift and incomplete collection of charge make no second peak and hide no counts,
// neither of a strong peak nor of the faint ones beside it.
TEST(PeakSearch, TailsAndDriftMakeNoSecondPeakAndHideNoCounts) {
    auto random = simulated::repeatableRandom(12);
    for (const auto& [left, right, drift] :
         {Tailed{0.0, 0.02, 0.0}, Tailed{0.0, 0.05, 0.0}, Tailed{0.0, 0.0, 0.5},
          Tailed{0.0, 0.0, 1.0}, Tailed{0.05, 0.05, 0.0}, Tailed{0.15, 0.0, 0.0}}) {
        Pulls faint;
        double strong = 0.0;
        constexpr int spectra = 4;
        for (int number = 0; number < spectra; ++number) {
            SimulatedSpectrum spectrum;
            for (int peak = 1; peak <= 14; ++peak) {
                const double area = peak % 3 == 0 ? 3e5 : (peak % 2 == 0 ? 1000.0 : 3000.0);
                spectrum.addPeak(260.3 * peak, area, 1.0, left, right, drift);
            }
            auto results = findPeaks({spectrum.draw(random), spectrum.widths()}, {limit});
            EXPECT_EQ(14U, results.size()) << left << " " << right << " " << drift;
            for (int peak = 1; peak <= 14; ++peak) {
                for (const FittedPeak& one : take(results, 260.3 * peak, 4.0)) {
                    if (peak % 3 == 0) {
                        strong += one.area / (4.0 * spectra * 3e5);
                    } else {
                        const double area = peak % 2 == 0 ? 1000.0 : 3000.0;
                        faint.add((one.area - area) / one.areaUncertainty);
                    }
                }
            }
        }
        EXPECT_EQ(10 * spectra, faint.count);
        EXPECT_NEAR(0.0, faint.mean(), 0.45) << left << " " << right << " " << drift;
        EXPECT_NEAR(1.0, strong, 0.003) << left << " " << right << " " << drift;
    }
}

// No single peak shows its tails; all peaks together do.
TEST(PeakSearch, AreasOfPeaksWithFewCountsIncludeTheirTails) {
    auto random = simulated::repeatableRandom(12);
    double area = 0.0;
    int count = 0;
    for (int number = 0; number < 24; ++number) {
        SimulatedSpectrum spectrum;
        for (int peak = 1; peak <= 14; ++peak) {
            spectrum.addPeak(260.3 * peak, 3000.0, 1.0, 0.03, 0.03);
        }
        for (const FittedPeak& peak :
             findPeaks({spectrum.draw(random), spectrum.widths()}, {limit})) {
            area += peak.area / 3000.0;
            ++count;
        }
    }
    EXPECT_EQ(24 * 14, count);
    EXPECT_NEAR(1.0, area / count, 0.004);
}

// Only the likelihood distinguishes a faint peak from a tail of a lone strong one.
TEST(PeakSearch, FaintPeaksBesideLonePeaksWithTailsAreFound) {
    auto random = simulated::repeatableRandom(3);
    for (const double tail : {0.0, 0.05}) {
        for (const double distance : {-1.5, 1.5}) {
            for (const double area : {1e5, 1e6}) {
                SimulatedSpectrum spectrum(20.0, 0.0);
                const double faint = 2000.3 + distance * spectrum.width(2000.3);
                spectrum.addPeak(2000.3, area, 1.0, tail);
                spectrum.addPeak(faint, 0.01 * area, 1.0, tail);
                auto results = findPeaks({spectrum.draw(random), spectrum.widths()}, {limit});
                EXPECT_EQ(2U, results.size()) << tail << " " << distance << " " << area;
                EXPECT_EQ(1U, take(results, faint, 4.0).size()) << tail << " " << distance;
            }
        }
    }
}

// Currie's limit for a search at 5 sigma on a background of 4.5 counts, found 95 times in 100.
TEST(PeakSearch, FaintPeaksAreDetectedInFewCounts) {
    auto random = simulated::repeatableRandom(8);
    constexpr int spectra = 20;
    constexpr int peaksInEach = 10;
    int count = 0;
    for (int number = 0; number < spectra; ++number) {
        SimulatedSpectrum spectrum(0.6, 0.0);  // per channel; 4.5 counts within 1.25 widths
        for (int peak = 1; peak <= peaksInEach; ++peak) {
            spectrum.addPeak(350.3 * peak, 24.5);
        }
        auto peaks = findPeaks({spectrum.draw(random), spectrum.widths()}, {limit});
        for (int peak = 1; peak <= peaksInEach; ++peak) {
            count += static_cast<int>(take(peaks, 350.3 * peak, 4.0).size());
        }
        EXPECT_TRUE(peaks.empty());
    }
    EXPECT_GE(count, 182);  // fewer have a probability below 1/100 if 95 % are found
}

// Returns ten peaks of 1,500 counts on 200 counts per channel.
SimulatedSpectrum tenPeaks() {
    SimulatedSpectrum spectrum(200.0, 0.0);
    for (int peak = 1; peak <= 10; ++peak) {
        spectrum.addPeak(350.3 * peak, 1500.0);
    }
    return spectrum;
}

// Adds the areas of the ten peaks found in a spectrum whose counts were multiplied by the factor.
// Returns the number of other peaks found.
std::size_t addPulls(const embedded::engines::Spectrum& spectrum, double factor, Pulls& pulls) {
    auto results = findPeaks(spectrum, {limit});
    for (int peak = 1; peak <= 10; ++peak) {
        for (const FittedPeak& one : take(results, 350.3 * peak, 4.0)) {
            pulls.add((one.area - factor * 1500.0) / one.areaUncertainty);
        }
    }
    return results.size();
}

// Half of a background measurement with twice the counts is subtracted.
TEST(PeakSearch, SubtractedBackgroundGivesCorrectUncertainties) {
    auto random = simulated::repeatableRandom(9);
    const SimulatedSpectrum gross = tenPeaks();
    const SimulatedSpectrum background(400.0, 0.0);
    Pulls pulls;
    for (int number = 0; number < 20; ++number) {
        std::vector<double> contents = gross.draw(random);
        const std::vector<double> subtracted = background.draw(random);
        for (std::size_t index = 0; index < contents.size(); ++index) {
            contents[index] -= std::round(0.5 * subtracted[index]);
        }
        const auto excess = embedded::engines::excessVariance(contents);
        EXPECT_LE(addPulls({contents, gross.widths(), excess}, 1.0, pulls), 1U);
    }
    EXPECT_GT(pulls.count, 195);
    EXPECT_NEAR(0.0, pulls.mean(), 0.25);
    EXPECT_NEAR(1.0, pulls.deviation(), 0.15);
}

// Counts multiplied by nine scatter three times as much as Poisson counts of the same size.
TEST(PeakSearch, MultipliedContentsGiveCorrectUncertainties) {
    auto random = simulated::repeatableRandom(10);
    const SimulatedSpectrum spectrum = tenPeaks();
    Pulls pulls;
    std::size_t others = 0;
    for (int number = 0; number < 4; ++number) {
        std::vector<double> contents = spectrum.draw(random);
        std::ranges::for_each(contents, [](double& content) { content *= 9.0; });
        others += addPulls({contents, spectrum.widths()}, 9.0, pulls);
    }
    EXPECT_EQ(40, pulls.count);
    EXPECT_NEAR(1.0, pulls.deviation(), 0.4);
    EXPECT_LE(others, 3U);
}

TEST(PeakSearch, EdgesAndContinuumGiveNoPeaks) {
    auto random = simulated::repeatableRandom(11);
    for (const double height : {40.0, 400.0, 4e4}) {
        for (const double broadening : {0.05, 1.0, 2.0}) {
            for (const double sign : {1.0, -1.0}) {
                SimulatedSpectrum spectrum(20.0 + std::max(0.0, -sign) * height);
                spectrum.addEdge(1500.0, sign * height, broadening);
                const auto results = findPeaks({spectrum.draw(random), spectrum.widths()}, {limit});
                EXPECT_TRUE(results.empty()) << sign * height << " " << broadening;
            }
        }
    }
    for (const double constant : {0.01, 0.1, 1.0, 10.0, 1e3, 1e5}) {
        const SimulatedSpectrum spectrum(constant, 0.0);
        const auto results = findPeaks({spectrum.draw(random), spectrum.widths()}, {limit});
        EXPECT_TRUE(results.empty()) << constant;
    }
}

TEST(PeakSearch, ExtremeContentsGiveFiniteAreas) {
    const SimulatedSpectrum spectrum;
    const std::vector<std::vector<double>> strange = {
        std::vector<double>(simulated::channelCount, -2147483648.0),
        std::vector<double>(simulated::channelCount, 2147483647.0),
        {0.0, 2147483647.0, -2147483648.0},
        {7.0}};
    for (const auto& contents : strange) {
        const std::vector<double> widths(contents.size(), 2.5);
        for (const FittedPeak& peak : findPeaks({contents, widths}, {limit})) {
            EXPECT_TRUE(std::isfinite(peak.area) && peak.areaUncertainty > 0.0);
        }
    }
}

}  // namespace
