#include "platform/posix/text.h"

#include <algorithm>
#include <array>
#include <bit>
#include <climits>

namespace {

// What stands for a character that the code page does not have.
constexpr char defaultCharacter = '?';

// The characters of the bytes 0x80 to 0x9F; all other bytes have the character of their number.
constexpr unsigned firstSpecial = 0x80;
constexpr std::array<wchar_t, 32> specialCharacters{
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

wchar_t wideCharacter(char ansi) {
    const unsigned byte = static_cast<unsigned char>(ansi);
    const bool isSpecial = byte - firstSpecial < specialCharacters.size();
    return isSpecial ? specialCharacters[byte - firstSpecial] : static_cast<wchar_t>(byte);
}

// None where the code page does not have the character.
std::optional<char> ansiCharacter(wchar_t wide) {
    if (wide >= 0 && wide <= 0xFF && wideCharacter(static_cast<char>(wide)) == wide) {
        return static_cast<char>(wide);
    }
    const auto* const found = std::ranges::find(specialCharacters, wide);
    if (found == specialCharacters.end()) {
        return std::nullopt;
    }
    return static_cast<char>(firstSpecial + (found - specialCharacters.begin()));
}

constexpr bool isSurrogate(char32_t unit) {
    return unit >= 0xD800 && unit <= 0xDFFF;
}

// Takes the next code point of UTF-8 text off its front; none where it does not begin with one.
std::optional<char32_t> takeUtf8(std::string_view& bytes) {
    const auto byte = [&](std::size_t index) { return static_cast<unsigned char>(bytes[index]); };
    const auto length = static_cast<std::size_t>(std::countl_one(byte(0)));
    if (length == 0) {
        const char32_t point = byte(0);
        bytes.remove_prefix(1);
        return point;
    }
    // By length: the least code point, smaller ones having a shorter sequence.
    constexpr std::array<char32_t, 5> least{0, 0, 0x80, 0x800, 0x10000};
    if (length == 1 || length >= least.size() || length > bytes.size()) {
        return std::nullopt;
    }
    char32_t point = byte(0) & (0x7FU >> length);
    for (std::size_t index = 1; index < length; ++index) {
        if ((byte(index) & 0xC0) != 0x80) {
            return std::nullopt;
        }
        point = point << 6 | (byte(index) & 0x3F);
    }
    if (point < least[length] || point > 0x10FFFF || isSurrogate(point)) {
        return std::nullopt;
    }
    bytes.remove_prefix(length);
    return point;
}

// The same of UTF-16.
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

std::optional<std::wstring> wideFrom(std::string_view bytes,
                                     std::optional<char32_t> (*take)(std::string_view&)) {
    std::wstring wide;
    while (!bytes.empty()) {
        const auto point = take(bytes);
        if (!point) {
            return std::nullopt;
        }
        wide.push_back(static_cast<wchar_t>(*point));
    }
    return wide;
}

int fail(DWORD error) {
    SetLastError(error);
    return 0;
}

// Converts with a function from character to character; one becomes one in both directions.
template <typename Source, typename Target, typename Convert>
int convertText(UINT codePage, const Source* text, int length, Target* buffer, int size,
                Convert convert) {
    if (codePage != CP_ACP || text == nullptr || length == 0 || length < -1 || size < 0 ||
        (size > 0 && buffer == nullptr)) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    const auto count = length > 0 ? static_cast<std::size_t>(length)
                                  : std::basic_string_view<Source>(text).size() + 1;
    if (count > INT_MAX) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    const auto needed = static_cast<int>(count);
    if (size == 0) {
        return needed;
    }
    if (size < needed) {
        return fail(ERROR_INSUFFICIENT_BUFFER);
    }
    std::transform(text, text + count, buffer, convert);
    return needed;
}

}  // namespace

std::string platform::ansiText(std::wstring_view wide) {
    std::string ansi(wide.size(), defaultCharacter);
    std::ranges::transform(wide, ansi.begin(), [](wchar_t character) {
        return ansiCharacter(character).value_or(defaultCharacter);
    });
    return ansi;
}

std::optional<std::wstring> platform::wideFromUtf8(std::string_view bytes) {
    return wideFrom(bytes, takeUtf8);
}

std::optional<std::wstring> platform::wideFromUtf16(std::string_view bytes) {
    return wideFrom(bytes, takeUtf16);
}

int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int length, LPWSTR buffer,
                        int size) {
    if ((flags & ~static_cast<DWORD>(MB_PRECOMPOSED)) != 0) {
        return fail(ERROR_INVALID_FLAGS);
    }
    return convertText(codePage, text, length, buffer, size, wideCharacter);
}

int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR text, int length, LPSTR buffer,
                        int size, LPCSTR replacement, LPBOOL replaced) {
    if (flags != 0) {
        return fail(ERROR_INVALID_FLAGS);
    }
    const char substitute = replacement != nullptr ? *replacement : defaultCharacter;
    BOOL anyReplaced = FALSE;
    const int result = convertText(codePage, text, length, buffer, size, [&](wchar_t wide) {
        const auto ansi = ansiCharacter(wide);
        anyReplaced = ansi && anyReplaced == FALSE ? FALSE : TRUE;
        return ansi.value_or(substitute);
    });
    if (replaced != nullptr) {
        *replaced = anyReplaced;
    }
    return result;
}
