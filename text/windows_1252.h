// The code page Windows-1252, in which parameter values and settings are stored.
#ifndef PYORV3_TEXT_WINDOWS_1252_H
#define PYORV3_TEXT_WINDOWS_1252_H

#include <optional>

namespace text {

// Every byte has a character. The five bytes that the code page leaves undefined (0x81, 0x8D, 0x8F,
// 0x90, 0x9D) stand for the control characters with the same numbers, as on Windows.
char32_t characterOf(char byte);

// Returns nullopt if the code page does not have the character.
std::optional<char> byteOf(char32_t character);

}  // namespace text

#endif
