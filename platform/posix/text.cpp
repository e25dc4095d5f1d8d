#include "platform/posix/text.h"

#include <algorithm>
#include <climits>
#include <string_view>

#include "platform/posix/code_page.h"
#include "platform/posix/errors.h"

namespace {

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

int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int length, LPWSTR buffer,
                        int size) {
    if ((flags & ~static_cast<DWORD>(MB_PRECOMPOSED)) != 0) {
        return fail(ERROR_INVALID_FLAGS);
    }
    return convertText(codePage, text, length, buffer, size, platform::wideCharacter);
}

int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR text, int length, LPSTR buffer,
                        int size, LPCSTR replacement, LPBOOL replaced) {
    if (flags != 0) {
        return fail(ERROR_INVALID_FLAGS);
    }
    const char substitute = replacement != nullptr ? *replacement : platform::defaultCharacter;
    BOOL anyReplaced = FALSE;
    const int result = convertText(codePage, text, length, buffer, size, [&](wchar_t wide) {
        const auto ansi = platform::ansiCharacter(wide);
        anyReplaced = ansi && anyReplaced == FALSE ? FALSE : TRUE;
        return ansi.value_or(substitute);
    });
    if (replaced != nullptr) {
        *replaced = anyReplaced;
    }
    return result;
}
