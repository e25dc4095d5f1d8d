#include "platform/posix/code_page.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "platform/posix/encoding.h"

namespace {

using CodePageTable = std::array<wchar_t, 256>;

// The character of each byte, asked of iconv once, so that a conversion can neither fail nor need
// a lock.
const CodePageTable& table() {
    static const CodePageTable characters = [] {
        CodePageTable filled{};
        for (std::size_t byte = 0; byte < filled.size(); ++byte) {
            const auto ansi = static_cast<char>(byte);
            const auto wide = platform::wideFromBytes("CP1252", {&ansi, 1});
            filled[byte] = wide ? wide->front() : static_cast<wchar_t>(byte);
        }
        return filled;
    }();
    return characters;
}

}  // namespace

wchar_t platform::wideCharacter(char ansi) {
    return table()[static_cast<unsigned char>(ansi)];
}

std::optional<char> platform::ansiCharacter(wchar_t wide) {
    const CodePageTable& characters = table();
    // Most characters have the number of their byte.
    if (wide >= 0 && static_cast<std::size_t>(wide) < characters.size() &&
        characters[static_cast<std::size_t>(wide)] == wide) {
        return static_cast<char>(wide);
    }
    const auto* const found = std::find(characters.begin(), characters.end(), wide);
    if (found == characters.end()) {
        return std::nullopt;
    }
    return static_cast<char>(std::distance(characters.begin(), found));
}

std::string platform::ansiText(std::wstring_view wide) {
    std::string ansi(wide.size(), defaultCharacter);
    std::transform(wide.begin(), wide.end(), ansi.begin(), [](wchar_t character) {
        return ansiCharacter(character).value_or(defaultCharacter);
    });
    return ansi;
}
