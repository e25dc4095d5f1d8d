#include "platform/posix/paths.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

namespace {

// Empty where the current folder cannot be found; error then holds the reason.
std::string absolutePath(const std::string& path, std::error_code& error) {
    const std::filesystem::path absolute = path.starts_with('/')
                                               ? std::filesystem::path(path)
                                               : std::filesystem::current_path(error) / path;
    if (error) {
        return {};
    }
    std::string normal = absolute.lexically_normal().string();
    // What ends in "." or ".." becomes a folder with a slash, which Windows does not write.
    if (normal.size() > 1 && normal.ends_with('/') && !path.ends_with('/')) {
        normal.pop_back();
    }
    return normal;
}

}  // namespace

// NOLINTNEXTLINE(*-reserved-identifier,cert-dcl*): Windows' name
char* _fullpath(char* buffer, const char* path, std::size_t size) {
    std::error_code error;
    const std::string absolute = absolutePath(path != nullptr ? path : "", error);
    if (error) {
        errno = error.value();
        return nullptr;
    }
    if (buffer == nullptr) {
        return strdup(absolute.c_str());
    }
    if (absolute.size() >= size) {
        errno = ERANGE;
        return nullptr;
    }
    std::memcpy(buffer, absolute.c_str(), absolute.size() + 1);
    return buffer;
}
