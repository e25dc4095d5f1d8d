#include <gmock/gmock.h>

#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "tests/support/process_fixture.h"

namespace {

using namespace std::string_literals;

constexpr const char* suiteKey = "SOFTWARE\\Tarsel\\Orsova Environment";
const std::string section = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarsel\\Orsova Environment]\r\n";
const std::string version5 = "Windows Registry Editor Version 5.00\r\n\r\n";
const std::string version4 = "REGEDIT4\r\n\r\n";
const std::string suite5 = version5 + section;

std::string utf16(const std::string& ansi) {
    std::string bytes = "\xFF\xFE";
    for (const char character : ansi) {
        bytes += character;
        bytes += '\0';
    }
    return bytes;
}

// Type and data of the values of a key by their names.
using Values = std::map<std::string, std::pair<DWORD, std::string>>;

Values text(const std::string& name, const std::string& value) {
    return {{name, {REG_SZ, value + '\0'}}};
}

class Registry : public ProcessFixture {
  protected:
    void use(const std::string& content) const {
        setenv("ORSOVA_REGISTRY", write("registry.reg", content).c_str(), 1);
    }

    // Returns the values of the suite's key, or the status if it cannot be opened.
    static LSTATUS read(Values& values) {
        values.clear();
        HKEY key = nullptr;
        const LSTATUS opening = RegOpenKeyExA(HKEY_LOCAL_MACHINE, suiteKey, 0, KEY_READ, &key);
        if (opening != ERROR_SUCCESS) {
            return opening;
        }
        std::string name(70000, '#');
        std::string data(70000, '#');
        for (DWORD index = 0;; ++index) {
            auto nameSize = static_cast<DWORD>(name.size());
            auto dataSize = static_cast<DWORD>(data.size());
            DWORD type = 0;
            const LSTATUS status = RegEnumValueA(key, index, name.data(), &nameSize, nullptr, &type,
                                                 reinterpret_cast<BYTE*>(data.data()), &dataSize);
            if (status == ERROR_NO_MORE_ITEMS) {
                break;
            }
            EXPECT_EQ(ERROR_SUCCESS, status);
            values[name.substr(0, nameSize)] = {type, data.substr(0, dataSize)};
        }
        return RegCloseKey(key);
    }
};

TEST_F(Registry, AllExportFormatsAreRead) {
    const std::string wow =
        "[HKEY_LOCAL_MACHINE\\SOFTWARE\\WOW6432Node\\Tarsel\\Orsova Environment]\n";
    const std::vector<std::pair<std::string, Values>> cases = {
        {utf16(suite5 + "\"A\"=\"M\xFCller\"\r\n"), text("A", "M\xFCller")},
        {suite5 + "\"A\"=\"M\xC3\xBCller \xCE\xB3\"\r\n", text("A", "M\xFCller ?")},
        {"\xEF\xBB\xBF" + suite5 + "\"\xC2\xB5\"=\"x\"", text("\xB5", "x")},
        {version4 + section + "\"A\"=\"\xC3\xBC\"\r\n", text("A", "\xC3\xBC")},
        {suite5 + "\"A\"=\"\xC1\x81\"", text("A", "\xC1\x81")},  // too long to be UTF-8
        {suite5 + R"("A\\\"b"="C:\\Suite\\bin\\" ; folder)", text("A\\\"b", R"(C:\Suite\bin\)")},
        {suite5 + R"("A"="C:\Suite")", text("A", "C:\\Suite")},
        {suite5 + R"(@="default")", text("", "default")},
        {suite5 + R"("A"=dword:0000001f)", {{"A", {REG_DWORD, "\x1F\0\0\0"s}}}},
        {suite5 + R"("A"=hex:00,FF,7)", {{"A", {REG_BINARY, "\0\xFF\7"s}}}},
        {suite5 + "\"A\"=hex(2):25,00,\\\r\n  b5,\\\r\n  00,00,00\n",
         {{"A", {REG_EXPAND_SZ, "%\xB5\0"s}}}},
        {version4 + section + R"("A"=hex(2):25,b5,00)", {{"A", {REG_EXPAND_SZ, "%\xB5\0"s}}}},
        {suite5 + R"("A"=hex(1):3d,d8,00,de,41,00)", {{"A", {REG_SZ, "?A"}}}},
        {suite5 + "\"A\"=\"1\"\n\"a\"=\"2\"\n" + "[hkey_local_machine\\x]\n\"A\"=\"3\"",
         text("a", "2")},
        {suite5 + "\"A\"=\"1\"\n" + section + "\"B\"=\"2\"\n\"A\"=-", text("B", "2")},
        {suite5 + "\"A\"=\"1\"\n[-HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarsel]\n\"B\"=\"2\"\n" + section,
         {}},
        {version5 + wow + "\"A\"=\"32\"\n" + section + "\"A\"=\"64\"\n\"B\"=\"64\"",
         text("A", "32")},
    };
    for (const auto& [content, expected] : cases) {
        use(content);
        Values values;
        EXPECT_EQ(ERROR_SUCCESS, read(values)) << content;
        EXPECT_EQ(expected, values) << content;
    }
}

TEST_F(Registry, MalformedLinesAreSkipped) {
    std::istringstream lines(
        R"(A="x"|"A|"A"|"A"=|"A"="x|"A"="x" y|; "A"="x"\|="x"|[|]|"A"=- x|"A"=dword:|)"
        R"("A"=dword:123456789|"A"=hex:0g|"A"=hex:1,,2|"A"=hex:123|"A"=hex(:1)|)"
        R"("A"=hex(100000000):1|"A"=hex(1):00,d8,41,00|"A"=hex(1):00,dc,00,dc|"A"=hex(1):41)");
    for (std::string line; std::getline(lines, line, '|');) {
        std::string content = suite5;
        content.append(line).append("\n").append(section).append(R"("B"="2")");
        use(content);
        Values values;
        EXPECT_EQ(ERROR_SUCCESS, read(values)) << line;
        EXPECT_EQ(text("B", "2"), values) << line;
    }
}

TEST_F(Registry, MissingKeyAndInvalidFileGiveDifferentErrors) {
    Values values;
    setenv("ORSOVA_REGISTRY", (folder() / "missing.reg").c_str(), 1);
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, read(values));
    setenv("ORSOVA_REGISTRY", folder().c_str(), 1);
    EXPECT_EQ(ERROR_BADDB, read(values));
    const std::vector<std::pair<std::string, LSTATUS>> cases = {
        {version5, ERROR_FILE_NOT_FOUND},
        {version5 + R"([HKEY_CURRENT_USER\SOFTWARE\Tarsel\Orsova Environment])",
         ERROR_FILE_NOT_FOUND},
        {"", ERROR_BADDB},
        {section + R"("A"="1")", ERROR_BADDB},
        {suite5 + std::string(16UL * 1024 * 1024, ';'), ERROR_BADDB},
    };
    for (const auto& [content, status] : cases) {
        use(content);
        EXPECT_EQ(status, read(values)) << content.substr(0, 100);
    }
}

TEST_F(Registry, DamagedFilesDoNotCrash) {
    const std::string sound =
        section + "\"A\"=\"C:\\\\x\"\r\n\"B\"=hex(2):25,00,\\\r\n  00,00\r\n" +
        "\"C\"=dword:1\r\n@=-\r\n[-HKEY_LOCAL_MACHINE\\Software]\r\n" + section;
    std::mt19937 random(20240124);  // the same damage in every run.  NOLINT(cert-msc*)
    for (int round = 0; round < 300; ++round) {
        std::string content = round % 2 == 0 ? utf16(version5 + sound) : version4 + sound;
        for (auto change = random() % 8; change > 0; --change) {
            const auto position = random() % content.size();
            content.replace(position, random() % 16, 1, static_cast<char>(random() % 256));
        }
        use(content);
        Values values;
        EXPECT_THAT(read(values), testing::AnyOf(ERROR_SUCCESS, ERROR_FILE_NOT_FOUND, ERROR_BADDB));
    }
}

}  // namespace
