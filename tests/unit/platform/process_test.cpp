#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/platform.h"
#include "tests/support/process_fixture.h"

namespace {

class Process : public ProcessFixture {};

TEST_F(Process, EachThreadHasItsLastError) {
    SetLastError(5);
    DWORD other = 1;
    std::thread([&other] { other = GetLastError(); }).join();
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, other);
    EXPECT_EQ(DWORD{5}, GetLastError());
}

TEST_F(Process, FullPathIgnoresFileSystem) {
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
        EXPECT_EQ(expected, std::string(result.get()));
    }
}

}  // namespace
