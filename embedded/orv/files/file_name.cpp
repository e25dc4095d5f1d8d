#include "embedded/orv/files/file_name.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>

#include "embedded/orv/content/failure.h"
#include "embedded/orv/files/file_descriptor.h"
#include "text/unicode.h"
#include "text/windows_1252.h"

namespace embedded {

std::string nameInUtf8(std::string_view name) {
    if (text::isUtf8(name)) {
        return std::string(name);
    }
    std::string converted;
    for (const char byte : name) {
        text::appendUtf8(converted, text::characterOf(byte));
    }
    return converted;
}

void requireLocalPath(std::string_view path) {
    const auto isLetter = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); };
    const auto isSlash = [](char c) { return c == '\\' || c == '/'; };
    if (path.starts_with("\\\\") ||
        (path.size() > 2 && isLetter(path[0]) && path[1] == ':' && isSlash(path[2]))) {
        throw Failure(codes::windowsPath);
    }
}

std::string absolutePath(const std::string& name) {
    const auto release = [](char* text) { std::free(text); };
    const std::unique_ptr<char, decltype(release)> resolved(realpath(name.c_str(), nullptr));
    if (resolved == nullptr) {
        throwSystemFailure(errno);
    }
    return resolved.get();
}

std::string folderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return path.substr(0, slash == 0 ? 1 : slash);
}

std::string lastNameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

void requireSavable(const std::string& path) {
    constexpr std::size_t journalSuffix = sizeof "-journal" - 1;
    const sqlite3_vfs* const files = sqlite3_vfs_find(nullptr);
    if (files == nullptr) {
        throw std::bad_alloc();
    }
    const std::string folder = folderOf(path);
    const long limit = pathconf(folder.c_str(), _PC_NAME_MAX);
    const std::size_t maxNameLength = limit > 0 ? static_cast<std::size_t>(limit) : NAME_MAX;
    if (lastNameOf(path).size() + journalSuffix > maxNameLength ||
        path.size() + journalSuffix > static_cast<std::size_t>(files->mxPathname)) {
        throw Failure(codes::nameRefused);
    }
    const FileDescriptor opened(folder, O_RDONLY | O_DIRECTORY);
    if (faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) != 0) {
        throwSystemFailure(errno);
    }
}

}  // namespace embedded
