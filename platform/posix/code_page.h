// The ANSI code page of this system, Windows-1252.
//
// The five bytes that the code page leaves undefined (0x81, 0x8D, 0x8F, 0x90, 0x9D) stand for the
// control characters of the same numbers, as on Windows, so that every byte has a character.
#ifndef PYORV3_PLATFORM_POSIX_CODE_PAGE_H
#define PYORV3_PLATFORM_POSIX_CODE_PAGE_H

#include <optional>
#include <string>
#include <string_view>

namespace platform {

// What stands for a character that the code page does not have.
constexpr char defaultCharacter = '?';

wchar_t wideCharacter(char ansi);

// None where the code page does not have the character.
std::optional<char> ansiCharacter(wchar_t wide);

// Every character of the text in the code page, defaultCharacter for those it does not have.
std::string ansiText(std::wstring_view wide);

}  // namespace platform

#endif
