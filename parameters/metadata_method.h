// The method that tells what the parameter dictionary knows about a parameter.
#ifndef PYORV3_PARAMETERS_METADATA_METHOD_H
#define PYORV3_PARAMETERS_METADATA_METHOD_H

#include <cstdint>

#include "module/frame/outcome.h"
#include "module/frame/python_reference.h"

namespace pyORV3 {

// Gives the tuple (name, description, code, class code, type name) of the parameter that the name
// or, when it is empty, the code names. The type name is one of "byte", "short", "long",
// "longlong", "float", "str", "double", "Date", and empty for a data type that is not known.
// A name that the dictionary does not know is looked up among the environment variables of the
// process and the suite: (name, value, 0, 0, "str"). badArguments when nothing is found.
// handle: not used.
Outcome getParameterMetaData(std::int32_t handle, std::int32_t code, const char* name,
                             PythonReference& metadata);

}  // namespace pyORV3

#endif
