// The system's version and the access rights of the process. There is nothing to relax on this
// system: files get their access rights from the process's file mode mask, and the functions
// succeed without an effect.
#ifndef PYORV3_PLATFORM_POSIX_SYSTEM_H
#define PYORV3_PLATFORM_POSIX_SYSTEM_H

#include "platform/posix/types.h"

enum { VER_PLATFORM_WIN32_NT = 2, TOKEN_ADJUST_DEFAULT = 0x80 };

struct OSVERSIONINFOA {
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    char szCSDVersion[128];
};

struct ACL;  // an access-control list; there are none
using PACL = ACL*;

struct TOKEN_DEFAULT_DACL {  // NOLINT(readability-identifier-naming): Windows' name
    PACL DefaultDacl;
};

enum TOKEN_INFORMATION_CLASS {  // NOLINT(readability-identifier-naming): Windows' name
    TokenDefaultDacl = 6
};

// Reports a system of the platform VER_PLATFORM_WIN32_NT, the other fields 0. FALSE and
// ERROR_INSUFFICIENT_BUFFER where the size field is smaller than the record.
BOOL GetVersionExA(OSVERSIONINFOA* version);

// Stands for the running process; needs no closing.
HANDLE GetCurrentProcess();

// Gives a handle to be closed with CloseHandle. FALSE and ERROR_INVALID_HANDLE for anything but
// the running process.
BOOL OpenProcessToken(HANDLE process, DWORD access, HANDLE* token);

// FALSE and ERROR_INVALID_HANDLE for anything but a token.
BOOL SetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS informationClass, LPVOID information,
                         DWORD size);
BOOL CloseHandle(HANDLE handle);

#endif
