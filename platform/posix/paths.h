// File names.
#ifndef PYORV3_PLATFORM_POSIX_PATHS_H
#define PYORV3_PLATFORM_POSIX_PATHS_H

#include <cstddef>

// The absolute form of a path, without "." and "..". It is made from the text alone: the file need
// not exist, symbolic links are not followed, and a ".." takes away the name before it. A null or
// empty path is the current folder. buffer has room for size bytes; where it is null, the result
// is the caller's to release with free. Null with errno set where the current folder cannot be
// found, memory is short or the result does not fit buffer (ERANGE).
// NOLINTNEXTLINE(*-reserved-identifier,cert-dcl*): Windows' name
char* _fullpath(char* buffer, const char* path, std::size_t size);

#endif
