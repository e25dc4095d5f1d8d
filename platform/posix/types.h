// The Windows types that the declarations of this layer use, with the widths they have there.
#ifndef PYORV3_PLATFORM_POSIX_TYPES_H
#define PYORV3_PLATFORM_POSIX_TYPES_H

#include <cstdint>

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

#endif
