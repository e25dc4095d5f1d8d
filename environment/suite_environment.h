// The variables of the process environment, and those by which the suite's libraries find their
// folders and settings.
//
// The suite keeps them in the registry, in the values of the key "SOFTWARE\Tarsel\Orsova
// Environment" under HKEY_LOCAL_MACHINE: the name of a value is the variable's name, its data the
// variable's text.
#ifndef PYORV3_ENVIRONMENT_SUITE_ENVIRONMENT_H
#define PYORV3_ENVIRONMENT_SUITE_ENVIRONMENT_H

#include <optional>
#include <string>

namespace pyORV3 {

// The whole value of a variable, however long, as the bytes that the system gives. None where the
// variable is not set or its value is empty. Throws std::bad_alloc.
std::optional<std::string> processVariable(const std::string& name);

// Copies the suite's variables into the environment of the process and of the runtime library, and
// sets the marker variable "OSVENV" to "1" so that it is done once. To be called before a library
// context is made and before a variable of the suite is looked up.
//
// A variable that already has a value keeps it. Before the registry is read the default access of
// the process is relaxed. Where the marker is set, also by a parent process, nothing is done. Where
// the key cannot be opened or memory is short the marker stays unset, so that the next call tries
// again. Failures are silent: a value that cannot be read, or whose name cannot name a variable, is
// left out.
//
// The caller holds the interpreter lock; there is no other one.
void loadSuiteEnvironment() noexcept;

}  // namespace pyORV3

#endif
