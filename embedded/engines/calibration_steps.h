// The steps of a run that concern the calibrations of a data source, and the records of its curves.
#ifndef PYORV3_EMBEDDED_ENGINES_CALIBRATION_STEPS_H
#define PYORV3_EMBEDDED_ENGINES_CALIBRATION_STEPS_H

#include <cstdint>
#include <span>
#include <vector>

#include "embedded/engines/calibration.h"
#include "embedded/engines/data_source_access.h"
#include "embedded/engines/energy_correction.h"
#include "embedded/engines/peak_fit.h"
#include "embedded/engines/spectrum.h"
#include "embedded/engines/width_estimate.h"

namespace embedded::engines {

// The values are those of QAR_S_SHAPEORIGIN.
enum class WidthOrigin : std::uint16_t {
    given = 0,         // from the file
    peaks = 1,         // estimated from peaks because the file has none
    typical = 2,       // of a typical detector because there are no peaks either
    contradiction = 3  // estimated from peaks that contradict that of the file
};

// The width calibration of a run: the one in the file, or an estimate from its peaks.
struct WidthCalibration {
    std::vector<double> shape;  // see Calibration
    WidthOrigin origin = WidthOrigin::given;
    DetectorKind kind = DetectorKind::unknown;  // unknown if given
};

// Returns QAR_D_SHAPECAL, or an estimate if it is missing, an earlier estimate (equal to
// QAR_D_SHAPEEST) or in contradiction to the peaks.
// calibration: its energies must rise, its shape is ignored; contents, excess: see measureWidths().
WidthCalibration widthCalibrationOf(const DataSourceAccess& dataSource,
                                    const Calibration& calibration,
                                    std::span<const double> contents,
                                    std::span<const double> excess);

// Writes an estimate to QAR_D_SHAPECAL and QAR_D_SHAPEEST, its origin to QAR_S_SHAPEORIGIN and the
// kind of detector to QAR_S_DETECTORKIND. Throws resultsNotWritable.
void writeWidthCalibration(const DataSourceAccess& dataSource, const WidthCalibration& widths);

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

// Writes the curve of a fitted peak into its record, for programs that draw it. See docs/engine.md,
// "Curves of the fits". Leaves out the values of a plain Gaussian on a straight continuum. Throws
// EngineFailure if the record cannot be written. The peak must have a curve.
void writeCurve(const DataSourceAccess& dataSource, std::uint16_t record, const FittedPeak& peak);

}  // namespace embedded::engines

#endif
