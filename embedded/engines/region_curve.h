// The fitted model of a region in plain numbers, from which programs draw it. See docs/engine.md,
// "Curves of the fits".
#ifndef PYORV3_EMBEDDED_ENGINES_REGION_CURVE_H
#define PYORV3_EMBEDDED_ENGINES_REGION_CURVE_H

#include <vector>

#include "embedded/engines/peak_fit.h"

namespace embedded::engines {

// A fall of the continuum, as rounded as a Gaussian.
struct Fall {
    double height;  // counts; negative if the continuum rises
    double channel;
    double width;  // FWHM of the Gaussian in channels
};

struct RegionCurve {
    double level;      // continuum in the middle of the region, counts
    double slope;      // rise of the continuum from the middle to the end
    double curvature;  // of the continuum: counts at the ends beyond the straight line
    Fall step;         // below the strongest peak
    Fall edge;         // height 0: none
    Tail left;         // lengths in sigma of a peak of the common width, as for the drift
    Tail right;
    double drift;
    double degreesOfFreedom;
    double chiSquareOfShape;  // part of chi-square from the shape's distance to the expected one
    std::vector<FittedPeak> unreported;  // fitted peaks without a record of their own
};

// Returns the curve of a fit, without unreported peaks.
RegionCurve curveOf(const Spectrum& spectrum, const RegionFit& fit);

}  // namespace embedded::engines

#endif
