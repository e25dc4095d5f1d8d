// Variables of the process environment, and those from which the libraries of the suite get their
// directories and settings.
//
// The suite stores them in the registry, in the values of the key "SOFTWARE\Tarsel\Orsova
// Environment" under HKEY_LOCAL_MACHINE: the name of a value is the name of the variable, its data
// the value of the variable.
#ifndef PYORV3_ENVIRONMENT_SUITE_ENVIRONMENT_H
#define PYORV3_ENVIRONMENT_SUITE_ENVIRONMENT_H

#include <optional>
#include <string>

namespace pyORV3 {

// Returns the whole value of a variable, as the bytes of the system, or nullopt if it is not set or
// empty. Throws std::bad_alloc.
std::optional<std::string> processVariable(const std::string& name);

// Copies the variables of the suite into the environment of the process and of the runtime library,
// and sets the marker variable "OSVENV" to "1" so that this happens once. Must be called before a
// library context is created and before a variable of the suite is looked up.
//
// Variables with a value keep it. Relaxes the default access of the process before it reads the
// registry. Does nothing if the marker is set, for example by a parent process. If the key cannot
// be opened or memory is exhausted, the marker stays unset, so that the next call tries again.
// Failures are silent: values that cannot be read or whose names are not valid for a variable are
// skipped.
//
// REQUIRES: the interpreter lock.
void loadSuiteEnvironment() noexcept;

}  // namespace pyORV3

#endif
