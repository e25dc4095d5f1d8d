#include "embedded/orv/files/write_access.h"

#include <fcntl.h>

#include <cerrno>
#include <utility>

#include "embedded/orv/content/failure.h"
#include "embedded/orv/files/file_name.h"

namespace embedded {
namespace {

// SQLite's lock bytes are the 512 from 0x40000000 on, in a page that holds no data.
constexpr off_t lockByte = 0x40000000 + 512;

struct flock lockOf(short kind) {
    struct flock lock {};
    lock.l_type = kind;
    lock.l_whence = SEEK_SET;
    lock.l_start = lockByte;
    lock.l_len = 1;
    return lock;
}

FileDescriptor openedForWriting(const std::string& path) {
    requireSavable(path);
    return {path, O_RDWR};
}

}  // namespace

WriteAccess::WriteAccess(const std::string& path) : WriteAccess(openedForWriting(path)) {}

// The lock belongs to the open descriptor and not to the process, so closing other descriptors of
// the file does not release it.
WriteAccess::WriteAccess(FileDescriptor file) : file_(std::move(file)) {
    struct flock lock = lockOf(F_WRLCK);
    if (fcntl(file_.number(), F_OFD_SETLK, &lock) != 0) {
        if (errno == EAGAIN || errno == EACCES) {
            throw Failure(codes::inUse);
        }
        throwSystemFailure(errno);
    }
}

// Unlocks before closing: a program that was just started may still have a copy of the descriptor,
// which would keep the lock.
WriteAccess::~WriteAccess() {
    if (file_.number() >= 0) {
        struct flock lock = lockOf(F_UNLCK);
        fcntl(file_.number(), F_OFD_SETLK, &lock);
    }
}

bool WriteAccess::isHeld(const std::string& path) {
    const FileDescriptor file(path, O_RDONLY);
    struct flock lock = lockOf(F_WRLCK);
    return fcntl(file.number(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

}  // namespace embedded
