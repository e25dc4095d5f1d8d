#include "embedded/engines/scintillator_bins.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace embedded::engines {

namespace {

constexpr double referenceEnergy = 661.66;  // keV
constexpr double minResolution = 0.015;
constexpr double minEnergy = 15.0;  // keV
constexpr std::size_t minBins = 12;

// A spectrum rises steeply at the threshold; the rise ends within this many FWHM.
constexpr double thresholdRise = 0.7;
constexpr double partAboveThreshold = 0.1;  // of the mean content of the next few channels

class Channels {
  public:
    Channels(const Spectrum& spectrum, const Calibration& calibration)
        : spectrum_(spectrum), calibration_(calibration) {}

    // Channels count from 0 here.
    std::size_t count() const { return spectrum_.contents.size(); }
    double energy(std::size_t channel) const {
        return energyAt(calibration_, static_cast<double>(channel + 1));
    }
    double lowerEdge(std::size_t channel) const {
        return energyAt(calibration_, static_cast<double>(channel) + 0.5);
    }
    double fwhm(std::size_t channel) const { return widthAtEnergy(calibration_, energy(channel)); }
    // In FWHM.
    double width(std::size_t channel) const {
        return energyPerChannel(calibration_, static_cast<double>(channel + 1)) / fwhm(channel);
    }
    bool isUsable(std::size_t channel) const {
        return spectrum_.widths[channel] > 0.0 && energy(channel) >= minEnergy &&
               fwhm(channel) > 0.0;
    }
    std::size_t firstUsable() const;
    // The first usable channel above the detector's threshold.
    std::size_t firstAboveThreshold() const;

  private:
    double meanAbove(std::size_t channel) const;

    const Spectrum& spectrum_;
    const Calibration& calibration_;
};

std::size_t Channels::firstUsable() const {
    std::size_t channel = 0;
    while (channel < count() && !isUsable(channel)) {
        ++channel;
    }
    return channel;
}

// Mean content from the channel to one FWHM above it.
double Channels::meanAbove(std::size_t channel) const {
    const double end = energy(channel) + fwhm(channel);
    double sum = 0.0;
    std::size_t channels = 0;
    for (std::size_t next = channel; next < count() && energy(next) <= end; ++next) {
        sum += spectrum_.contents[next];
        ++channels;
    }
    return sum / static_cast<double>(channels);
}

std::size_t Channels::firstAboveThreshold() const {
    const std::size_t first = firstUsable();
    std::size_t channel = first;
    while (channel < count() && isUsable(channel) &&
           !(spectrum_.contents[channel] > 0.0 &&
             spectrum_.contents[channel] >= partAboveThreshold * meanAbove(channel))) {
        ++channel;
    }
    if (channel == first || channel >= count()) {
        return channel;
    }
    const double end = energy(channel) + thresholdRise * fwhm(channel);
    while (channel < count() && energy(channel) < end) {
        ++channel;
    }
    return channel;
}

Eigen::VectorXd vectorOf(const std::vector<double>& values) {
    return Eigen::Map<const Eigen::VectorXd>(values.data(),
                                             static_cast<Eigen::Index>(values.size()));
}

}  // namespace

double widthAtEnergy(const Calibration& calibration, double energy) {
    const double squared = polynomial(calibration.shape, energy);
    return squared > 0.0 && std::isfinite(squared) ? std::sqrt(squared) : 0.0;
}

double resolution(const Calibration& calibration) {
    return widthAtEnergy(calibration, referenceEnergy) / referenceEnergy;
}

bool isScintillator(const Calibration& calibration) {
    return resolution(calibration) > minResolution;
}

Eigen::Index ScintillatorBins::binAt(double energy) const {
    const auto next = std::upper_bound(edges.begin(), edges.end(), energy);
    return std::max<Eigen::Index>(0, next - edges.begin() - 1);
}

ScintillatorBins scintillatorBins(const Spectrum& spectrum, const Calibration& calibration) {
    const Channels channels(spectrum, calibration);
    std::size_t channel = channels.firstAboveThreshold();
    std::vector<double> counts;
    std::vector<double> excess;
    std::vector<double> edges = {channels.lowerEdge(channel)};
    std::vector<double> positions = {0.0};
    double sum = 0.0;
    double variance = 0.0;
    double width = 0.0;
    // The last channel often contains all counts of higher energies.
    for (; channel + 1 < channels.count() && channels.isUsable(channel); ++channel) {
        sum += spectrum.contents[channel];
        variance += spectrum.excessAt(channel);
        width += channels.width(channel);
        if (width >= binWidth) {
            counts.push_back(sum);
            excess.push_back(variance);
            edges.push_back(channels.lowerEdge(channel + 1));
            positions.push_back(positions.back() + width);
            sum = variance = width = 0.0;
        }
    }
    if (counts.size() < minBins) {
        return {};
    }
    return {vectorOf(counts), vectorOf(excess), vectorOf(edges), vectorOf(positions)};
}

}  // namespace embedded::engines
