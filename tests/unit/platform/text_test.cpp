#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "platform/platform.h"

namespace {

// Of the bytes from 0x80 to 0x9F; the undefined ones are themselves.
constexpr const wchar_t* specialCharacters =
    L"\u20AC\u0081\u201A\u0192\u201E\u2026\u2020\u2021\u02C6\u2030\u0160\u2039\u0152\u008D\u017D"
    L"\u008F"
    L"\u0090\u2018\u2019\u201C\u201D\u2022\u2013\u2014\u02DC\u2122\u0161\u203A\u0153\u009D\u017E"
    L"\u0178";

TEST(CodePage, EveryByteSurvivesBothConversions) {
    for (int byte = 0; byte < 256; ++byte) {
        const bool isSpecial = byte >= 0x80 && byte < 0xA0;
        const char source = static_cast<char>(byte);
        wchar_t wide = 0;
        char back = 0;
        ASSERT_EQ(MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, &source, 1, &wide, 1), 1);
        EXPECT_EQ(wide, isSpecial ? specialCharacters[byte - 0x80] : byte);
        ASSERT_EQ(WideCharToMultiByte(CP_ACP, 0, &wide, 1, &back, 1, nullptr, nullptr), 1);
        EXPECT_EQ(back, source) << byte;
    }
}

TEST(CodePage, CharactersItDoesNotHaveAreReplaced) {
    const std::vector<std::tuple<const wchar_t*, const char*, std::string, BOOL>> cases = {
        {L"M\u00fcller \u00b5Sv \u20ac", nullptr, "M\xFCller \xB5Sv \x80", FALSE},
        {L"\u03b3 \u00b5", nullptr, "? \xB5", TRUE},
        {L"\U0001F600", nullptr, "?", TRUE},
        {L"\u0080a", "_", "_a", TRUE},
    };
    for (const auto& [wide, replacement, ansi, replaced] : cases) {
        std::string buffer(32, '#');
        BOOL anyReplaced = -1;
        const int count =
            WideCharToMultiByte(CP_ACP, 0, wide, -1, buffer.data(), 32, replacement, &anyReplaced);
        EXPECT_EQ(buffer.substr(0, static_cast<std::size_t>(count)), ansi + '\0');
        EXPECT_EQ(buffer[static_cast<std::size_t>(count)], '#');
        EXPECT_EQ(anyReplaced, replaced);
    }
}

}  // namespace
