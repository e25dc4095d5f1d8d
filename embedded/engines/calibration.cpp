#include "embedded/engines/calibration.h"

#include <cmath>

namespace embedded::engines {

namespace {

constexpr double minWidth = 0.5;
constexpr double maxPartOfSpectrum = 0.1;

constexpr double typicalPower = -0.9;
constexpr double typicalAbsorption = 80.0;  // keV

double widthAt(const Calibration& calibration, double channel) {
    const double squared = polynomial(calibration.shape, energyAt(calibration, channel));
    return std::sqrt(squared) / energyPerChannel(calibration, channel);
}

}  // namespace

double polynomial(std::span<const double> coefficients, double x) {
    double value = 0.0;
    for (std::size_t order = coefficients.size(); order > 0; --order) {
        value = value * x + coefficients[order - 1];
    }
    return value;
}

double energyAt(const Calibration& calibration, double channel) {
    return polynomial(calibration.energy, channel);
}

double energyPerChannel(const Calibration& calibration, double channel) {
    double value = 0.0;
    for (std::size_t order = calibration.energy.size(); order > 1; --order) {
        value = value * channel + static_cast<double>(order - 1) * calibration.energy[order - 1];
    }
    return value;
}

double channelAt(const Calibration& calibration, double energy, std::size_t channelCount) {
    double low = 0.5;
    double high = static_cast<double>(channelCount) + 0.5;
    // Halving the 32,768 channels 40 times leaves less than a millionth of a channel.
    for (int halving = 0; halving < 40; ++halving) {
        const double middle = 0.5 * (low + high);
        (energyAt(calibration, middle) < energy ? low : high) = middle;
    }
    return 0.5 * (low + high);
}

bool energyRises(const Calibration& calibration, std::size_t channelCount) {
    for (std::size_t channel = 1; channel <= channelCount; ++channel) {
        const auto number = static_cast<double>(channel);
        const double rise = energyPerChannel(calibration, number);
        if (!std::isfinite(energyAt(calibration, number)) || !std::isfinite(rise) || rise <= 0.0) {
            return false;
        }
    }
    return true;
}

std::vector<double> widthsInChannels(const Calibration& calibration, std::size_t channelCount) {
    const double maxWidth = static_cast<double>(channelCount) * maxPartOfSpectrum;
    std::vector<double> widths(channelCount);
    for (std::size_t index = 0; index < channelCount; ++index) {
        const double width = widthAt(calibration, static_cast<double>(index + 1));
        const bool usable = width >= minWidth && width <= maxWidth;
        widths[index] = usable ? width : 0.0;
    }
    return widths;
}

double efficiencyAt(const Calibration& calibration, double energy) {
    if (!(energy > 0.0)) {
        return 0.0;
    }
    if (calibration.efficiency.empty()) {
        const double absorbed = energy / typicalAbsorption;
        return std::pow(energy, typicalPower) * (1.0 - std::exp(-absorbed * absorbed));
    }
    const double efficiency = std::exp(polynomial(calibration.efficiency, std::log(energy)));
    return std::isfinite(efficiency) ? efficiency : 0.0;
}

}  // namespace embedded::engines
