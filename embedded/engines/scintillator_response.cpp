#include "embedded/engines/scintillator_response.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace embedded::engines {

namespace {

constexpr double electronMass = 510.999;  // keV
constexpr double peakReachInSigmas = 4.5;
constexpr double absorptionPower = -2.8;

double normalDistribution(double x) {
    return 0.5 * std::erfc(-x / std::numbers::sqrt2);
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
