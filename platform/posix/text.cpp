#include "platform/posix/text.h"

#include <algorithm>
#include <climits>

#include "text/unicode.h"
#include "text/windows_1252.h"

namespace {

// Replacement for a character outside the code page.
constexpr char defaultCharacter = '?';

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

int failureOf(DWORD error) {
    SetLastError(error);
    return 0;
}

// Converts each character with a function.
template <typename Source, typename Target, typename Convert>
int convertText(UINT codePage, const Source* text, int length, Target* buffer, int size,
                Convert convert) {
    if (codePage != CP_ACP || text == nullptr || length == 0 || length < -1 || size < 0 ||
        (size > 0 && buffer == nullptr)) {
        return failureOf(ERROR_INVALID_PARAMETER);
    }
    const auto count = length > 0 ? static_cast<std::size_t>(length)
                                  : std::basic_string_view<Source>(text).size() + 1;
    if (count > INT_MAX) {
        return failureOf(ERROR_INVALID_PARAMETER);
    }
    const auto needed = static_cast<int>(count);
    if (size == 0) {
        return needed;
    }
    if (size < needed) {
        return failureOf(ERROR_INSUFFICIENT_BUFFER);
    }
    std::transform(text, text + count, buffer, convert);
    return needed;
}

}  // namespace

std::string platform::ansiText(std::wstring_view wide) {
    std::string ansi(wide.size(), defaultCharacter);
    std::ranges::transform(wide, ansi.begin(), [](wchar_t character) {
        return text::byteOf(static_cast<char32_t>(character)).value_or(defaultCharacter);
    });
    return ansi;
}

std::optional<std::wstring> platform::wideFromUtf8(std::string_view bytes) {
    return wideFrom(bytes, text::takeUtf8);
}

std::optional<std::wstring> platform::wideFromUtf16(std::string_view bytes) {
    return wideFrom(bytes, text::takeUtf16);
}

int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int length, LPWSTR buffer,
                        int size) {
    if ((flags & ~static_cast<DWORD>(MB_PRECOMPOSED)) != 0) {
        return failureOf(ERROR_INVALID_FLAGS);
    }
    return convertText(codePage, text, length, buffer, size, text::characterOf);
}

int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR text, int length, LPSTR buffer,
                        int size, LPCSTR replacement, LPBOOL replaced) {
    if (flags != 0) {
        return failureOf(ERROR_INVALID_FLAGS);
    }
    const char substitute = replacement != nullptr ? *replacement : defaultCharacter;
    BOOL anyReplaced = FALSE;
    const int result = convertText(codePage, text, length, buffer, size, [&](wchar_t wide) {
        const auto ansi = text::byteOf(static_cast<char32_t>(wide));
        anyReplaced = ansi && anyReplaced == FALSE ? FALSE : TRUE;
        return ansi.value_or(substitute);
    });
    if (replaced != nullptr) {
        *replaced = anyReplaced;
    }
    return result;
}
