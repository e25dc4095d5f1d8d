// Identification of nuclides in the spectrum of a scintillator, and a correction of its energy
// calibration from them.
//
// Lines of a scintillator overlap, so single peaks are weak evidence. Nuclides are therefore fitted
// to the spectrum instead of to its peaks. See docs/engine.md, "Scintillators".
#ifndef PYORV3_EMBEDDED_ENGINES_SCINTILLATOR_IDENTIFICATION_H
#define PYORV3_EMBEDDED_ENGINES_SCINTILLATOR_IDENTIFICATION_H

#include <cstddef>
#include <span>
#include <vector>

#include "embedded/engines/calibration.h"
#include "embedded/engines/energy_correction.h"
#include "embedded/engines/identification.h"
#include "embedded/engines/nuclide.h"
#include "embedded/engines/scintillator_fit.h"
#include "embedded/engines/spectrum.h"

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

// Fits nuclides in everyday use to the spectrum with a calibration that may be off by 10 %. Peaks,
// Compton edges and backscatter must agree in position, so a single line is enough. Returns no
// correction if any nuclides of the library explain the spectrum as well without one.
EnergyCorrection scintillatorCorrection(const Spectrum& spectrum, const Calibration& calibration,
                                        std::span<const Nuclide> nuclides);

// Returns the same as `identify`. A peak is assigned to the nuclide with the largest share.
// limit: significance, in standard deviations, at which a nuclide without competitors has a
// confidence of one half.
Findings identifyInScintillator(const Spectrum& spectrum, const Calibration& calibration,
                                std::span<const MeasuredPeak> peaks,
                                std::span<const Nuclide> nuclides, const MatchingRules& rules,
                                double limit);

}  // namespace embedded::engines

#endif
