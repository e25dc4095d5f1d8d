// Functions of the whole process: the Windows types in the declarations of this layer, the last
// error, the version of the system and access rights.
//
// Nothing needs relaxing on this system: files get their access rights from the file mode mask of
// the process, and the functions succeed without an effect.
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

// Each thread has its own number, initially 0. Successful functions leave it unchanged unless their
// description states otherwise.
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
// ERROR_INSUFFICIENT_BUFFER if the size field is smaller than the record.
BOOL GetVersionExA(OSVERSIONINFOA* version);

// A pseudo handle of this process; need not be closed.
HANDLE GetCurrentProcess();

// Returns a handle to close with CloseHandle. FALSE and ERROR_INVALID_HANDLE for other processes.
BOOL OpenProcessToken(HANDLE process, DWORD access, HANDLE* token);

// FALSE and ERROR_INVALID_HANDLE for anything but a token.
BOOL SetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS informationClass, LPVOID information,
                         DWORD size);
BOOL CloseHandle(HANDLE handle);

#endif
