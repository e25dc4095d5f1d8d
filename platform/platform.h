// The operating-system functions that the module calls, under their Windows names.
//
// On Windows they are those of the system. On other systems the headers under posix/ declare the
// used ones with the same parameters and results; README.md lists them.
#ifndef PYORV3_PLATFORM_PLATFORM_H
#define PYORV3_PLATFORM_PLATFORM_H

#if defined(_WIN32)

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <stdlib.h>  // _putenv, _fullpath; NOLINT(modernize-deprecated-headers)

#else

#include "platform/posix/environment.h"
#include "platform/posix/libraries.h"
#include "platform/posix/registry.h"
#include "platform/posix/system.h"
#include "platform/posix/text.h"

#endif

#endif
