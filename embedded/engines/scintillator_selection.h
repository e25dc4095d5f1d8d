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

// Nuclides compete: a model's cost is -2 ln(likelihood), in which misfit counts less where the best
// model has some as well, plus a price for each nuclide and its rarity. Models grow by the nuclide
// that lowers the cost most, from a few different first nuclides and gains; nuclides of the
// cheapest model are then exchanged while that lowers the cost. The confidence is G / (G + limit^2)
// for a nuclide whose absence raises -2 ln(likelihood) by G, times the odds against the model in
// which the best other nuclide replaces it. limit: standard deviations.
Selection selectNuclides(const ScintillatorFit& fit, std::span<const TemplateNuclide> nuclides,
                         double limit);

}  // namespace embedded::engines

#endif
