#include "embedded/engines/detection_limit.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

namespace embedded::engines {

double detectionLimit(double background, double k) {
    return k * k + 2.0 * k * std::sqrt(2.0 * background);
}

double detectionLimitAt(const Spectrum& spectrum, double channel, double k) {
    const double reach = peakReach * expectedAt(spectrum, channel).width;
    const double low = std::ceil(channel - reach);
    const double high = std::floor(channel + reach);
    if (reach == 0.0 || low < 1.0 || high > static_cast<double>(spectrum.contents.size())) {
        return std::numeric_limits<double>::infinity();
    }
    double background = 0.0;
    for (auto number = static_cast<std::size_t>(low); number <= static_cast<std::size_t>(high);
         ++number) {
        background += std::max(0.0, spectrum.contents[number - 1]);
    }
    return detectionLimit(background, k);
}

}  // namespace embedded::engines
