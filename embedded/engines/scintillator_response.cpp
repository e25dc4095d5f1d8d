#include "embedded/engines/scintillator_response.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include "embedded/engines/peak_model.h"

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

namespace {

constexpr double peakReachInSigmas = 4.5;
constexpr double absorptionPower = -2.8;

// Klein and Nishina's electron spectrum, unnormalised. part: electron by photon energy.
double kleinNishina(double alpha, double part) {
    const double rest = 1.0 - part;
    const double ratio = part / rest;
    return 2.0 + ratio * ratio / (alpha * alpha) + ratio * (part - 2.0 / alpha);
}

}  // namespace

double scintillatorEfficiency(double energy) {
    const double thickness = std::pow(energy / 250.0, 1.1);
    return std::exp(-std::pow(18.0 / energy, 3.0)) / (1.0 + thickness);
}

double ScintillatorResponse::sigma(double energy) const {
    return widthAtEnergy(calibration_, std::max(shown(energy), 1.0)) / fwhmPerSigma *
           (1.0 + state_.broadening);
}

double ScintillatorResponse::efficiencyFactor(double energy) const {
    return std::exp(state_.power * std::log(energy / 500.0) -
                    state_.absorber * std::pow(std::max(energy, 50.0) / 100.0, absorptionPower));
}

void ScintillatorResponse::addPeak(Eigen::Ref<Eigen::VectorXd> contents, double energy,
                                   double counts) const {
    const double centre = shown(energy);
    const double width = sigma(energy);
    if (!(width > 0.0)) {
        return;
    }
    const double* const begin = bins_.edges.data();
    const double* const end = begin + bins_.edges.size();
    auto bin = std::max<std::ptrdiff_t>(
        0, std::upper_bound(begin, end, centre - peakReachInSigmas * width) - begin - 1);
    double below = normalDistribution((begin[bin] - centre) / width);
    for (; bin < contents.size() && begin[bin] < centre + peakReachInSigmas * width; ++bin) {
        const double above = normalDistribution((begin[bin + 1] - centre) / width);
        contents[bin] += counts * (above - below);
        below = above;
    }
}

void ScintillatorResponse::addCompton(Eigen::VectorXd& contents, double energy,
                                      double counts) const {
    const double alpha = energy / electronMass;
    const double maxPart = 2.0 * alpha / (1.0 + 2.0 * alpha);
    const double edge = shown(maxPart * energy);
    const double width = sigma(maxPart * energy);
    if (!(width > 0.0)) {
        return;
    }
    // Approximate number of photons scattered in the detector for each absorbed one.
    const double scattered = counts * std::pow(energy / 350.0, 1.1);
    double sum = 0.0;
    constexpr int steps = 20;
    for (int step = 0; step < steps; ++step) {
        sum += kleinNishina(alpha, maxPart * (step + 0.5) / steps) * maxPart * energy / steps;
    }
    for (Eigen::Index bin = 0; bin < contents.size(); ++bin) {
        const double centre = bins_.centre(bin);
        if (centre > edge + peakReachInSigmas * width) {
            break;
        }
        const double part = std::clamp(centre / edge, 0.0, 1.0) * maxPart;
        contents[bin] += scattered * kleinNishina(alpha, part) / sum *
                         (bins_.edges[bin + 1] - bins_.edges[bin]) *
                         normalDistribution((edge - centre) / width);
    }
}

// Approximate counts of the Compton continuum within one FWHM of its edge.
void ScintillatorResponse::addEdge(Eigen::VectorXd& contents, double energy, double counts) const {
    const double alpha = energy / electronMass;
    const double edge = energy * 2.0 * alpha / (1.0 + 2.0 * alpha);
    const double width = widthAtEnergy(calibration_, edge);
    addPeak(contents, edge - 0.3 * width,
            counts * std::pow(energy / 350.0, 1.1) * std::min(1.0, 1.5 * width / edge));
}

// Photons scattered by more than a right angle, about evenly distributed in the cosine.
void ScintillatorResponse::addBackscatter(Eigen::VectorXd& contents, double energy,
                                          double counts) const {
    const double alpha = energy / electronMass;
    const double minEnergy = energy / (1.0 + 2.0 * alpha);
    const double maxEnergy = energy / (1.0 + 1.2 * alpha);
    const double low = shown(minEnergy);
    const double high = shown(maxEnergy);
    const double width = sigma(minEnergy);
    if (!(width > 0.0)) {
        return;
    }
    const double scattered = 0.3 * counts * std::pow(energy / 350.0, 1.1);
    for (Eigen::Index bin = 0; bin < contents.size(); ++bin) {
        const double centre = bins_.centre(bin);
        if (centre > high + peakReachInSigmas * width) {
            break;
        }
        const double inside = normalDistribution((centre - low) / width) *
                              normalDistribution((high - centre) / (1.5 * width));
        contents[bin] +=
            scattered * inside * (bins_.edges[bin + 1] - bins_.edges[bin]) / (high - low + width);
    }
}

// Photons that lost a little energy, in the surroundings or by a second scattering.
void ScintillatorResponse::addStep(Eigen::VectorXd& contents, double energy, double counts) const {
    const double centre = shown(energy);
    const double width = sigma(energy);
    if (!(width > 0.0)) {
        return;
    }
    for (Eigen::Index bin = 0; bin < contents.size(); ++bin) {
        const double distance = bins_.centre(bin) - centre;
        if (distance > peakReachInSigmas * width) {
            break;
        }
        contents[bin] += counts * (bins_.edges[bin + 1] - bins_.edges[bin]) /
                         (width * fwhmPerSigma) * normalDistribution(-distance / width);
    }
}

}  // namespace embedded::engines
