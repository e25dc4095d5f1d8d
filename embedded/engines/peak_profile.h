// Integral of a peak of unit area: a Gaussian of which parts are folded with exponentials.
// See docs/engine.md, "Peak shape".
#ifndef PYORV3_EMBEDDED_ENGINES_PEAK_PROFILE_H
#define PYORV3_EMBEDDED_ENGINES_PEAK_PROFILE_H

namespace embedded::engines {

struct Tail {
    double fraction;  // of the area
    double length;    // decay length in sigma
};

struct TailDerivatives {
    double byFraction;
    double byLength;
};

// The part of a peak below a position, and its derivatives.
struct PartBelow {
    double value;
    double byPosition;
    double byDrift;
    TailDerivatives left;
    TailDerivatives right;
};

// Returns the part of a peak below a position. A null tail costs no time and has no derivatives.
// position: distance from the centroid in sigma.
PartBelow partBelow(double position, const Tail* left, const Tail* right);

// Does the same for a peak that drifts during the measurement: the mean over centroids that are
// spread evenly over the drift, in sigma, around 0.
PartBelow partBelowWithDrift(double position, double drift, const Tail* left, const Tail* right);

double normalDistribution(double position);

}  // namespace embedded::engines

#endif
