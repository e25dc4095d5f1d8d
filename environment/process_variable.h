// Variables of the process environment.
#ifndef PYORV3_ENVIRONMENT_PROCESS_VARIABLE_H
#define PYORV3_ENVIRONMENT_PROCESS_VARIABLE_H

#include <optional>
#include <string>

namespace pyORV3 {

// The whole value of a variable, however long, as the bytes that the system gives. None where the
// variable is not set or its value is empty. Throws std::bad_alloc.
std::optional<std::string> processVariable(const std::string& name);

}  // namespace pyORV3

#endif
