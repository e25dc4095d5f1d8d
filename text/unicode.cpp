#include "text/unicode.h"

#include <array>
#include <bit>

namespace text {
namespace {

constexpr char32_t maxPoint = 0x10FFFF;

// By length of the UTF-8 sequence: the smallest code point; smaller ones have a shorter sequence.
constexpr std::array<char32_t, 5> minPoint{0, 0, 0x80, 0x800, 0x10000};

constexpr bool isSurrogate(char32_t unit) {
    return unit >= 0xD800 && unit <= 0xDFFF;
}

}  // namespace

std::optional<char32_t> takeUtf8(std::string_view& bytes) {
    const auto byte = [&](std::size_t index) { return static_cast<unsigned char>(bytes[index]); };
    const auto length = static_cast<std::size_t>(std::countl_one(byte(0)));
    if (length == 0) {
        const char32_t point = byte(0);
        bytes.remove_prefix(1);
        return point;
    }
    if (length == 1 || length >= minPoint.size() || length > bytes.size()) {
        return std::nullopt;
    }
    char32_t point = byte(0) & (0x7FU >> length);
    for (std::size_t index = 1; index < length; ++index) {
        if ((byte(index) & 0xC0) != 0x80) {
            return std::nullopt;
        }
        point = point << 6 | (byte(index) & 0x3F);
    }
    if (point < minPoint[length] || point > maxPoint || isSurrogate(point)) {
        return std::nullopt;
    }
    bytes.remove_prefix(length);
    return point;
}

std::optional<char32_t> takeUtf16(std::string_view& bytes) {
    const auto takeUnit = [&]() -> std::optional<char32_t> {
        if (bytes.size() < 2) {
            return std::nullopt;
        }
        const auto low = static_cast<unsigned char>(bytes[0]);
        const auto high = static_cast<unsigned char>(bytes[1]);
        bytes.remove_prefix(2);
        return char32_t{low} | char32_t{high} << 8;
    };
    const auto first = takeUnit();
    if (!first || !isSurrogate(*first)) {
        return first;
    }
    const auto second = takeUnit();
    if (*first >= 0xDC00 || !second || *second < 0xDC00 || *second > 0xDFFF) {
        return std::nullopt;
    }
    return 0x10000 + ((*first - 0xD800) << 10) + (*second - 0xDC00);
}

bool isUtf8(std::string_view bytes) {
    while (!bytes.empty()) {
        if (!takeUtf8(bytes)) {
            return false;
        }
    }
    return true;
}

void appendUtf8(std::string& bytes, char32_t character) {
    std::size_t length = 1;
    while (length + 1 < minPoint.size() && character >= minPoint[length + 1]) {
        ++length;
    }
    const auto firstMark = length == 1 ? 0U : 0xF0U << (4 - length) & 0xFFU;
    for (std::size_t index = 0; index < length; ++index) {
        const char32_t bits = character >> 6 * (length - 1 - index);
        bytes += static_cast<char>(index == 0 ? firstMark | bits : 0x80U | (bits & 0x3FU));
    }
}

}  // namespace text
