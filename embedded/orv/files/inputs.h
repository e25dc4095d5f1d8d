// The inputs of the node: the data sources in the directory ORV_INPUTS.
#ifndef PYORV3_EMBEDDED_ORV_FILES_INPUTS_H
#define PYORV3_EMBEDDED_ORV_FILES_INPUTS_H

#include <string>
#include <vector>

namespace embedded {

// Returns the sorted names, without extension, of the files *.qar in the directory that the
// environment variable ORV_INPUTS names at the time of the call. Empty if the variable is not set
// or the directory does not exist or cannot be read. Throws Failure: storageFailed, tooManyOpen.
std::vector<std::string> inputNames();

// Returns the path of the input with this name; the file need not exist. Throws Failure:
// nameRefused if the name leads out of the directory, fileNotFound if ORV_INPUTS is not set.
std::string inputPath(const std::string& name);

}  // namespace embedded

#endif
