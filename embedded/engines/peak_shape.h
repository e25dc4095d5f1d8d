// Expected shape of the peaks of a spectrum, which a peak fit starts from. See docs/engine.md,
// "Peak shape".
#ifndef PYORV3_EMBEDDED_ENGINES_PEAK_SHAPE_H
#define PYORV3_EMBEDDED_ENGINES_PEAK_SHAPE_H

namespace embedded::engines {

struct Expectation {
    double value;
    double variance;
};

// An exponential tail on one side of a Gaussian peak.
struct ExpectedTail {
    Expectation fraction = {0.0, 0.0};  // of the area; variance 0: unknown, 0 unless the data ask
    Expectation length = {1.5, 1.0};    // decay length in sigma
};

struct PeakShape {
    Expectation widthFactor = {1.0, 0.05 * 0.05};  // of the calibrated width
    ExpectedTail left;
    ExpectedTail right;
    Expectation drift = {0.0, 0.0};  // in sigma; variance 0: unknown, 0 unless the data ask
};

}  // namespace embedded::engines

#endif
