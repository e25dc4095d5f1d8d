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
    constexpr double unreachable = std::numeric_limits<double>::infinity();
    const auto expected = expectedAt(spectrum, std::span(&channel, 1));
    if (expected.empty()) {
        return unreachable;
    }
    const double low = std::ceil(channel - peakReach * expected.front().width);
    const double high = std::floor(channel + peakReach * expected.front().width);
    if (low < 1.0 || high > static_cast<double>(spectrum.contents.size())) {
        return unreachable;
    }
    double background = 0.0;
    for (auto number = static_cast<std::size_t>(low); number <= static_cast<std::size_t>(high);
         ++number) {
        background += std::max(0.0, spectrum.contents[number - 1]);
    }
    return detectionLimit(background, k);
}

}  // namespace embedded::engines
