#include "embedded/engines/scintillator_response.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <vector>

#include "embedded/engines/peak_model.h"

namespace embedded::engines {

namespace {

constexpr double referenceEnergy = 661.66;  // keV
constexpr double minResolution = 0.015;
constexpr double minLanthanumResolution = 0.022;
constexpr double maxLanthanumResolution = 0.055;
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

bool mayContainLanthanum(const Calibration& calibration) {
    const double part = resolution(calibration);
    return part > minLanthanumResolution && part < maxLanthanumResolution;
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

Eigen::VectorXd pileUpTemplate(const ScintillatorBins& bins) {
    Eigen::VectorXd sums = Eigen::VectorXd::Zero(bins.size());
    const double total = std::max(1.0, bins.counts.sum());
    for (Eigen::Index one = 0; one < bins.size(); ++one) {
        for (Eigen::Index other = 0; other < bins.size(); ++other) {
            const Eigen::Index bin = bins.binAt(bins.centre(one) + bins.centre(other));
            if (bin >= bins.size()) {
                break;
            }
            sums[bin] += bins.counts[one] * bins.counts[other] / total;
        }
    }
    return sums;
}

namespace {

constexpr double peakReachInSigmas = 4.5;
constexpr double absorptionPower = -2.8;

// The normal distribution, interpolated in a table within 1e-6. Peaks take most of the time.
class NormalTable {
  public:
    NormalTable() {
        for (std::size_t entry = 0; entry < values_.size(); ++entry) {
            values_[entry] = normalDistribution(static_cast<double>(entry) / stepsPerSigma - end);
        }
    }

    double at(double sigmas) const {
        const double position = (std::clamp(sigmas, -end, end) + end) * stepsPerSigma;
        const auto entry = std::min(static_cast<std::size_t>(position), values_.size() - 2);
        const double part = position - static_cast<double>(entry);
        return values_[entry] + part * (values_[entry + 1] - values_[entry]);
    }

  private:
    static constexpr double end = 6.0;  // sigma
    static constexpr double stepsPerSigma = 200.0;
    std::array<double, static_cast<std::size_t>(2.0 * end * stepsPerSigma) + 1> values_;
};

double interpolatedNormal(double sigmas) {
    static const NormalTable table;
    return table.at(sigmas);
}

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
    double below = interpolatedNormal((begin[bin] - centre) / width);
    for (; bin < contents.size() && begin[bin] < centre + peakReachInSigmas * width; ++bin) {
        const double above = interpolatedNormal((begin[bin + 1] - centre) / width);
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
                         interpolatedNormal((edge - centre) / width);
    }
}

// Approximate counts of the Compton continuum within one FWHM of its edge.
void ScintillatorResponse::addEdge(Eigen::VectorXd& contents, double energy, double distance,
                                   double counts) const {
    const double alpha = energy / electronMass;
    const double edge = energy * 2.0 * alpha / (1.0 + 2.0 * alpha);
    const double width = widthAtEnergy(calibration_, edge);
    addPeak(contents, edge + distance * width,
            counts * std::pow(energy / 350.0, 1.1) * std::min(1.0, 1.5 * width / edge));
}

// Counts that are evenly distributed between two energies.
void ScintillatorResponse::addBox(Eigen::VectorXd& contents, double lowest, double highest,
                                  double counts) const {
    const double low = shown(lowest);
    const double high = shown(highest);
    const double width = sigma(0.5 * (lowest + highest));
    if (!(width > 0.0)) {
        return;
    }
    for (Eigen::Index bin = 0; bin < contents.size(); ++bin) {
        const double centre = bins_.centre(bin);
        if (centre > high + peakReachInSigmas * width) {
            break;
        }
        const double inside = interpolatedNormal((centre - low) / width) -
                              interpolatedNormal((centre - high) / width);
        contents[bin] += counts * inside * (bins_.edges[bin + 1] - bins_.edges[bin]) / (high - low);
    }
}

// Photons are about evenly distributed in the cosine.
void ScintillatorResponse::addBackscatter(Eigen::VectorXd& contents, double energy,
                                          const CosineRange& cosines, double counts) const {
    const double alpha = energy / electronMass;
    const double scattered =
        0.3 * counts * std::pow(std::max(1.0, energy / 350.0), 1.1) * (cosines.to - cosines.from);
    addBox(contents, energy / (1.0 + alpha * (1.0 - cosines.from)),
           energy / (1.0 + alpha * (1.0 - cosines.to)), scattered);
}

void ScintillatorResponse::addMultiple(Eigen::VectorXd& contents, double energy,
                                       double counts) const {
    const double alpha = energy / electronMass;
    addBox(contents, energy * 2.0 * alpha / (1.0 + 2.0 * alpha), energy,
           0.1 * counts * std::pow(energy / 350.0, 1.1));
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
                         (width * fwhmPerSigma) * interpolatedNormal(-distance / width);
    }
}

}  // namespace embedded::engines
