#include "embedded/engines/spectrum.h"

#include <algorithm>
#include <cstddef>

namespace embedded::engines {

namespace {

constexpr std::size_t blockSize = 32;
constexpr std::size_t reach = 48;           // channels on each side of a block's middle
constexpr double medianChiSquare = 0.4549;  // of one degree of freedom

double medianOf(std::vector<double>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::ranges::nth_element(values, middle);
    return *middle;
}

double excessAround(std::span<const double> contents, std::size_t centre) {
    const std::size_t first = std::max<std::size_t>(centre > reach ? centre - reach : 0, 1);
    const std::size_t end = std::min(contents.size() - 1, centre + reach + 1);
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

}  // namespace embedded::engines
