// Loads libraries by name at run time.
#ifndef PYORV3_PLATFORM_POSIX_LIBRARIES_H
#define PYORV3_PLATFORM_POSIX_LIBRARIES_H

#include <cstdint>

#include "platform/posix/system.h"

namespace platform {
struct Library;
}

using HMODULE = platform::Library*;
using FARPROC = std::intptr_t (*)();

// Loads a library by its Windows name: a trailing ".dll", in any case, is replaced by ".so". A name
// with a slash is a path. Any other name is searched for
//   1. in the absolute directories of LD_LIBRARY_PATH at the time of the call,
//   2. in the directory of the binary that this layer is linked into,
//   3. in its subdirectory pyORV3.libs,
//   4. by the system's loader, unless that would search a relative directory.
// The current directory is never searched. Returns null with ERROR_MOD_NOT_FOUND if the library
// cannot be loaded for any reason. The caller frees each loaded library once.
//
// A library that is in use already is found by its name without a search, as long as
// LD_LIBRARY_PATH is the same. The dictionary pqar.dll stays in memory if something else held it
// there when it was first loaded here. A path must be that of a regular file.
HMODULE LoadLibraryA(LPCSTR name);

// Returns the function that the library itself exports under the name; null and
// ERROR_PROC_NOT_FOUND if it does not export one, even if one of its dependencies does.
FARPROC GetProcAddress(HMODULE library, LPCSTR name);

// Releases one loading of a library; the last one unmaps it unless other code uses it. FALSE and
// ERROR_INVALID_HANDLE for null.
BOOL FreeLibrary(HMODULE library);

#endif
