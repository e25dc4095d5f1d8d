// The Unicode encodings UTF-8 and UTF-16.
#ifndef PYORV3_TEXT_UNICODE_H
#define PYORV3_TEXT_UNICODE_H

#include <optional>
#include <string>
#include <string_view>

namespace text {

// Each of these removes the first code point from the bytes (not empty) and returns it, or returns
// nullopt if they do not begin with a valid one: surrogates by themselves, numbers above U+10FFFF
// and sequences that are longer than necessary are invalid. UTF-16 is little-endian.
std::optional<char32_t> takeUtf8(std::string_view& bytes);
std::optional<char32_t> takeUtf16(std::string_view& bytes);

// True if the bytes are valid UTF-8.
bool isUtf8(std::string_view bytes);

// character: a valid code point.
void appendUtf8(std::string& bytes, char32_t character);

}  // namespace text

#endif
