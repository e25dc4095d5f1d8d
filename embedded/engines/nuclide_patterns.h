// The nuclide records of a data source as patterns of lines, for an unknown energy calibration.
#ifndef PYORV3_EMBEDDED_ENGINES_NUCLIDE_PATTERNS_H
#define PYORV3_EMBEDDED_ENGINES_NUCLIDE_PATTERNS_H

#include <vector>

#include "embedded/engines/calibration.h"
#include "embedded/engines/data_source_access.h"
#include "embedded/engines/line_assignment.h"

namespace embedded::engines {

// Returns the active nuclides and their lines with an energy and a positive yield. The weights are
// yield times efficiency. The surprise of all patterns is 0.
std::vector<LinePattern> readPatterns(const DataSourceAccess& dataSource,
                                      const Calibration& calibration);

}  // namespace embedded::engines

#endif
