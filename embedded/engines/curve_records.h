// Writes the curve of a fitted peak into its record, for programs that draw it. See docs/engine.md,
// "Curves of the fits".
#ifndef PYORV3_EMBEDDED_ENGINES_CURVE_RECORDS_H
#define PYORV3_EMBEDDED_ENGINES_CURVE_RECORDS_H

#include <cstdint>

#include "embedded/engines/data_source_access.h"
#include "embedded/engines/peak_fit.h"

namespace embedded::engines {

// Leaves out the values of a plain Gaussian on a straight continuum. Throws EngineFailure if the
// record cannot be written. The peak must have a curve.
void writeCurve(const DataSourceAccess& dataSource, std::uint16_t record, const FittedPeak& peak);

}  // namespace embedded::engines

#endif
