#include "embedded/orv/files/new_file.h"

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <span>
#include <vector>

#include "embedded/orv/content/failure.h"
#include "embedded/orv/files/file_name.h"
#include "embedded/orv/files/first_page.h"
#include "embedded/orv/files/schema.h"

namespace embedded {
namespace {

constexpr mode_t newFileMode = 0666;  // reduced by the umask

// A file without a name gets one through this directory, which is missing in a bare chroot.
constexpr const char* openFilesFolder = "/proc/self/fd";

std::string pathInItsFolder(const std::string& name) {
    const std::string fileName = lastNameOf(name);
    if (fileName.empty() || fileName == "." || fileName == "..") {
        throw Failure(codes::nameRefused);
    }
    const std::string folder = absolutePath(folderOf(name));
    return (folder == "/" ? folder : folder + "/") + fileName;
}

std::uint32_t randomNumber() {
    std::uint32_t number = 0;
    if (getrandom(&number, sizeof number, 0) != sizeof number) {
        throwSystemFailure(errno);
    }
    return number;
}

std::string temporaryPathIn(const std::string& folder) {
    return folder + "/.new-" + std::to_string(randomNumber()) + "-" +
           std::to_string(randomNumber());
}

// Creates a file without a name, or with a temporary name that it stores in temporaryPath.
FileDescriptor openedIn(const std::string& folder, std::string& temporaryPath) {
    if (access(openFilesFolder, X_OK) == 0) {
        const int unnamed = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, newFileMode);
        if (unnamed >= 0) {
            return FileDescriptor(unnamed);
        }
        // The errors of file systems and kernels that do not support files without a name.
        if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL && errno != ENOENT) {
            throwSystemFailure(errno);
        }
    }
    temporaryPath = temporaryPathIn(folder);
    return {temporaryPath, O_CREAT | O_EXCL | O_RDWR, newFileMode};
}

void writeWhole(int file, std::span<const char> bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(file, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) {
            throwSystemFailure(errno);
        }
        bytes = bytes.subspan(static_cast<std::size_t>(written < 0 ? 0 : written));
    }
}

// Some file systems refuse to sync a directory because they need not.
bool syncFolder(int folder) {
    return fsync(folder) == 0 || errno == EINVAL || errno == EOPNOTSUPP;
}

// Gives the file a name. False if the name is taken.
bool link(const FileDescriptor& file, const std::string& temporaryPath, const char* path) {
    if (temporaryPath.empty()) {
        const std::string unnamed =
            std::string(openFilesFolder) + "/" + std::to_string(file.number());
        return linkat(AT_FDCWD, unnamed.c_str(), AT_FDCWD, path, AT_SYMLINK_FOLLOW) == 0;
    }
    // Some file systems support only one of the two calls.
    const char* const from = temporaryPath.c_str();
    return renameat2(AT_FDCWD, from, AT_FDCWD, path, RENAME_NOREPLACE) == 0 ||
           ((errno == EINVAL || errno == ENOSYS) && ::link(from, path) == 0);
}

}  // namespace

NewFile::NewFile(const std::string& name)
    : path_(pathInItsFolder(name)),
      folder_((requireSavable(path_), folderOf(path_)), O_RDONLY | O_DIRECTORY),
      file_(openedIn(folderOf(path_), temporaryPath_)) {
    try {
        std::vector<char> content = emptyDataSource();
        setChangeCounter(content, randomNumber());  // foreign_journal.cpp
        writeWhole(file_.number(), content);
        if (fsync(file_.number()) != 0) {
            throwSystemFailure(errno);
        }
    } catch (...) {
        unlink(temporaryPath_.c_str());
        throw;
    }
}

NewFile::~NewFile() {
    if (published_) {
        unlink(path_.c_str());
    }
    if (!temporaryPath_.empty()) {
        unlink(temporaryPath_.c_str());
    }
}

FileIdentity NewFile::identity() const {
    struct stat status {};
    if (fstat(file_.number(), &status) != 0) {
        throwSystemFailure(errno);
    }
    return {status.st_dev, status.st_ino};
}

void NewFile::publish() {
    if (!link(file_, temporaryPath_, path_.c_str())) {
        throwSystemFailure(errno);
    }
    published_ = true;
    if (!syncFolder(folder_.number())) {
        throwSystemFailure(errno);
    }
}

}  // namespace embedded
