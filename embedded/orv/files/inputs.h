// The inputs of the node: the data sources in the folder that the suite's environment names.
#ifndef PYORV3_EMBEDDED_ORV_FILES_INPUTS_H
#define PYORV3_EMBEDDED_ORV_FILES_INPUTS_H

#include <string>
#include <vector>

namespace embedded {

// The names, sorted: the files *.qar in the folder that the environment variable ORV_INPUTS names
// at the time of the call, without their extension. None when the variable is not set or there is
// no such folder that may be read. Throws Failure: storageFailed, tooManyOpen.
std::vector<std::string> inputNames();

// The file of the input with this name, which need not exist.
// Throws Failure: nameRefused for a name that leads out of the folder, fileNotFound without one.
std::string inputPath(const std::string& name);

}  // namespace embedded

#endif
