// The shim (shim.h). The record has a line for each change of the folder's files, in the order of
// the calls. Files are identified by inode number; written data follows its line:
//
//   create INODE PATH    opened with O_CREAT, or with O_TMPFILE (the path ends in "(deleted)")
//   name INODE PATH      link() added a name
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
#include <string>

// NOLINTBEGIN: the functions have the names and signatures of the C library

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
    const long number = counting ? ++calls[kind] : 0;
    if (number == 0 || kind != armedKind || number < firstFailing || number > lastFailing) {
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

bool isRecorded(const char* path) {
    const size_t length = logDescriptor < 0 ? 0 : strlen(folder);
    return length > 0 && strncmp(path, folder, length) == 0 &&
           (path[length] == '/' || path[length] == '\0');
}

// Writes the line and then the data. Preserves errno.
void record(const char* line, const void* data = nullptr, long size = 0) {
    const int error = errno;
    const iovec parts[2] = {{const_cast<char*>(line), strlen(line)},
                            {const_cast<void*>(data), static_cast<size_t>(size)}};
    if (syscall(SYS_writev, logDescriptor, parts, 2) < 0) {
        abort();
    }
    errno = error;
}

// Records VERB [BEFORE] PATH if the call succeeded and the path is in the folder.
int recordPath(int result, const char* verb, const char* path, const char* before = "") {
    if (result == 0 && isRecorded(path)) {
        char line[2 * PATH_MAX + 100];
        snprintf(line, sizeof line, "%s %s%s%s\n", verb, before, *before ? " " : "", path);
        record(line);
    }
    return result;
}

// The same for a descriptor: records VERB INODE REST, or VERBfolder PATH for a folder. The path
// replaces a null `rest`.
void recordFile(bool succeeded, int file, const char* verb, const char* rest,
                const void* data = nullptr, long size = 0) {
    char link[40];
    char path[PATH_MAX];
    char line[PATH_MAX + 100];
    struct stat status {};
    if (!succeeded || logDescriptor < 0) {
        return;
    }
    const int error = errno;
    snprintf(link, sizeof link, "/proc/self/fd/%d", file);
    const long length = syscall(SYS_readlinkat, AT_FDCWD, link, path, sizeof path - 1);
    path[length < 0 ? 0 : length] = '\0';
    if (isRecorded(path) && syscall(SYS_newfstatat, file, "", &status, AT_EMPTY_PATH) == 0) {
        if (S_ISDIR(status.st_mode)) {
            snprintf(line, sizeof line, "%sfolder %s\n", verb, path);
        } else {
            snprintf(line, sizeof line, "%s %lu %s\n", verb, status.st_ino, rest ? rest : path);
        }
        record(line, data, size);
    }
    errno = error;
}

int recordOpening(int file, int flags) {
    const bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    recordFile(file >= 0 && creates, file, "create", nullptr);
    return file;
}

ssize_t recordWriting(int file, const void* data, ssize_t size, off_t offset) {
    char rest[60];
    snprintf(rest, sizeof rest, "%ld %ld", offset, size);
    recordFile(size > 0, file, "write", rest, data, size);
    return size;
}

int recordSync(int result, int file) {
    recordFile(result == 0, file, "sync", "");
    return result;
}

int recordTruncation(int result, int file, off_t length) {
    recordFile(result == 0, file, "truncate", std::to_string(length).c_str());
    return result;
}

int recordNaming(int result, const char* path) {
    struct stat status {};
    char inode[30];
    syscall(SYS_newfstatat, AT_FDCWD, path, &status, AT_SYMLINK_NOFOLLOW);
    snprintf(inode, sizeof inode, "%lu", status.st_ino);
    return recordPath(result, "name", path, inode);
}

}  // namespace

// The definition that this one overrides.
#define NEXT(function) \
    static const auto next = reinterpret_cast<decltype(&function)>(dlsym(RTLD_NEXT, #function))

// A function that fails if armed and otherwise calls the original. `given` is the returned
// expression, which may use `result`.
#define RECORDED(kind, type, failure, function, parameters, arguments, exceptions, given) \
    type function parameters exceptions {                                                 \
        NEXT(function);                                                                   \
        const auto result = fails(kind) ? failure : next arguments;                       \
        return given;                                                                     \
    }
#define WRAPPED(kind, type, failure, function, parameters, arguments, exceptions) \
    RECORDED(kind, type, failure, function, parameters, arguments, exceptions, result)

// A function with an optional last argument, which is passed on even if the caller omitted it: the
// original reads it only if it is needed.
#define VARIADIC(function, parameters, last, type, arguments, failing, given) \
    int function parameters {                                                 \
        NEXT(function);                                                       \
        va_list more;                                                         \
        va_start(more, last);                                                 \
        const auto argument = va_arg(more, type);                             \
        va_end(more);                                                         \
        const int result = failing ? -1 : next arguments;                     \
        return given;                                                         \
    }
#define OPENING(function, parameters, arguments)                          \
    VARIADIC(function, parameters, flags, mode_t, arguments, fails(Open), \
             recordOpening(result, flags))
#define LOCKING(function)                                                                       \
    VARIADIC(function, (int file, int command, ...), command, void*, (file, command, argument), \
             isLocking(command) && fails(Lock), result)

static bool isLocking(int command) {
    return command == F_SETLK || command == F_OFD_SETLK || command == F_GETLK ||
           command == F_OFD_GETLK;
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
    char line[200];
    snprintf(line, sizeof line, "mark %s\n", text);
    record(line);
}

void* malloc(size_t size) {
    return fails(Allocation) ? nullptr : counted(__libc_malloc(size));
}

void* calloc(size_t number, size_t size) {
    return fails(Allocation) ? nullptr : counted(__libc_calloc(number, size));
}

void* realloc(void* memory, size_t size) {
    const auto before = static_cast<long>(malloc_usable_size(memory));
    void* moved = fails(Allocation) ? nullptr : __libc_realloc(memory, size);
    liveBytes -= moved != nullptr ? before : 0;
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

// clang-format off
using Status = struct stat;
using Status64 = struct stat64;
OPENING(open, (const char* path, int flags, ...), (path, flags, argument))
OPENING(open64, (const char* path, int flags, ...), (path, flags, argument))
OPENING(openat, (int at, const char* path, int flags, ...), (at, path, flags, argument))
OPENING(openat64, (int at, const char* path, int flags, ...), (at, path, flags, argument))
LOCKING(fcntl)
LOCKING(fcntl64)
WRAPPED(Open, DIR*, nullptr, opendir, (const char* path), (path), )
WRAPPED(Read, ssize_t, -1, read, (int file, void* data, size_t size), (file, data, size), )
WRAPPED(Read, ssize_t, -1, pread, (int file, void* data, size_t size, off_t at), (file, data, size, at), )
WRAPPED(Read, ssize_t, -1, pread64, (int file, void* data, size_t size, off64_t at), (file, data, size, at), )
WRAPPED(Read, dirent*, nullptr, readdir, (DIR * directory), (directory), )
WRAPPED(Read, dirent64*, nullptr, readdir64, (DIR * directory), (directory), )
WRAPPED(Inquiry, int, -1, stat, (const char* path, Status* status), (path, status), noexcept)
WRAPPED(Inquiry, int, -1, stat64, (const char* path, Status64* status), (path, status), noexcept)
WRAPPED(Inquiry, int, -1, lstat, (const char* path, Status* status), (path, status), noexcept)
WRAPPED(Inquiry, int, -1, fstat, (int file, Status* status), (file, status), noexcept)
WRAPPED(Inquiry, int, -1, fstat64, (int file, Status64* status), (file, status), noexcept)
WRAPPED(Inquiry, int, -1, access, (const char* path, int mode), (path, mode), noexcept)
RECORDED(Write, ssize_t, -1, write, (int file, const void* data, size_t size), (file, data, size), ,
         recordWriting(file, data, result, lseek(file, 0, SEEK_CUR) - result))
RECORDED(Write, ssize_t, -1, pwrite, (int file, const void* data, size_t size, off_t at), (file, data, size, at), ,
         recordWriting(file, data, result, at))
RECORDED(Write, ssize_t, -1, pwrite64, (int file, const void* data, size_t size, off64_t at), (file, data, size, at), ,
         recordWriting(file, data, result, at))
RECORDED(Write, int, -1, ftruncate, (int file, off_t length), (file, length), noexcept, recordTruncation(result, file, length))
RECORDED(Write, int, -1, ftruncate64, (int file, off64_t length), (file, length), noexcept, recordTruncation(result, file, length))
RECORDED(Sync, int, -1, fsync, (int file), (file), , recordSync(result, file))
RECORDED(Sync, int, -1, fdatasync, (int file), (file), , recordSync(result, file))
RECORDED(Unlink, int, -1, unlink, (const char* path), (path), noexcept, recordPath(result, "unlink", path))
RECORDED(Rename, int, -1, rename, (const char* from, const char* into), (from, into), noexcept,
         recordPath(result, "rename", into, from))
RECORDED(Rename, int, -1, renameat2, (int at, const char* from, int atInto, const char* into, unsigned flags),
         (at, from, atInto, into, flags), noexcept, recordPath(result, "rename", into, from))
RECORDED(Link, int, -1, link, (const char* from, const char* into), (from, into), noexcept, recordNaming(result, into))
RECORDED(Link, int, -1, linkat, (int at, const char* from, int atInto, const char* into, int flags),
         (at, from, atInto, into, flags), noexcept, recordNaming(result, into))
// Sleeping returns at once, so that a retry after a fault costs no time.
using Time = struct timespec;
#define WAITING(function, parameters, arguments) \
    int function parameters { NEXT(function); return counting ? 0 : next arguments; }
WAITING(usleep, (useconds_t time), (time))
WAITING(nanosleep, (const Time* time, Time* rest), (time, rest))
WAITING(clock_nanosleep, (clockid_t clock, int flags, const Time* time, Time* rest), (clock, flags, time, rest))
// clang-format on
}

// NOLINTEND
