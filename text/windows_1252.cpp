#include "text/windows_1252.h"

#include <algorithm>
#include <array>

namespace text {
namespace {

// The characters of the bytes 0x80 to 0x9F; each other byte has the character with its number.
constexpr unsigned firstSpecial = 0x80;
constexpr std::array<char32_t, 32> specialCharacters{
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

}  // namespace

char32_t characterOf(char byte) {
    const unsigned number = static_cast<unsigned char>(byte);
    const bool isSpecial = number - firstSpecial < specialCharacters.size();
    return isSpecial ? specialCharacters[number - firstSpecial] : static_cast<char32_t>(number);
}

std::optional<char> byteOf(char32_t character) {
    if (character <= 0xFF && characterOf(static_cast<char>(character)) == character) {
        return static_cast<char>(character);
    }
    const auto* const special = std::ranges::find(specialCharacters, character);
    if (special == specialCharacters.end()) {
        return std::nullopt;
    }
    return static_cast<char>(firstSpecial + (special - specialCharacters.begin()));
}

}  // namespace text
