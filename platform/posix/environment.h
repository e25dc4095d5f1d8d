// The environment of the process: its variables, and absolute paths. Names and values of variables
// are bytes; names are case-sensitive.
//
// There is one environment: the copy that the runtime library of Windows keeps does not exist here.
// Safe for concurrent use by multiple threads through this layer.
#ifndef PYORV3_PLATFORM_POSIX_ENVIRONMENT_H
#define PYORV3_PLATFORM_POSIX_ENVIRONMENT_H

#include <cstddef>
#include <optional>
#include <string>

#include "platform/posix/system.h"

// Copies the value of a variable and a NUL into buffer of size bytes and returns the length of the
// value; an empty value gives 0 with the last error 0. If the value does not fit, buffer stays
// unchanged and the result is the necessary size with the NUL. Unknown variable: 0 and
// ERROR_ENVVAR_NOT_FOUND.
DWORD GetEnvironmentVariableA(LPCSTR name, LPSTR buffer, DWORD size);

// Sets a variable; null removes it (ERROR_ENVVAR_NOT_FOUND if it is not set). A name that is null,
// empty or contains "=" gives ERROR_INVALID_PARAMETER.
BOOL SetEnvironmentVariableA(LPCSTR name, LPCSTR value);

// Sets the variable of "NAME=value". "NAME=" removes it from the copy of the runtime library, which
// does not exist here: no effect. Returns 0, or -1 with errno EINVAL if the name or the "=" is
// missing. The caller keeps the string.
int _putenv(const char* assignment);  // NOLINT(*-reserved-identifier,cert-dcl*): Windows' name

// Returns the absolute form of a path without "." and "..". It uses only the string: the file need
// not exist, symbolic links are not followed, and ".." removes the name before it. A null or empty
// path is the current directory. buffer has size bytes; if it is null, the caller releases the
// result with free. Returns null and sets errno if the current directory is unknown, memory runs
// out or the result does not fit into buffer (ERANGE).
// NOLINTNEXTLINE(*-reserved-identifier,cert-dcl*): Windows' name
char* _fullpath(char* buffer, const char* path, std::size_t size);

namespace platform {

// Returns the value of a variable, or nullopt if it is not set.
std::optional<std::string> environmentVariable(const char* name);

}  // namespace platform

#endif
