#include "embedded/orv/files/file_descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>

#include "embedded/orv/content/failure.h"
#include "embedded/orv/files/storage.h"

namespace embedded {

void throwSystemFailure(int error) {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
            throw Failure(codes::fileNotFound);
        case EEXIST:
            throw Failure(codes::fileExists);
        case EACCES:
        case EPERM:
        case EROFS:
            throw Failure(codes::accessDenied);
        case ENAMETOOLONG:
        case ELOOP:
            throw Failure(codes::nameRefused);
        case EISDIR:
            throw Failure(codes::notADataSource);
        default:
            throw Failure(codes::storageFailed);
    }
}

FileIdentity identityOf(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        throwSystemFailure(errno);
    }
    if (!S_ISREG(status.st_mode)) {
        throw Failure(codes::notADataSource);
    }
    return {status.st_dev, status.st_ino};
}

std::string absolutePath(const std::string& name) {
    const auto release = [](char* text) { std::free(text); };
    const std::unique_ptr<char, decltype(release)> resolved(realpath(name.c_str(), nullptr));
    if (resolved == nullptr) {
        throwSystemFailure(errno);
    }
    return resolved.get();
}

FileDescriptor::FileDescriptor(const std::string& path, int flags)
    : number_(open(path.c_str(), flags | O_CLOEXEC)) {
    if (number_ < 0) {
        throwSystemFailure(errno);
    }
}

FileDescriptor::~FileDescriptor() {
    if (number_ >= 0) {
        close(number_);
    }
}

FileDescriptor::FileDescriptor(FileDescriptor&& other) noexcept
    : number_(std::exchange(other.number_, -1)) {}

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
}

bool looksLikeDataSource(const FileDescriptor& file) {
    constexpr std::string_view magic{"SQLite format 3\0", 16};
    constexpr std::size_t applicationIdOffset = 68;
    std::array<char, applicationIdOffset + 4> start{};
    if (pread(file.number(), start.data(), start.size(), 0) != static_cast<ssize_t>(start.size())) {
        return false;
    }
    std::uint32_t identifier = 0;
    for (std::size_t place = applicationIdOffset; place < start.size(); ++place) {
        identifier = identifier << 8U | static_cast<unsigned char>(start.at(place));
    }
    return std::string_view(start.data(), magic.size()) == magic && identifier == applicationId;
}

}  // namespace embedded
