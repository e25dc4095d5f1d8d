#include "embedded/orv/files/write_lock.h"

#include <fcntl.h>

#include <cerrno>

#include "embedded/orv/content/failure.h"
#include "embedded/orv/files/process.h"

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

}  // namespace

// The lock belongs to the open descriptor and not to the process, which may open and close other
// descriptors of the file as it likes.
WriteLock::WriteLock(const std::string& path) : file_(path, O_RDWR), owner_(processGeneration()) {
    struct flock lock = lockOf(F_WRLCK);
    if (fcntl(file_.number(), F_OFD_SETLK, &lock) != 0) {
        if (errno == EAGAIN || errno == EACCES) {
            throw Failure(codes::inUse);
        }
        throwSystemFailure(errno);
    }
}

WriteLock::~WriteLock() {
    // A forked process has the same open descriptor: what one of the two releases, both have lost,
    // and what one of them merely closes stays locked until the other closes it as well.
    if (owner_ == processGeneration()) {
        struct flock lock = lockOf(F_UNLCK);
        fcntl(file_.number(), F_OFD_SETLK, &lock);
    }
}

bool WriteLock::isHeld(const FileDescriptor& file) {
    struct flock lock = lockOf(F_WRLCK);
    return fcntl(file.number(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

}  // namespace embedded
