// Expected peak shape as a function of the channel, from the strong peaks of a spectrum.
// See docs/engine.md, "Peak shape".
#ifndef PYORV3_EMBEDDED_ENGINES_SHAPE_CALIBRATION_H
#define PYORV3_EMBEDDED_ENGINES_SHAPE_CALIBRATION_H

#include <optional>
#include <vector>

#include "embedded/engines/peak_model.h"

namespace embedded::engines {

// A value that was measured at a channel.
struct MeasuredValue {
    double channel;
    Expectation value;
};

// A function fitted to measured values: a constant, or a straight line if it agrees clearly better.
class SmoothFunction {
  public:
    // Values that disagree with the others are left out. Returns nullopt without values.
    static std::optional<SmoothFunction> through(std::vector<MeasuredValue> values);

    // Returns the mean value and its uncertainty.
    Expectation mean() const { return {value_, valueVariance_}; }
    // The function and the uncertainty of its mean.
    Expectation meanAt(double channel) const;
    // The same for a single peak: the variance includes the scatter of the measured values.
    Expectation at(double channel) const;
    // Returns the distance of a channel from the range of the measured values, as a power of 2.
    double octavesOutside(double channel) const;
    // The same function without uncertainty.
    SmoothFunction exact() const;

  private:
    double centre_ = 0.0;
    double value_ = 0.0;  // at the centre
    double slope_ = 0.0;
    double valueVariance_ = 0.0;
    double slopeVariance_ = 0.0;
    double minChannel_ = 0.0;  // channel of a measured value
    double maxChannel_ = 0.0;
    double scatter_ = 0.0;  // variance of a value beyond that of its measurement
};

struct TailCalibration {
    std::optional<SmoothFunction> fraction;
    std::optional<SmoothFunction> length;
};

// Without measurements the shape is that of PeakShape.
struct ShapeCalibration {
    std::optional<SmoothFunction> widthFactor;
    TailCalibration left;
    TailCalibration right;
    std::optional<SmoothFunction> drift;

    PeakShape at(double channel) const;
};

}  // namespace embedded::engines

#endif
