// The ANSI code page of this system, which is Windows-1252, and conversions from and to wide
// strings, independent of the locale and its modules.
//
// A wide character is a whole code point here and not a UTF-16 unit: what lies beyond 0xFFFF is
// one character that the code page does not have, and so becomes one "?" where Windows writes two.
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

// replacement: stands for characters that the code page does not have; "?" where it is null.
// replaced: where not null, receives whether there were such characters.
int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR text, int length, LPSTR buffer,
                        int size, LPCSTR replacement, LPBOOL replaced);

namespace platform {

// Every character of the text in the code page, "?" for those it does not have.
std::string ansiText(std::wstring_view wide);

// The bytes as wide text, one wide character for each code point. None where they are not in the
// encoding: no surrogate by itself, nothing beyond U+10FFFF, no sequence longer than it has to be.
std::optional<std::wstring> wideFromUtf8(std::string_view bytes);
std::optional<std::wstring> wideFromUtf16(std::string_view bytes);  // little-endian

}  // namespace platform

#endif
