#include <gtest/gtest.h>

#include <string>
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
    struct Case {
        const wchar_t* wide;
        const char* replacement;
        std::string ansi;
        BOOL replaced;
    };
    const std::vector<Case> cases = {
        {L"M\u00fcller \u00b5Sv \u20ac", nullptr, "M\xFCller \xB5Sv \x80", FALSE},
        {L"\u03b3 \u00b5", nullptr, "? \xB5", TRUE},
        {L"\U0001F600", nullptr, "?", TRUE},
        {L"\u0080a", "_", "_a", TRUE},
        {L"", nullptr, "", FALSE},
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

TEST(CodePage, SizesAndArgumentsAreChecked) {
    struct Case {
        UINT codePage;
        DWORD flags;
        const char* text;
        int length;
        int size;
        int result;
        DWORD error;
    };
    const std::vector<Case> cases = {
        {CP_ACP, MB_PRECOMPOSED, "abc", -1, 0, 4, ERROR_SUCCESS},
        {CP_ACP, 0, "abc", 2, 0, 2, ERROR_SUCCESS},
        {CP_ACP, 0, "abc", -1, 4, 4, ERROR_SUCCESS},
        {CP_ACP, 0, "abc", -1, 3, 0, ERROR_INSUFFICIENT_BUFFER},
        {CP_ACP, 0, "abc", 0, 4, 0, ERROR_INVALID_PARAMETER},
        {CP_ACP, 0, "abc", -1, -1, 0, ERROR_INVALID_PARAMETER},
        {CP_ACP, 0, nullptr, 3, 4, 0, ERROR_INVALID_PARAMETER},
        {65001, 0, "abc", -1, 4, 0, ERROR_INVALID_PARAMETER},
        {CP_ACP, 2, "abc", -1, 4, 0, ERROR_INVALID_FLAGS},
    };
    for (const auto& test : cases) {
        wchar_t buffer[4] = {L'#', L'#', L'#', L'#'};
        SetLastError(ERROR_SUCCESS);
        EXPECT_EQ(MultiByteToWideChar(test.codePage, test.flags, test.text, test.length, buffer,
                                      test.size),
                  test.result);
        EXPECT_EQ(GetLastError(), test.error);
        EXPECT_EQ(buffer[0], test.size > 0 && test.result > 0 ? L'a' : L'#');
    }
}

}  // namespace
