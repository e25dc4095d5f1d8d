#include <gtest/gtest.h>
#include <iconv.h>

#include <string>
#include <vector>

#include "platform/platform.h"

namespace {

// The system's own idea of a byte of the code page; the bytes it leaves undefined are themselves.
wchar_t expectedCharacter(int byte) {
    iconv_t descriptor = iconv_open("WCHAR_T", "CP1252");
    char source = static_cast<char>(byte);
    char* input = &source;
    wchar_t wide = 0;
    auto* output = reinterpret_cast<char*>(&wide);
    std::size_t inputSize = 1;
    std::size_t outputSize = sizeof(wide);
    const bool defined =
        iconv(descriptor, &input, &inputSize, &output, &outputSize) != static_cast<std::size_t>(-1);
    iconv_close(descriptor);
    return defined ? wide : static_cast<wchar_t>(byte);
}

TEST(CodePage, EveryByteSurvivesBothConversions) {
    for (int byte = 0; byte < 256; ++byte) {
        const char source = static_cast<char>(byte);
        wchar_t wide = 0;
        char back = 0;
        ASSERT_EQ(MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, &source, 1, &wide, 1), 1);
        EXPECT_EQ(wide, expectedCharacter(byte)) << byte;
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
        {CP_ACP, 0, "abc", -2, 4, 0, ERROR_INVALID_PARAMETER},
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
