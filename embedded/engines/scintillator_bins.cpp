#include "embedded/engines/scintillator_bins.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace embedded::engines {

namespace {

constexpr double referenceEnergy = 661.66;  // keV
constexpr double leastResolution = 0.015;
constexpr double lowestEnergy = 15.0;  // keV
constexpr std::size_t fewestBins = 12;

// A spectrum rises steeply at the threshold; the rise ends within this many FWHM.
constexpr double thresholdRise = 0.7;
constexpr double partAboveThreshold = 0.1;  // of the mean content of the next few channels

// The first channel above the threshold, from 0.
std::size_t firstChannel(const Spectrum& spectrum, const Calibration& calibration) {
    const std::size_t count = spectrum.contents.size();
    std::size_t index = 0;
    const auto energy = [&](std::size_t channel) {
        return energyAt(calibration, static_cast<double>(channel + 1));
    };
    while (index < count &&
           (energy(index) < lowestEnergy || widthAtEnergy(calibration, energy(index)) <= 0.0)) {
        ++index;
    }
    for (; index < count; ++index) {
        const double reach = energy(index) + widthAtEnergy(calibration, energy(index));
        double sum = 0.0;
        std::size_t channels = 0;
        for (std::size_t next = index; next < count && (channels == 0 || energy(next) < reach);
             ++next, ++channels) {
            sum += spectrum.contents[next];
        }
        if (sum > 0.0 &&
            spectrum.contents[index] >= partAboveThreshold * sum / static_cast<double>(channels)) {
            break;
        }
    }
    if (index == 0 || index >= count || energy(index) < 1.5 * lowestEnergy) {
        return index;
    }
    const double end = energy(index) + thresholdRise * widthAtEnergy(calibration, energy(index));
    while (index < count && energy(index) < end) {
        ++index;
    }
    return index;
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
    return resolution(calibration) > leastResolution;
}

Eigen::Index ScintillatorBins::binAt(double energy) const {
    const auto next = std::upper_bound(edges.begin(), edges.end(), energy);
    return std::max<Eigen::Index>(0, next - edges.begin() - 1);
}

ScintillatorBins scintillatorBins(const Spectrum& spectrum, const Calibration& calibration) {
    std::vector<double> counts;
    std::vector<double> excess;
    std::vector<double> edges;
    std::vector<double> positions = {0.0};
    const std::size_t count = spectrum.contents.size();
    std::size_t index = firstChannel(spectrum, calibration);
    if (index < count) {
        edges.push_back(energyAt(calibration, static_cast<double>(index) + 0.5));
    }
    // The last channel often holds what lies beyond it.
    while (index + 1 < count) {
        double sum = 0.0;
        double variance = 0.0;
        double width = 0.0;
        for (; index + 1 < count && width < binWidth; ++index) {
            const auto channel = static_cast<double>(index + 1);
            const double fwhm = widthAtEnergy(calibration, energyAt(calibration, channel));
            if (fwhm <= 0.0) {
                index = count;
                break;
            }
            sum += spectrum.contents[index];
            variance += spectrum.excessAt(index);
            width += energyPerChannel(calibration, channel) / fwhm;
        }
        if (width < binWidth) {
            break;
        }
        counts.push_back(sum);
        excess.push_back(variance);
        edges.push_back(energyAt(calibration, static_cast<double>(index) + 0.5));
        positions.push_back(positions.back() + width);
    }
    if (counts.size() < fewestBins) {
        return {};
    }
    const auto vector = [](const std::vector<double>& values) -> Eigen::VectorXd {
        return Eigen::Map<const Eigen::VectorXd>(values.data(),
                                                 static_cast<Eigen::Index>(values.size()));
    };
    return {vector(counts), vector(excess), vector(edges), vector(positions)};
}

}  // namespace embedded::engines
