// The model of a region's contents and its unknowns; peak_fit.h says where it comes from.
#ifndef PYORV3_EMBEDDED_ENGINES_PEAK_MODEL_H
#define PYORV3_EMBEDDED_ENGINES_PEAK_MODEL_H

#include <cstddef>
#include <span>
#include <vector>

#include "embedded/engines/peak_fit.h"

namespace embedded::engines {

class PeakModel {
  public:
    // Positions of the unknowns in their vector; of peak number k (from 0): area(k), channel(k).
    static constexpr std::size_t level = 0;  // continuum in the middle of the region, counts
    static constexpr std::size_t slope = 1;  // rise of the continuum from the middle to the end
    static constexpr std::size_t step = 2;   // height of the step, counts
    static constexpr std::size_t widthFactor = 3;
    static constexpr std::size_t area(std::size_t peak) { return 4 + 2 * peak; }
    static constexpr std::size_t channel(std::size_t peak) { return 5 + 2 * peak; }

    // The first estimate of the unknowns is taken from `contents`, of all channels.
    PeakModel(std::span<const double> contents, Region region,
              std::span<const ExpectedPeak> expected);

    std::size_t unknowns() const { return estimate_.size(); }
    const std::vector<double>& estimate() const { return estimate_; }

    // Moves centroids and the width factor back into the range they may have.
    void restrain(std::vector<double>& values) const;

    // Content of the channel with the index; its derivatives by the unknowns go to `derivatives`.
    double content(std::span<const double> values, std::size_t index,
                   std::span<double> derivatives) const;

    // The part of the content that is no peak.
    double continuum(std::span<const double> values, std::size_t index) const;

    double width(std::span<const double> values, std::size_t peak) const;  // FWHM in channels

  private:
    double offset(std::size_t index) const;
    double stepArgument(std::span<const double> values, std::size_t index) const;
    void estimateContinuum(std::span<const double> contents);
    void estimatePeaks(std::span<const double> contents);

    Region region_;
    std::vector<ExpectedPeak> expected_;
    std::vector<double> estimate_;
    std::size_t strongest_ = 0;
};

}  // namespace embedded::engines

#endif
