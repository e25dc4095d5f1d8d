// Fits the tails that the strong peaks of a spectrum have in common. See docs/engine.md, "Peak
// shape".
#ifndef PYORV3_EMBEDDED_ENGINES_COMMON_TAILS_H
#define PYORV3_EMBEDDED_ENGINES_COMMON_TAILS_H

#include <optional>
#include <span>
#include <vector>

#include "embedded/engines/peak_fit.h"

namespace embedded::engines {

// Fractions of the tails of one peak; negative if the peak falls faster than a Gaussian.
struct TailFractions {
    Expectation left;
    Expectation right;
};

struct CommonTails {
    double leftLength;   // in sigma
    double rightLength;  // in sigma
    // For each fit the fractions that its own region shows with these lengths; nullopt if there is
    // no fit or its tails are too different.
    std::vector<std::optional<TailFractions>> fractions;
};

// fits: of strong peaks, each with tails of its own.
CommonTails fitCommonTails(const Spectrum& spectrum,
                           std::span<const std::optional<RegionFit>> fits);

}  // namespace embedded::engines

#endif
