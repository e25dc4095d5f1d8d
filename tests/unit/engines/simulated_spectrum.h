// Simulated spectra with known peaks, to compare with the results of the analysis.
#ifndef PYORV3_TESTS_UNIT_ENGINES_SIMULATED_SPECTRUM_H
#define PYORV3_TESTS_UNIT_ENGINES_SIMULATED_SPECTRUM_H

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numbers>
#include <random>
#include <vector>

#include "embedded/engines/calibration.h"

namespace simulated {

using embedded::engines::fwhmPerSigma;

// 0.5 keV in each of 4,096 channels; FWHM 1.2 keV at 122 keV and 1.9 keV at 1332 keV.
inline constexpr std::size_t channelCount = 4096;

inline embedded::engines::Calibration calibration() {
    constexpr double rise = (1.9 * 1.9 - 1.2 * 1.2) / (1332.0 - 122.0);
    return {{0.0, 0.5}, {1.2 * 1.2 - rise * 122.0, rise}, {}};
}

inline double normalDistribution(double x) {
    return 0.5 * std::erfc(-x / std::numbers::sqrt2);
}

// Returns a generator that yields the same numbers in every run.
inline std::mt19937_64 repeatableRandom(std::uint64_t seed) {
    return std::mt19937_64(seed);
}

// The expected contents of a spectrum; draw() returns a measurement of them.
class SimulatedSpectrum {
  public:
    // Creates an exponential and a constant continuum.
    explicit SimulatedSpectrum(double constant = 3.0, double exponential = 400.0)
        : widths_(embedded::engines::widthsInChannels(calibration(), channelCount)),
          means_(channelCount) {
        for (std::size_t index = 0; index < channelCount; ++index) {
            const double decay = std::exp(-0.5 * static_cast<double>(index) / 350.0);
            means_[index] = exponential * decay + constant;
        }
    }

    const std::vector<double>& widths() const { return widths_; }
    double width(double channel) const {
        return widths_[static_cast<std::size_t>(std::lround(channel)) - 1];
    }

    // broadening: ratio to the calibrated width; tail: fraction of the area in a tail to lower
    // channels with a mean length of 1.5 calibrated sigma; rightTail: the same to higher channels;
    // drift: movement of the centroid around the channel, in calibrated widths.
    void addPeak(double channel, double area, double broadening = 1.0, double tail = 0.0,
                 double rightTail = 0.0, double drift = 0.0) {
        const double sigma = broadening * width(channel) / fwhmPerSigma;
        const double length = 1.5 / broadening;
        const auto below = [&](double position) {
            return normalDistribution(position) + tail * raised(position, length) -
                   rightTail * raised(-position, length);
        };
        constexpr int steps = 20;
        for (int step = 0; step < (drift > 0.0 ? steps : 1); ++step) {
            const double centroid =
                drift > 0.0 ? channel + drift * width(channel) * ((step + 0.5) / steps - 0.5)
                            : channel;
            const double part = drift > 0.0 ? area / steps : area;
            for (std::size_t index = 0; index < channelCount; ++index) {
                const double position = (static_cast<double>(index + 1) - centroid) / sigma;
                const double half = 0.5 / sigma;
                means_[index] += part * (below(position + half) - below(position - half));
            }
        }
    }

    // Adds the height, which may be negative, to all channels below the given one. The edge has the
    // width of a peak times broadening.
    void addEdge(double channel, double height, double broadening = 1.0) {
        const double sigma = broadening * width(channel) / fwhmPerSigma;
        for (std::size_t index = 0; index < channelCount; ++index) {
            const double distance = static_cast<double>(index + 1) - channel;
            means_[index] += height * normalDistribution(-distance / sigma);
        }
    }

    // Returns the expected counts within 1.25 FWHM of the channel.
    double countsAround(double channel) const {
        const double reach = 1.25 * width(channel);
        double sum = 0.0;
        for (auto number = static_cast<std::size_t>(std::ceil(channel - reach));
             static_cast<double>(number) <= channel + reach; ++number) {
            sum += means_[number - 1];
        }
        return sum;
    }

    // Returns the expected contents, rounded to whole counts.
    std::vector<double> rounded() const {
        std::vector<double> contents(means_);
        for (double& content : contents) {
            content = std::round(content);
        }
        return contents;
    }

    std::vector<double> draw(std::mt19937_64& random) const {
        std::vector<double> contents(channelCount);
        for (std::size_t index = 0; index < channelCount; ++index) {
            contents[index] = std::poisson_distribution<std::int32_t>(means_[index])(random);
        }
        return contents;
    }

  private:
    // Returns the addition to the cumulative normal distribution by folding with an exponential.
    static double raised(double position, double length) {
        return position > 8.0 ? 0.0
                              : std::exp((position + 0.5 / length) / length) *
                                    normalDistribution(-position - 1.0 / length);
    }

    std::vector<double> widths_;
    std::vector<double> means_;
};

}  // namespace simulated

#endif
