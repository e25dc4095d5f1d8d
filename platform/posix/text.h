// The ANSI code page of this system, which is Windows-1252, and conversions from and to wide
// strings, independent of the locale and its modules.
//
// A wide character is a code point here and not a UTF-16 unit: a character above 0xFFFF is one
// character outside the code page and becomes one "?"; Windows writes two.
#ifndef PYORV3_PLATFORM_POSIX_TEXT_H
#define PYORV3_PLATFORM_POSIX_TEXT_H

#include <optional>
#include <string>
#include <string_view>

#include "platform/posix/system.h"

enum { CP_ACP = 0, MB_PRECOMPOSED = 1 };

// Both convert length characters of text, or with length -1 all up to the NUL and the NUL too, into
// the size characters of buffer, and return how many they wrote. With size 0 nothing is written and
// the result is the size that is needed. Failures return 0 and write nothing:
//   ERROR_INSUFFICIENT_BUFFER  the result does not fit
//   ERROR_INVALID_PARAMETER    another code page than CP_ACP, a null pointer, an impossible length
//   ERROR_INVALID_FLAGS        flags other than 0, or MB_PRECOMPOSED in the first
int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int length, LPWSTR buffer,
                        int size);

// replacement: for characters outside the code page; null means "?".
// replaced: unless null, set to TRUE if there were such characters.
int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR text, int length, LPSTR buffer,
                        int size, LPCSTR replacement, LPBOOL replaced);

namespace platform {

// Returns the string in the code page, with "?" for characters outside it.
std::string ansiText(std::wstring_view wide);

// Returns the wide string of the bytes, one wide character for each code point, or nullopt if they
// are not valid in the encoding (see text/unicode.h).
std::optional<std::wstring> wideFromUtf8(std::string_view bytes);
std::optional<std::wstring> wideFromUtf16(std::string_view bytes);  // little-endian

}  // namespace platform

#endif
