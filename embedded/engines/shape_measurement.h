// Measures the shape of the strong peaks of a spectrum. See docs/engine.md, "Peak shape".
#ifndef PYORV3_EMBEDDED_ENGINES_SHAPE_MEASUREMENT_H
#define PYORV3_EMBEDDED_ENGINES_SHAPE_MEASUREMENT_H

#include <span>

#include "embedded/engines/peak_fit.h"
#include "embedded/engines/shape_calibration.h"

namespace embedded::engines {

// peaks: a first look at the spectrum, in rising order of channels.
ShapeCalibration measureShapes(const Spectrum& spectrum, std::span<const FittedPeak> peaks);

}  // namespace embedded::engines

#endif
