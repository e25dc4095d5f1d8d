// The steps of a run that concern the energy calibration of a data source.
#ifndef PYORV3_EMBEDDED_ENGINES_CALIBRATION_STEPS_H
#define PYORV3_EMBEDDED_ENGINES_CALIBRATION_STEPS_H

#include <span>

#include "embedded/engines/calibration.h"
#include "embedded/engines/data_source_access.h"
#include "embedded/engines/energy_correction.h"
#include "embedded/engines/peak_fit.h"
#include "embedded/engines/spectrum.h"

namespace embedded::engines {

// Finds the peaks of the spectrum without an energy calibration, assigns them to the lines of the
// active nuclide records and writes QAR_D_ENERGYCAL. An earlier energy calibration is not used.
// significanceLimit: of the search, standard deviations.
// Throws spectrumUnreadable, noNuclides, noAssignment, resultsNotWritable.
void calibrateFromNuclides(const DataSourceAccess& dataSource, double significanceLimit);

// Returns the energy correction that the spectrum and the file's nuclide records indicate.
// searched: its widths are positive in the channels of the search.
EnergyCorrection findCorrection(const DataSourceAccess& dataSource, const Spectrum& searched,
                                const Calibration& calibration, std::span<const FittedPeak> peaks,
                                double significanceLimit);

// Read and write QAR_D_ENERGYCORR and QAR_L_CORRLINES. They are written only if there is a
// correction now or was one before.
EnergyCorrection readCorrection(const DataSourceAccess& dataSource);
void writeCorrection(const DataSourceAccess& dataSource, const EnergyCorrection& correction);

}  // namespace embedded::engines

#endif
