#include <dlfcn.h>
#include <sys/stat.h>

#include <string>
#include <tuple>
#include <utility>
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
        EXPECT_EQ(DWORD{ERROR_MOD_NOT_FOUND}, GetLastError());
        return 0;
    }
    const auto entry = reinterpret_cast<void (*)()>(GetProcAddress(library, "probeAnswer"));
    const int answer = entry != nullptr ? reinterpret_cast<int (*)()>(entry)() : -1;
    EXPECT_TRUE(FreeLibrary(library));
    return answer;
}

class Libraries : public ProcessFixture {};

TEST_F(Libraries, SearchesAbsoluteDirectoriesThenModuleThenSystem) {
    write("platform_probe.so", "no library");
    ASSERT_EQ(0, mkfifo((folder() / "pipe.so").c_str(), 0600));
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
        {"", text + "/pipe.dll", 0},
        {"", "libplatform_needed.dll", -1},  // beside the program
        {"", "platform_packaged.dll", 3},    // in the folder for a package's libraries there
        {"", "libc.so.6", -1},               // in the system
        {first, ".dll", 0},
        {first, std::string(100000, 'a') + ".dll", 0},
    };
    for (const auto& [searchPath, name, answer] : cases) {
        setenv("LD_LIBRARY_PATH", searchPath.c_str(), 1);
        EXPECT_EQ(answer, answerOf(name)) << searchPath << " " << name.substr(0, 200);
    }
}

bool isMapped(const std::string& path) {
    void* library = dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    return library != nullptr && dlclose(library) == 0;
}

TEST_F(Libraries, LastReleaseUnloads) {
    const std::string path = first + "/platform_probe.so";
    setenv("LD_LIBRARY_PATH", first.c_str(), 1);
    HMODULE byName = LoadLibraryA("platform_probe.dll");
    HMODULE again = LoadLibraryA("platform_probe.dll");
    HMODULE byPath = LoadLibraryA(path.c_str());
    EXPECT_TRUE(FreeLibrary(byName));
    EXPECT_TRUE(FreeLibrary(again));
    EXPECT_TRUE(isMapped(path));
    EXPECT_TRUE(FreeLibrary(byPath));
    EXPECT_FALSE(isMapped(path));
}

TEST_F(Libraries, ChangedSearchPathFindsOtherLibrary) {
    void* held = dlopen((first + "/platform_probe.so").c_str(), RTLD_NOW | RTLD_LOCAL);
    const std::string both = std::string(second).append(":").append(first);
    for (const auto& [searchPath, answer] :
         {std::pair(first, 1), {first, 1}, {second, 2}, {first, 1}, {both, 2}}) {
        setenv("LD_LIBRARY_PATH", searchPath.c_str(), 1);
        EXPECT_EQ(answer, answerOf("platform_probe.dll")) << searchPath;
    }
    dlclose(held);
    EXPECT_FALSE(isMapped(first + "/platform_probe.so"));
    EXPECT_FALSE(isMapped(second + "/platform_probe.so"));
}

TEST_F(Libraries, EntryPointOfDependencyIsMissing) {
    HMODULE library = LoadLibraryA((first + "/platform_probe.dll").c_str());
    ASSERT_NE(nullptr, library);
    EXPECT_NE(nullptr, GetProcAddress(library, "probeAnswer"));
    for (const char* name : {"neededAnswer", "malloc", "missing", ""}) {
        SetLastError(ERROR_SUCCESS);
        EXPECT_EQ(nullptr, GetProcAddress(library, name)) << name;
        EXPECT_EQ(DWORD{ERROR_PROC_NOT_FOUND}, GetLastError()) << name;
    }
    EXPECT_TRUE(FreeLibrary(library));
    EXPECT_FALSE(FreeLibrary(nullptr));
}

}  // namespace
