#include "embedded/engines/second_difference.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "embedded/engines/calibration.h"

namespace embedded::engines {

namespace {

// Smoothing by 1.4 times the peak's own width: the wider it is (up to sqrt(5) times), the fainter
// the peaks it shows; the narrower, the closer the neighbours it separates.
constexpr double smoothingPerSigma = 1.4;
constexpr double reachPerSmoothing = 4.0;

double coefficient(double distance, double smoothing) {
    const double ratio = distance / smoothing;
    return (1.0 - ratio * ratio) * std::exp(-0.5 * ratio * ratio);
}

double significanceAt(std::span<const double> contents, std::span<const double> variances,
                      std::size_t centre, double smoothing) {
    const auto reach = static_cast<std::size_t>(std::ceil(reachPerSmoothing * smoothing));
    const std::size_t first = centre > reach ? centre - reach : 0;
    const std::size_t end = std::min(contents.size(), centre + reach + 1);
    const auto distance = [centre](std::size_t index) {
        return static_cast<double>(index) - static_cast<double>(centre);
    };

    // Cut off at the ends of the spectrum the coefficients no longer sum up to zero by themselves.
    double sum = 0.0;
    for (std::size_t index = first; index < end; ++index) {
        sum += coefficient(distance(index), smoothing);
    }
    const double mean = sum / static_cast<double>(end - first);

    double difference = 0.0;
    double variance = 0.0;
    for (std::size_t index = first; index < end; ++index) {
        const double weight = coefficient(distance(index), smoothing) - mean;
        difference += weight * contents[index];
        variance += weight * weight * variances[index];
    }
    return variance > 0.0 ? difference / std::sqrt(variance) : 0.0;
}

// Offset of the top of the parabola through three equidistant points, the middle one the highest.
double topOffset(double left, double middle, double right) {
    const double curvature = left - 2.0 * middle + right;
    return curvature < 0.0 ? 0.5 * (left - right) / curvature : 0.0;
}

}  // namespace

std::vector<Candidate> findCandidates(std::span<const double> contents,
                                      std::span<const double> variances,
                                      std::span<const double> widths, double limit) {
    std::vector<double> significance(contents.size(), 0.0);
    for (std::size_t index = 0; index < contents.size(); ++index) {
        if (widths[index] > 0.0) {
            const double smoothing = smoothingPerSigma * widths[index] / fwhmPerSigma;
            significance[index] = significanceAt(contents, variances, index, smoothing);
        }
    }

    std::vector<Candidate> candidates;
    for (std::size_t index = 1; index + 1 < contents.size(); ++index) {
        const double left = significance[index - 1];
        const double middle = significance[index];
        const double right = significance[index + 1];
        if (widths[index] > 0.0 && middle >= limit && middle > left && middle >= right) {
            const double channel = static_cast<double>(index + 1) + topOffset(left, middle, right);
            candidates.push_back({channel, middle});
        }
    }
    return candidates;
}

}  // namespace embedded::engines
