// The scatter of a spectrum from which a background was subtracted.
//
// Contents of such a spectrum are differences, some of them negative, and scatter by more than the
// roots of their values. What was subtracted is not in the file, but the scatter is: the second
// differences of neighbouring channels, from which a smooth continuum drops out.
#ifndef PYORV3_EMBEDDED_ENGINES_BACKGROUND_NOISE_H
#define PYORV3_EMBEDDED_ENGINES_BACKGROUND_NOISE_H

#include <span>
#include <vector>

namespace embedded::engines {

// The variance of each content beyond that of a count: 1/6 of the square of
// content[i - 1] - 2 content[i] + content[i + 1], its median over about a hundred channels (peaks
// fill less than half of them) divided by that of chi-square with one degree of freedom, less the
// median content. Empty where no content is negative: then all are counts.
std::vector<double> excessVariance(std::span<const double> contents);

}  // namespace embedded::engines

#endif
