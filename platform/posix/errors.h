// The error number that the last failed function of this layer left in its thread.
#ifndef PYORV3_PLATFORM_POSIX_ERRORS_H
#define PYORV3_PLATFORM_POSIX_ERRORS_H

#include "platform/posix/types.h"

// Error numbers of Windows that functions of this layer report.
enum {
    ERROR_SUCCESS = 0,
    ERROR_FILE_NOT_FOUND = 2,
    ERROR_INVALID_HANDLE = 6,
    ERROR_NOT_ENOUGH_MEMORY = 8,
    ERROR_INVALID_PARAMETER = 87,
    ERROR_INSUFFICIENT_BUFFER = 122,
    ERROR_MOD_NOT_FOUND = 126,
    ERROR_PROC_NOT_FOUND = 127,
    ERROR_ENVVAR_NOT_FOUND = 203,
    ERROR_MORE_DATA = 234,
    ERROR_NO_MORE_ITEMS = 259,
    ERROR_INVALID_FLAGS = 1004,
    ERROR_BADDB = 1009
};

// Each thread has its own number, 0 at first. Functions that succeed leave it as it is unless
// their description says otherwise.
DWORD GetLastError();
void SetLastError(DWORD error);

#endif
