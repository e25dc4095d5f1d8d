// The registry: the keys under HKEY_LOCAL_MACHINE in a file in the export format of the Registry
// Editor, for reading. The environment variable ORSOVA_REGISTRY is its path; default:
// /etc/orsova/registry.reg. README.md describes the format.
#ifndef PYORV3_PLATFORM_POSIX_REGISTRY_H
#define PYORV3_PLATFORM_POSIX_REGISTRY_H

#include "platform/posix/system.h"

namespace platform {

struct OpenKey;
extern OpenKey localMachine;

}  // namespace platform

using HKEY = platform::OpenKey*;
using PHKEY = HKEY*;
using REGSAM = DWORD;

#define HKEY_LOCAL_MACHINE (&platform::localMachine)

enum { KEY_READ = 0x20019 };

enum { REG_SZ = 1, REG_EXPAND_SZ = 2, REG_BINARY = 3, REG_DWORD = 4, REG_MULTI_SZ = 7 };

// Opens a key under HKEY_LOCAL_MACHINE as the file describes it at this moment; options and access
// have no effect. The key in *result is the caller's to close. Returns
//   ERROR_FILE_NOT_FOUND     no such file, or no such key in it
//   ERROR_BADDB              the file cannot be read, exceeds 16 MiB or is not an export
//   ERROR_INVALID_HANDLE     another root key
//   ERROR_INVALID_PARAMETER  a null pointer
LSTATUS RegOpenKeyExA(HKEY root, LPCSTR path, DWORD options, REGSAM access, PHKEY result);

// Gets the value with an index, counted from 0 in no particular order. nameSize: on entry the size
// of name, on return the length without the NUL. dataSize: the same for data in bytes, with the NUL
// of a string. reserved must be null; type, data, or data and dataSize may be null. Strings are in
// the ANSI code page. Returns
//   ERROR_NO_MORE_ITEMS      the index exceeds the number of values
//   ERROR_MORE_DATA          name or data is too small: neither is written, *dataSize is set to the
//                            necessary size of data and *nameSize is unchanged
//   ERROR_INVALID_HANDLE     not an open key
//   ERROR_INVALID_PARAMETER  a null pointer, or a pointer that must be null
LSTATUS RegEnumValueA(HKEY key, DWORD index, LPSTR name, LPDWORD nameSize, LPDWORD reserved,
                      LPDWORD type, LPBYTE data, LPDWORD dataSize);

LSTATUS RegCloseKey(HKEY key);

#endif
