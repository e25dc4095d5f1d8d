// The nuclides of a library as templates for the spectrum of a scintillator.
#ifndef PYORV3_EMBEDDED_ENGINES_SCINTILLATOR_TEMPLATES_H
#define PYORV3_EMBEDDED_ENGINES_SCINTILLATOR_TEMPLATES_H

#include <cstddef>
#include <span>
#include <vector>

#include "embedded/engines/calibration.h"
#include "embedded/engines/nuclide.h"
#include "embedded/engines/scintillator_columns.h"

namespace embedded::engines {

struct ScintillatorTemplates {
    std::vector<TemplateNuclide> nuclides;
    std::vector<std::size_t> numbers;  // of these nuclides in the library
};

// Leaves out nuclides without usable lines and those of the detector's own radioactivity.
ScintillatorTemplates scintillatorTemplates(std::span<const Nuclide> nuclides,
                                            const Calibration& calibration);

}  // namespace embedded::engines

#endif
