#include <string>
#include <tuple>
#include <vector>

#include "platform/platform.h"
#include "tests/support/process_fixture.h"

namespace {

const std::string first = PROBE_FOLDER "/1";
const std::string second = PROBE_FOLDER "/2";

// The answer of the library that the name finds: -1 from one without the entry point, 0 from none.
int answerOf(const std::string& name) {
    SetLastError(ERROR_SUCCESS);
    HMODULE library = LoadLibraryA(name.c_str());
    if (library == nullptr) {
        EXPECT_EQ(GetLastError(), DWORD{ERROR_MOD_NOT_FOUND});
        return 0;
    }
    const auto entry = reinterpret_cast<void (*)()>(GetProcAddress(library, "probeAnswer"));
    const int answer = entry != nullptr ? reinterpret_cast<int (*)()>(entry)() : -1;
    EXPECT_TRUE(FreeLibrary(library));
    return answer;
}

class Libraries : public ProcessFixture {};

TEST_F(Libraries, AreFoundInFoldersNamedInFullBesideTheProgramAndInTheSystem) {
    write("platform_probe.so", "no library");
    const std::string text = folder();
    std::filesystem::create_directory(folder() / "current");
    std::filesystem::copy(first + "/platform_probe.so", folder() / "current");
    std::filesystem::current_path(folder() / "current");
    const std::vector<std::tuple<std::string, std::string, int>> cases = {
        {first, "platform_probe.dll", 1},
        {first, "platform_probe.DLL", 1},
        {first + ":" + second, "platform_probe.dll", 1},
        {"/nowhere;" + second, "platform_probe.dll", 2},
        {text + ":" + second, "platform_probe.dll", 2},
        {text, "platform_probe.dll", 0},
        {"", "platform_probe.dll", 0},
        {"::.:" + second, "platform_probe.dll", 2},
        {second, "./platform_probe.dll", 1},
        {"", second + "/platform_probe.dll", 2},
        {first, "platform_probe", 0},
        {first, "", 0},
        {"", "libplatform_needed.dll", -1},  // beside the program
        {"", "libc.so.6", -1},               // in the system
        {first, ".dll", 0},
        {first, std::string(100000, 'a') + ".dll", 0},
    };
    for (const auto& [searchPath, name, answer] : cases) {
        setenv("LD_LIBRARY_PATH", searchPath.c_str(), 1);
        EXPECT_EQ(answerOf(name), answer) << searchPath << " " << name.substr(0, 200);
    }
}

TEST_F(Libraries, GiveOnlyEntryPointsOfTheirOwn) {
    HMODULE library = LoadLibraryA((first + "/platform_probe.dll").c_str());
    ASSERT_NE(library, nullptr);
    EXPECT_NE(GetProcAddress(library, "probeAnswer"), nullptr);
    for (const char* name : {"neededAnswer", "malloc", "missing", ""}) {
        SetLastError(ERROR_SUCCESS);
        EXPECT_EQ(GetProcAddress(library, name), nullptr) << name;
        EXPECT_EQ(GetLastError(), DWORD{ERROR_PROC_NOT_FOUND}) << name;
    }
    EXPECT_TRUE(FreeLibrary(library));
    EXPECT_FALSE(FreeLibrary(nullptr));
}

}  // namespace
