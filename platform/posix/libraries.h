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

// Loads a library by its Windows name: a trailing ".dll", in any case, stands for ".so". A name
// with a slash is a path. Any other name is looked for
//   1. in the absolute folders of LD_LIBRARY_PATH as it is at the time of the call,
//   2. in the folder of the binary that this layer is linked into,
//   3. in the folder pyORV3.libs there,
//   4. where the system's loader looks, unless that would take it to a relative folder.
// The current folder is never searched. What cannot be loaded, for whatever reason, is null and
// ERROR_MOD_NOT_FOUND. Every library that was loaded is to be freed once.
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
