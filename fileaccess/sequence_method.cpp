#include "fileaccess/sequence_method.h"

#include "fileaccess/file_access.h"

namespace pyORV3 {

Outcome copyAnalysisSequenceTo(std::int32_t sourceHandle, std::int32_t destinationHandle) {
    using Tarsel::Datasources::QAR::FileAccess;
    FileAccess source(sourceHandle);
    FileAccess destination(destinationHandle);
    return {source.copySequenceTo(destination), "copySequenceTo() Failed"};
}

}  // namespace pyORV3
