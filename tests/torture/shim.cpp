// The shim (shim.h). The record has a line for each change of the folder's files, in the order of
// the calls; a file is named by its inode number, and what is written follows its line:
//
//   create INODE PATH    opened with O_CREAT; or with O_TMPFILE, then the path ends in "(deleted)"
//   name INODE PATH      a further name by link()
//   rename FROM PATH     unlink PATH
//   write INODE OFFSET LENGTH     truncate INODE LENGTH
//   sync INODE           syncfolder PATH           mark TEXT
#include "tests/torture/shim.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

// NOLINTBEGIN: the functions of the C library have its names and its manners

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
void __libc_free(void*);
}

namespace {

enum Kind { Allocation, Open, Read, Write, Sync, Unlink, Rename, Link, Inquiry, Lock, kindCount };

struct KindOfCall {
    const char* name;
    int error;
};
constexpr KindOfCall kinds[kindCount] = {
    {"malloc", ENOMEM}, {"open", EMFILE},   {"read", EIO}, {"write", ENOSPC}, {"fsync", EIO},
    {"unlink", EACCES}, {"rename", ENOSPC}, {"link", EIO}, {"stat", EIO},     {"fcntl", ENOLCK},
};

std::atomic<long> calls[kindCount];
std::atomic<long> failed{0};
std::atomic<long> liveBytes{0};
std::atomic<int> armedKind{-1};
std::atomic<bool> counting{false};
long firstFailing = 0;
long lastFailing = 0;

bool fails(Kind kind) {
    if (!counting) {
        return false;
    }
    const long number = ++calls[kind];
    if (kind != armedKind || number < firstFailing || number > lastFailing) {
        return false;
    }
    ++failed;
    errno = kinds[kind].error;
    return true;
}

void* counted(void* memory) {
    liveBytes += static_cast<long>(malloc_usable_size(memory));
    return memory;
}

// ---- The record ------------------------------------------------------------------------------

int logDescriptor = -1;
const char* folder = nullptr;

__attribute__((constructor)) void startRecord() {
    const char* log = getenv("TORTURE_LOG");
    folder = getenv("TORTURE_FOLDER");
    if (log != nullptr && folder != nullptr) {
        const long opened =
            syscall(SYS_openat, AT_FDCWD, log, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        logDescriptor = static_cast<int>(syscall(SYS_fcntl, opened, F_DUPFD_CLOEXEC, 900));
        syscall(SYS_close, opened);
    }
}

// Keeps what the call has left in errno.
void record(const char* line, const void* data = nullptr, size_t size = 0) {
    const int error = errno;
    const iovec parts[2] = {{const_cast<char*>(line), strlen(line)},
                            {const_cast<void*>(data), size}};
    if (syscall(SYS_writev, logDescriptor, parts, 2) < 0) {
        abort();
    }
    errno = error;
}

template <typename... Arguments>
void recordLine(const char* format, Arguments... arguments) {
    char line[2 * PATH_MAX + 100];
    snprintf(line, sizeof line, format, arguments...);
    record(line);
}

bool isInFolder(const char* path) {
    const size_t length = strlen(folder);
    return strncmp(path, folder, length) == 0 && (path[length] == '/' || path[length] == '\0');
}

// The path of a descriptor where it is of the folder and the record is being kept; else false.
bool isRecorded(int descriptor, char (&path)[PATH_MAX]) {
    if (logDescriptor < 0) {
        return false;
    }
    char link[40];
    snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    const long length = syscall(SYS_readlink, link, path, sizeof path - 1);
    path[length < 0 ? 0 : length] = '\0';
    return isInFolder(path);
}

unsigned long inodeOf(int descriptor) {
    struct stat status {};
    return syscall(SYS_newfstatat, descriptor, "", &status, AT_EMPTY_PATH) == 0 ? status.st_ino : 0;
}

void recordOpening(int descriptor, int flags) {
    char path[PATH_MAX];
    const bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    if (descriptor >= 0 && creates && isRecorded(descriptor, path)) {
        recordLine("create %lu %s\n", inodeOf(descriptor), path);
    }
}

void recordWriting(int descriptor, const void* data, ssize_t size, off_t offset) {
    char path[PATH_MAX];
    if (size > 0 && isRecorded(descriptor, path)) {
        char line[100];
        snprintf(line, sizeof line, "write %lu %ld %ld\n", inodeOf(descriptor), offset, size);
        record(line, data, static_cast<size_t>(size));
    }
}

int recordSync(int descriptor, int result) {
    char path[PATH_MAX];
    if (result == 0 && isRecorded(descriptor, path)) {
        struct stat status {};
        syscall(SYS_newfstatat, descriptor, "", &status, AT_EMPTY_PATH);
        if (S_ISDIR(status.st_mode)) {
            recordLine("syncfolder %s\n", path);
        } else {
            recordLine("sync %lu\n", status.st_ino);
        }
    }
    return result;
}

int recordTruncation(int descriptor, off_t length, int result) {
    char path[PATH_MAX];
    if (result == 0 && isRecorded(descriptor, path)) {
        recordLine("truncate %lu %ld\n", inodeOf(descriptor), length);
    }
    return result;
}

int recordNaming(const char* path, int result) {
    struct stat status {};
    if (result == 0 && logDescriptor >= 0 && isInFolder(path) &&
        syscall(SYS_newfstatat, AT_FDCWD, path, &status, AT_SYMLINK_NOFOLLOW) == 0) {
        recordLine("name %lu %s\n", status.st_ino, path);
    }
    return result;
}

int recordRenaming(const char* from, const char* into, int result) {
    if (result == 0 && logDescriptor >= 0 && isInFolder(into)) {
        recordLine("rename %s %s\n", from, into);
    }
    return result;
}

int recordUnlinking(const char* path, int result) {
    if (result == 0 && logDescriptor >= 0 && isInFolder(path)) {
        recordLine("unlink %s\n", path);
    }
    return result;
}

}  // namespace

// The next definition of the function behind this one.
#define NEXT(function) \
    static const auto next = reinterpret_cast<decltype(&function)>(dlsym(RTLD_NEXT, #function))

// A function that can fail and otherwise does what it always does.
#define WRAPPED(kind, type, failure, function, parameters, arguments, exceptions) \
    type function parameters exceptions {                                        \
        NEXT(function);                                                           \
        return fails(kind) ? failure : next arguments;                            \
    }

#define OPENING(function, parameters, arguments)                                        \
    int function parameters {                                                           \
        NEXT(function);                                                                 \
        va_list more;                                                                   \
        va_start(more, flags);                                                          \
        const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(more, mode_t) : 0; \
        va_end(more);                                                                   \
        const int opened = fails(Open) ? -1 : next arguments;                           \
        recordOpening(opened, flags);                                                   \
        return opened;                                                                  \
    }

extern "C" {

const char* tortureKind(int kind) {
    return kind < kindCount ? kinds[kind].name : nullptr;
}

void tortureArm(int kind, long nth, long times) {
    for (auto& number : calls) {
        number = 0;
    }
    failed = 0;
    firstFailing = nth;
    lastFailing = nth + times - 1;
    armedKind = kind;
    counting = true;
}

long tortureDisarm() {
    counting = false;
    return failed;
}

long tortureCalls(int kind) {
    return calls[kind];
}

long tortureLiveBytes() {
    return liveBytes;
}

void tortureMark(const char* text) {
    if (logDescriptor >= 0) {
        recordLine("mark %s\n", text);
    }
}

// ---- Memory ----------------------------------------------------------------------------------

void* malloc(size_t size) {
    return fails(Allocation) ? nullptr : counted(__libc_malloc(size));
}

void* calloc(size_t number, size_t size) {
    return fails(Allocation) ? nullptr : counted(__libc_calloc(number, size));
}

void* realloc(void* memory, size_t size) {
    if (fails(Allocation)) {
        return nullptr;
    }
    const auto before = static_cast<long>(malloc_usable_size(memory));
    void* moved = __libc_realloc(memory, size);
    if (moved != nullptr || size == 0) {
        liveBytes -= before;
    }
    return counted(moved);
}

void* aligned_alloc(size_t alignment, size_t size) {
    return fails(Allocation) ? nullptr : counted(__libc_memalign(alignment, size));
}

int posix_memalign(void** memory, size_t alignment, size_t size) noexcept {
    *memory = aligned_alloc(alignment, size);
    return *memory == nullptr ? ENOMEM : 0;
}

void free(void* memory) {
    liveBytes -= static_cast<long>(malloc_usable_size(memory));
    __libc_free(memory);
}

// ---- Files -----------------------------------------------------------------------------------

OPENING(open, (const char* path, int flags, ...), (path, flags, mode))
OPENING(open64, (const char* path, int flags, ...), (path, flags, mode))
OPENING(openat, (int at, const char* path, int flags, ...), (at, path, flags, mode))
OPENING(openat64, (int at, const char* path, int flags, ...), (at, path, flags, mode))
WRAPPED(Open, DIR*, nullptr, opendir, (const char* path), (path), )

WRAPPED(Read, ssize_t, -1, read, (int file, void* data, size_t size), (file, data, size), )
WRAPPED(Read, ssize_t, -1, pread, (int file, void* data, size_t size, off_t offset),
        (file, data, size, offset), )
WRAPPED(Read, ssize_t, -1, pread64, (int file, void* data, size_t size, off64_t offset),
        (file, data, size, offset), )
WRAPPED(Read, dirent*, nullptr, readdir, (DIR * directory), (directory), )
WRAPPED(Read, dirent64*, nullptr, readdir64, (DIR * directory), (directory), )

ssize_t write(int file, const void* data, size_t size) {
    NEXT(write);
    const ssize_t written = fails(Write) ? -1 : next(file, data, size);
    recordWriting(file, data, written, lseek(file, 0, SEEK_CUR) - written);
    return written;
}

ssize_t pwrite(int file, const void* data, size_t size, off_t offset) {
    NEXT(pwrite);
    const ssize_t written = fails(Write) ? -1 : next(file, data, size, offset);
    recordWriting(file, data, written, offset);
    return written;
}

ssize_t pwrite64(int file, const void* data, size_t size, off64_t offset) {
    return pwrite(file, data, size, offset);
}

int ftruncate(int file, off_t length) noexcept {
    NEXT(ftruncate);
    return recordTruncation(file, length, fails(Write) ? -1 : next(file, length));
}

int ftruncate64(int file, off64_t length) noexcept {
    return ftruncate(file, length);
}

int fsync(int file) {
    NEXT(fsync);
    return recordSync(file, fails(Sync) ? -1 : next(file));
}

int fdatasync(int file) {
    NEXT(fdatasync);
    return recordSync(file, fails(Sync) ? -1 : next(file));
}

int unlink(const char* path) noexcept {
    NEXT(unlink);
    return recordUnlinking(path, fails(Unlink) ? -1 : next(path));
}

int rename(const char* from, const char* into) noexcept {
    NEXT(rename);
    return recordRenaming(from, into, fails(Rename) ? -1 : next(from, into));
}

int renameat2(int at, const char* from, int atInto, const char* into, unsigned flags) noexcept {
    NEXT(renameat2);
    return recordRenaming(from, into, fails(Rename) ? -1 : next(at, from, atInto, into, flags));
}

int link(const char* from, const char* into) noexcept {
    NEXT(link);
    return recordNaming(into, fails(Link) ? -1 : next(from, into));
}

int linkat(int at, const char* from, int atInto, const char* into, int flags) noexcept {
    NEXT(linkat);
    return recordNaming(into, fails(Link) ? -1 : next(at, from, atInto, into, flags));
}

using Status = struct stat;
using Status64 = struct stat64;
WRAPPED(Inquiry, int, -1, stat, (const char* path, Status* status), (path, status), noexcept)
WRAPPED(Inquiry, int, -1, stat64, (const char* path, Status64* status), (path, status), noexcept)
WRAPPED(Inquiry, int, -1, lstat, (const char* path, Status* status), (path, status), noexcept)
WRAPPED(Inquiry, int, -1, fstat, (int file, Status* status), (file, status), noexcept)
WRAPPED(Inquiry, int, -1, fstat64, (int file, Status64* status), (file, status), noexcept)
WRAPPED(Inquiry, int, -1, access, (const char* path, int mode), (path, mode), noexcept)

// A program that waits for what cannot come does so in no time.
int usleep(useconds_t time) {
    NEXT(usleep);
    return counting ? 0 : next(time);
}

int nanosleep(const timespec* time, timespec* rest) {
    NEXT(nanosleep);
    return counting ? 0 : next(time, rest);
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* rest) {
    NEXT(clock_nanosleep);
    return counting ? 0 : next(clock, flags, time, rest);
}

#define LOCKING(function)                                                               \
    int function(int file, int command, ...) {                                          \
        NEXT(function);                                                                 \
        va_list more;                                                                   \
        va_start(more, command);                                                        \
        void* argument = va_arg(more, void*);                                           \
        va_end(more);                                                                   \
        const bool locks = command == F_SETLK || command == F_OFD_SETLK ||              \
                           command == F_GETLK || command == F_OFD_GETLK;                \
        return locks && fails(Lock) ? -1 : next(file, command, argument);               \
    }
LOCKING(fcntl)
LOCKING(fcntl64)
}

// NOLINTEND
