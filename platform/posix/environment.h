// The environment of the process: its variables, and what a path means in its current folder.
// Names and values of variables are bytes; names are case-sensitive.
//
// There is one environment: the copy that the Windows runtime library keeps beside the process
// environment has no counterpart. Calls of this layer are safe against each other in threads.
#ifndef PYORV3_PLATFORM_POSIX_ENVIRONMENT_H
#define PYORV3_PLATFORM_POSIX_ENVIRONMENT_H

#include <cstddef>
#include <optional>
#include <string>

#include "platform/posix/system.h"

// Copies the value of a variable and a NUL into buffer, which has room for size bytes, and returns
// the length of the value; an empty value thus gives 0, with the last error 0. A value that does
// not fit leaves buffer alone, and the result is the size it needs with its NUL. No such variable:
// 0 and ERROR_ENVVAR_NOT_FOUND.
DWORD GetEnvironmentVariableA(LPCSTR name, LPSTR buffer, DWORD size);

// Sets a variable, to the empty text too; a null value removes it (ERROR_ENVVAR_NOT_FOUND where
// there is none). A name that is null, empty or has an "=" in it is ERROR_INVALID_PARAMETER.
BOOL SetEnvironmentVariableA(LPCSTR name, LPCSTR value);

// Takes "NAME=value" and sets the variable. "NAME=" asks the runtime library to drop its own copy,
// of which there is none: nothing changes. Returns 0, or -1 with errno EINVAL where no name or no
// "=" is there. The text stays the caller's.
int _putenv(const char* assignment);  // NOLINT(*-reserved-identifier,cert-dcl*): Windows' name

// The absolute form of a path, without "." and "..". It is made from the text alone: the file need
// not exist, symbolic links are not followed, and a ".." takes away the name before it. A null or
// empty path is the current folder. buffer has room for size bytes; where it is null, the result
// is the caller's to release with free. Null with errno set where the current folder cannot be
// found, memory is short or the result does not fit buffer (ERANGE).
// NOLINTNEXTLINE(*-reserved-identifier,cert-dcl*): Windows' name
char* _fullpath(char* buffer, const char* path, std::size_t size);

namespace platform {

// The value of a variable, none where it is not set.
std::optional<std::string> environmentVariable(const char* name);

}  // namespace platform

#endif
