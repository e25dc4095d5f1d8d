// The width calibration of a run: the one in the file, or an estimate from its peaks.
#ifndef PYORV3_EMBEDDED_ENGINES_WIDTH_CALIBRATION_H
#define PYORV3_EMBEDDED_ENGINES_WIDTH_CALIBRATION_H

#include <cstdint>
#include <span>
#include <vector>

#include "embedded/engines/calibration.h"
#include "embedded/engines/data_source_access.h"
#include "embedded/engines/width_estimate.h"

namespace embedded::engines {

// The values are those of QAR_S_SHAPEORIGIN.
enum class WidthOrigin : std::uint16_t {
    given = 0,         // from the file
    peaks = 1,         // estimated from peaks because the file has none
    typical = 2,       // of a typical detector because there are no peaks either
    contradiction = 3  // estimated from peaks that contradict that of the file
};

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

}  // namespace embedded::engines

#endif
