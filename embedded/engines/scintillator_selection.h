// Chooses the nuclides that explain the spectrum of a scintillator.
#ifndef PYORV3_EMBEDDED_ENGINES_SCINTILLATOR_SELECTION_H
#define PYORV3_EMBEDDED_ENGINES_SCINTILLATOR_SELECTION_H

#include <cstddef>
#include <span>
#include <vector>

#include "embedded/engines/scintillator_fit.h"

namespace embedded::engines {

struct Selection {
    ScintillatorModel model;
    std::vector<double> confidences;  // of the model's nuclides, 0 to 1
};

// Selects the cheapest model. Its cost is -2 ln(likelihood) plus a price and the rarity of each
// nuclide. Models grow by the nuclide that lowers the cost most, from several first nuclides; then
// nuclides are exchanged as long as the cost falls. limit: standard deviations.
// See docs/engine.md, "Scintillators".
Selection selectNuclides(const ScintillatorFit& fit, std::span<const TemplateNuclide> nuclides,
                         double limit);

// Returns the cheapest model without exchanging nuclides.
// gains: relative departures from the calibration at which the search starts; maxStarts: number of
// first nuclides, each with its gain, from which models grow.
ScintillatorModel bestModel(const ScintillatorFit& fit, std::span<const TemplateNuclide> nuclides,
                            std::span<const double> gains, std::size_t maxStarts);

// Returns the cost of a model: -2 ln(likelihood) divided by the misfit, plus price and rarity of
// its nuclides.
double cost(const ScintillatorModel& model, std::span<const TemplateNuclide> nuclides,
            double misfit);

}  // namespace embedded::engines

#endif
