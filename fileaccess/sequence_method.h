// The method that copies the analysis sequence of one data source into another.
#ifndef PYORV3_FILEACCESS_SEQUENCE_METHOD_H
#define PYORV3_FILEACCESS_SEQUENCE_METHOD_H

#include <cstdint>

#include "module/frame/outcome.h"

namespace pyORV3 {

// Copies the analysis sequence; both data sources stay open and the caller's. The status of
// FileAccess::copySequenceTo.
[[nodiscard]] Outcome copyAnalysisSequenceTo(std::int32_t sourceHandle,
                                             std::int32_t destinationHandle);

}  // namespace pyORV3

#endif
