// The nuclide records of a data source as patterns of lines, before anything is known of the
// energies of its peaks.
#ifndef PYORV3_EMBEDDED_ENGINES_NUCLIDE_PATTERNS_H
#define PYORV3_EMBEDDED_ENGINES_NUCLIDE_PATTERNS_H

#include <vector>

#include "embedded/engines/calibration.h"
#include "embedded/engines/data_source_access.h"
#include "embedded/engines/line_assignment.h"

namespace embedded::engines {

// The active nuclides with the lines that have an energy and a positive yield; their weights are
// yields multiplied with the efficiency of the calibration. All have a surprise of 0.
std::vector<LinePattern> readPatterns(const DataSourceAccess& dataSource,
                                      const Calibration& calibration);

}  // namespace embedded::engines

#endif
