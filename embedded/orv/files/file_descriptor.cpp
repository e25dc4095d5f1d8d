#include "embedded/orv/files/file_descriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <utility>

#include "embedded/orv/content/failure.h"

namespace embedded {
namespace {

struct stat statusOfFile(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        throwSystemFailure(errno);
    }
    if (!S_ISREG(status.st_mode)) {
        throw Failure(codes::notADataSource);
    }
    return status;
}

}  // namespace

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
        case ENOLCK:  // the file system does not support locks
        case ETXTBSY:
            throw Failure(codes::accessDenied);
        case ENAMETOOLONG:
        case ELOOP:
        case EILSEQ:
            throw Failure(codes::nameRefused);
        case EISDIR:
            throw Failure(codes::notADataSource);
        case EMFILE:
        case ENFILE:
            throw Failure(codes::tooManyOpen);
        case ENOMEM:
            throw std::bad_alloc();
        default:
            throw Failure(codes::storageFailed);
    }
}

FileIdentity identityOf(const std::string& path) {
    const struct stat status = statusOfFile(path);
    return {status.st_dev, status.st_ino};
}

bool hasSeveralNames(const std::string& path) {
    return statusOfFile(path).st_nlink > 1;
}

FileDescriptor::FileDescriptor(const std::string& path, int flags, mode_t mode)
    : FileDescriptor(open(path.c_str(), flags | O_CLOEXEC, mode)) {}

FileDescriptor::FileDescriptor(int number) : number_(number) {
    if (number_ < 0) {
        throwSystemFailure(errno);
    }
}

FileDescriptor FileDescriptor::duplicate() const {
    return FileDescriptor(fcntl(number_, F_DUPFD_CLOEXEC, 0));
}

FileDescriptor::FileDescriptor(FileDescriptor&& other) noexcept
    : number_(std::exchange(other.number_, -1)) {}

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
}

void FileDescriptor::close() noexcept {
    if (number_ >= 0) {
        ::close(std::exchange(number_, -1));
    }
}

ReservedDescriptors::ReservedDescriptors()
    : original_("/", O_PATH), descriptors_{original_.duplicate(), original_.duplicate()} {}

ReservedDescriptors::Use::Use(ReservedDescriptors& reserved) : reserved_(reserved) {
    for (FileDescriptor& descriptor : reserved_.descriptors_) {
        descriptor.close();
    }
}

ReservedDescriptors::Use::~Use() {
    try {
        for (FileDescriptor& descriptor : reserved_.descriptors_) {
            descriptor = reserved_.original_.duplicate();
        }
    } catch (const std::exception&) {  // the next save uses the descriptors that are free then
        return;
    }
}

}  // namespace embedded
