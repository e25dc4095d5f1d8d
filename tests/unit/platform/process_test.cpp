#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/platform.h"
#include "tests/unit/platform/process_fixture.h"

namespace {

class Process : public ProcessFixture {};

TEST_F(Process, VariablesAreReadAsWindowsDoes) {
    setenv("PYORV3_EMPTY", "", 1);
    setenv("PYORV3_FULL", "value", 1);
    struct Case {
        const char* name;
        DWORD size;
        DWORD result;
        DWORD error;
        std::string buffer;
    };
    const std::vector<Case> cases = {
        {"PYORV3_MISSING", 8, 0, ERROR_ENVVAR_NOT_FOUND, "########"},
        {"PYORV3_EMPTY", 8, 0, ERROR_SUCCESS, std::string("\0#######", 8)},
        {"PYORV3_EMPTY", 0, 1, ERROR_SUCCESS, "########"},
        {"PYORV3_FULL", 6, 5, ERROR_SUCCESS, std::string("value\0##", 8)},
        {"PYORV3_FULL", 5, 6, ERROR_SUCCESS, "########"},
    };
    for (const auto& test : cases) {
        std::string buffer(8, '#');
        SetLastError(1);
        EXPECT_EQ(GetEnvironmentVariableA(test.name, buffer.data(), test.size), test.result);
        EXPECT_EQ(GetLastError(), test.error) << test.name << test.size;
        EXPECT_EQ(buffer, test.buffer) << test.name << test.size;
    }
}

TEST_F(Process, VariablesAreSetAndRemoved) {
    EXPECT_TRUE(SetEnvironmentVariableA("PYORV3_A", ""));
    EXPECT_EQ(_putenv("PYORV3_A="), 0);
    EXPECT_STREQ(getenv("PYORV3_A"), "");
    EXPECT_EQ(_putenv("PYORV3_A=b=c"), 0);
    EXPECT_STREQ(getenv("PYORV3_A"), "b=c");
    EXPECT_TRUE(SetEnvironmentVariableA("PYORV3_A", nullptr));
    EXPECT_EQ(getenv("PYORV3_A"), nullptr);
    for (const char* name : {"", "A=B"}) {
        EXPECT_FALSE(SetEnvironmentVariableA(name, "value"));
    }
    for (const char* assignment : {"", "=value", "PYORV3_A"}) {
        EXPECT_EQ(_putenv(assignment), -1);
    }
}

TEST_F(Process, LastErrorBelongsToItsThread) {
    SetLastError(5);
    DWORD other = 1;
    std::thread([&other] { other = GetLastError(); }).join();
    EXPECT_EQ(other, DWORD{ERROR_SUCCESS});
    EXPECT_EQ(GetLastError(), DWORD{5});
}

TEST_F(Process, PathsBecomeAbsoluteByTheirText) {
    std::filesystem::create_directory_symlink("/", folder() / "link");
    std::filesystem::current_path(folder());
    const std::string here = std::filesystem::current_path();
    const std::vector<std::pair<const char*, std::string>> cases = {
        {"a.qar", here + "/a.qar"},
        {"link/../x", here + "/x"},
        {"", here},
        {".", here},
        {nullptr, here},
        {"/a/./b/", "/a/b/"},
        {"/../..", "/"},
        {"/a//b", "/a/b"},
    };
    for (const auto& [path, expected] : cases) {
        const std::unique_ptr<char, void (*)(void*)> result(_fullpath(nullptr, path, 0), std::free);
        EXPECT_EQ(std::string(result.get()), expected);
    }
}

}  // namespace
