#include "embedded/orv/files/new_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <random>

#include "embedded/orv/content/failure.h"
#include "embedded/orv/files/file_descriptor.h"
#include "embedded/orv/files/storage.h"

namespace embedded {
namespace {

std::string randomName() {
    std::random_device random;
    return ".new-" + std::to_string(random()) + "-" + std::to_string(random());
}

}  // namespace

NewFile::NewFile(const std::string& name) {
    const std::filesystem::path path(name);
    const std::string fileName = path.filename().string();
    if (fileName.empty() || fileName == "." || fileName == "..") {
        throw Failure(codes::nameRefused);
    }
    folder_ = absolutePath(path.has_parent_path() ? path.parent_path().string() : ".");
    finalPath_ = folder_ + "/" + fileName;
    temporaryPath_ = folder_ + "/" + randomName();
    if (access(folder_.c_str(), W_OK) != 0) {
        throwSystemFailure(errno);
    }
    try {
        createStorage(temporaryPath_);
    } catch (...) {
        unlink(temporaryPath_.c_str());
        throw;
    }
}

NewFile::~NewFile() {
    unlink(temporaryPath_.c_str());
}

void NewFile::publish() {
    const char* const from = temporaryPath_.c_str();
    const char* const into = finalPath_.c_str();
    // Neither way of not replacing a file is offered by every file system.
    bool done = renameat2(AT_FDCWD, from, AT_FDCWD, into, RENAME_NOREPLACE) == 0;
    if (!done && (errno == EINVAL || errno == ENOSYS)) {
        done = link(from, into) == 0;
    }
    if (!done) {
        throwSystemFailure(errno);
    }
    if (fsync(FileDescriptor(folder_, O_RDONLY | O_DIRECTORY).number()) != 0) {
        const int error = errno;
        unlink(finalPath_.c_str());
        throwSystemFailure(error);
    }
}

}  // namespace embedded
