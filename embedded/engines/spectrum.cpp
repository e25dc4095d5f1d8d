#include "embedded/engines/spectrum.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "embedded/engines/calibration.h"

namespace embedded::engines {

namespace {

constexpr std::size_t blockSize = 32;
constexpr std::size_t reachOfBlock = 48;    // channels on each side of a block's middle
constexpr double medianChiSquare = 0.4549;  // of one degree of freedom

double excessAround(std::span<const double> contents, std::size_t centre) {
    const std::size_t first =
        std::max<std::size_t>(centre > reachOfBlock ? centre - reachOfBlock : 0, 1);
    const std::size_t end = std::min(contents.size() - 1, centre + reachOfBlock + 1);
    std::vector<double> squares;
    std::vector<double> around;
    for (std::size_t index = first; index < end; ++index) {
        const double difference = contents[index - 1] - 2.0 * contents[index] + contents[index + 1];
        squares.push_back(difference * difference / 6.0);
        around.push_back(contents[index]);
    }
    if (squares.empty()) {
        return 0.0;
    }
    const double counting = std::max(0.0, medianOf(around));
    return std::max(0.0, medianOf(squares) / medianChiSquare - counting);
}

}  // namespace

std::vector<double> excessVariance(std::span<const double> contents) {
    if (std::ranges::none_of(contents, [](double content) { return content < 0.0; })) {
        return {};
    }
    std::vector<double> excess(contents.size());
    for (std::size_t first = 0; first < contents.size(); first += blockSize) {
        const std::size_t end = std::min(contents.size(), first + blockSize);
        const double value = excessAround(contents, (first + end) / 2);
        std::fill(excess.begin() + static_cast<std::ptrdiff_t>(first),
                  excess.begin() + static_cast<std::ptrdiff_t>(end), value);
    }
    return excess;
}

namespace {

// Smoothing by 1.4 times the peak's own width. Wider smoothing (up to sqrt(5) times) shows fainter
// peaks; narrower smoothing separates closer neighbours.
constexpr double smoothingPerSigma = 1.4;
constexpr double reachPerSmoothing = 4.0;

// Coefficients are reused for widths that differ by no more than this part.
constexpr double sameSmoothing = 0.01;

double coefficient(double distance, double smoothing) {
    const double ratio = distance / smoothing;
    return (1.0 - ratio * ratio) * std::exp(-0.5 * ratio * ratio);
}

// The coefficients for one width.
class Filter {
  public:
    explicit Filter(double width)
        : width_(width),
          reach_(static_cast<std::size_t>(
              std::ceil(reachPerSmoothing * smoothingPerSigma * width / fwhmPerSigma))),
          coefficients_(2 * reach_ + 1) {
        const double smoothing = smoothingPerSigma * width / fwhmPerSigma;
        for (std::size_t index = 0; index < coefficients_.size(); ++index) {
            const double distance = static_cast<double>(index) - static_cast<double>(reach_);
            coefficients_[index] = coefficient(distance, smoothing);
        }
    }

    bool serves(double width) const { return std::abs(width - width_) <= sameSmoothing * width_; }

    double significanceAt(std::span<const double> contents, std::span<const double> variances,
                          std::size_t centre) const {
        const std::size_t first = centre > reach_ ? centre - reach_ : 0;
        const std::size_t end = std::min(contents.size(), centre + reach_ + 1);
        const double* const coefficients = &coefficients_[first + reach_ - centre];

        // Cut off at the ends of the spectrum the coefficients no longer sum up to zero.
        double sum = 0.0;
        for (std::size_t index = 0; index < end - first; ++index) {
            sum += coefficients[index];
        }
        const double mean = sum / static_cast<double>(end - first);

        double difference = 0.0;
        double variance = 0.0;
        double squares = 0.0;
        double total = 0.0;
        for (std::size_t index = 0; index < end - first; ++index) {
            const double weight = coefficients[index] - mean;
            difference += weight * contents[first + index];
            variance += weight * weight * variances[first + index];
            squares += weight * weight;
            total += variances[first + index];
        }
        // With few counts most are in the peak; without it each channel would have the mean.
        variance = std::min(variance, squares * total / static_cast<double>(end - first));
        return variance > 0.0 ? difference / std::sqrt(variance) : 0.0;
    }

  private:
    double width_;
    std::size_t reach_;
    std::vector<double> coefficients_;
};

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
    Filter filter(1.0);
    for (std::size_t index = 0; index < contents.size(); ++index) {
        if (widths[index] > 0.0) {
            if (!filter.serves(widths[index])) {
                filter = Filter(widths[index]);
            }
            significance[index] = filter.significanceAt(contents, variances, index);
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
