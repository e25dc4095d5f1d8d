// What belongs to the whole process: the Windows types that the declarations of this layer use, the
// last error, the system's version and the access rights.
//
// There is nothing to relax on this system: files get their access rights from the process's file
// mode mask, and the functions succeed without an effect.
#ifndef PYORV3_PLATFORM_POSIX_SYSTEM_H
#define PYORV3_PLATFORM_POSIX_SYSTEM_H

#include <cstdint>

// ---- Types, with the widths they have on Windows ----

using BOOL = int;
using BYTE = unsigned char;
using UINT = unsigned int;
using DWORD = std::uint32_t;
using LONG = std::int32_t;
using LSTATUS = LONG;

using LPBOOL = BOOL*;
using LPBYTE = BYTE*;
using LPDWORD = DWORD*;
using LPVOID = void*;
using LPSTR = char*;
using LPCSTR = const char*;
using LPWSTR = wchar_t*;
using LPCWSTR = const wchar_t*;

using HANDLE = void*;

enum { FALSE = 0, TRUE = 1 };

// ---- The last error ----

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

// ---- Version and access rights ----

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
