#include "embedded/orv/files/journal_buffer.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <span>
#include <string>
#include <vector>

#include "embedded/orv/content/failure.h"

namespace embedded {
namespace {

// An open journal. SQLite provides the memory for this object and, behind it, for the file of the
// default VFS that the object writes to.
class BufferedJournal : public sqlite3_file {
  public:
    // Throws std::bad_alloc.
    BufferedJournal() : sqlite3_file{nullptr} { buffer_.reserve(capacity); }

    sqlite3_file* file() { return reinterpret_cast<sqlite3_file*>(this + 1); }

    int read(std::span<char> bytes, sqlite3_int64 offset) {
        if (offset >= start_ && end(bytes, offset) <= end()) {
            const auto position = static_cast<std::ptrdiff_t>(offset - start_);
            std::copy_n(buffer_.begin() + position, bytes.size(), bytes.begin());
            return SQLITE_OK;
        }
        const bool overlaps = offset < end() && start_ < end(bytes, offset);
        const int result = overlaps ? flush() : SQLITE_OK;
        return result != SQLITE_OK
                   ? result
                   : file()->pMethods->xRead(file(), bytes.data(), static_cast<int>(bytes.size()),
                                             offset);
    }

    int write(std::span<const char> bytes, sqlite3_int64 offset) {
        if (offset != end() || buffer_.size() + bytes.size() > capacity) {
            if (const int result = flush(); result != SQLITE_OK) {
                return result;
            }
            start_ = offset;
        }
        if (bytes.size() > capacity) {
            return writeToFile(bytes, offset);
        }
        buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
        return SQLITE_OK;
    }

    // Writes the collected pieces; keeps them if that fails.
    int flush() {
        const int result = buffer_.empty() ? SQLITE_OK : writeToFile(buffer_, start_);
        if (result == SQLITE_OK) {
            buffer_.clear();
        }
        return result;
    }

    int size(sqlite3_int64& size) {
        const int result = file()->pMethods->xFileSize(file(), &size);
        size = std::max(size, buffer_.empty() ? 0 : end());
        return result;
    }

  private:
    static constexpr std::size_t capacity = 1 << 15;  // bytes

    static sqlite3_int64 end(std::span<const char> bytes, sqlite3_int64 offset) {
        return offset + static_cast<sqlite3_int64>(bytes.size());
    }
    [[nodiscard]] sqlite3_int64 end() const { return end(buffer_, start_); }

    int writeToFile(std::span<const char> bytes, sqlite3_int64 offset) {
        return file()->pMethods->xWrite(file(), bytes.data(), static_cast<int>(bytes.size()),
                                        offset);
    }

    std::vector<char> buffer_;
    sqlite3_int64 start_ = 0;  // offset of the buffer in the journal, unless it is empty
};

BufferedJournal& journalOf(sqlite3_file* file) {
    return *static_cast<BufferedJournal*>(file);
}

sqlite3_file* fileOf(sqlite3_file* journal) {
    return journalOf(journal).file();
}

// A method of the file of the default VFS.
template <auto method, typename... Arguments>
int forward(sqlite3_file* journal, Arguments... arguments) {
    return (fileOf(journal)->pMethods->*method)(fileOf(journal), arguments...);
}

// The same after the collected pieces are written.
template <auto method, typename... Arguments>
int flushAndForward(sqlite3_file* journal, Arguments... arguments) {
    const int result = journalOf(journal).flush();
    return result == SQLITE_OK ? forward<method>(journal, arguments...) : result;
}

int read(sqlite3_file* journal, void* bytes, int size, sqlite3_int64 offset) {
    return journalOf(journal).read({static_cast<char*>(bytes), static_cast<std::size_t>(size)},
                                   offset);
}

int write(sqlite3_file* journal, const void* bytes, int size, sqlite3_int64 offset) {
    return journalOf(journal).write(
        {static_cast<const char*>(bytes), static_cast<std::size_t>(size)}, offset);
}

int sizeOf(sqlite3_file* journal, sqlite3_int64* size) {
    return journalOf(journal).size(*size);
}

int close(sqlite3_file* journal) {
    const int result = forward<&sqlite3_io_methods::xClose>(journal);
    std::destroy_at(&journalOf(journal));
    return result;
}

constexpr sqlite3_io_methods journalMethods = {
    .iVersion = 1,
    .xClose = close,
    .xRead = read,
    .xWrite = write,
    .xTruncate = flushAndForward<&sqlite3_io_methods::xTruncate>,
    .xSync = flushAndForward<&sqlite3_io_methods::xSync>,
    .xFileSize = sizeOf,
    .xLock = forward<&sqlite3_io_methods::xLock>,
    .xUnlock = forward<&sqlite3_io_methods::xUnlock>,
    .xCheckReservedLock = forward<&sqlite3_io_methods::xCheckReservedLock>,
    .xFileControl = forward<&sqlite3_io_methods::xFileControl>,
    .xSectorSize = forward<&sqlite3_io_methods::xSectorSize>,
    .xDeviceCharacteristics = forward<&sqlite3_io_methods::xDeviceCharacteristics>,
    .xShmMap = nullptr,  // from here on of later versions
    .xShmLock = nullptr,
    .xShmBarrier = nullptr,
    .xShmUnmap = nullptr,
    .xFetch = nullptr,
    .xUnfetch = nullptr,
};

// The default VFS with another way to open journals; registered during the life of the object.
class JournalBufferVfs : private sqlite3_vfs {
  public:
    explicit JournalBufferVfs(sqlite3_vfs& defaultVfs)
        : sqlite3_vfs(defaultVfs),
          default_(defaultVfs),
          name_("pyORV3-" + std::to_string(reinterpret_cast<std::uintptr_t>(this))) {
        pNext = nullptr;
        zName = name_.c_str();
        szOsFile += static_cast<int>(sizeof(BufferedJournal));
        xOpen = open;
        if (sqlite3_vfs_register(this, 0) != SQLITE_OK) {
            throw Failure(codes::storageFailed);
        }
    }
    ~JournalBufferVfs() { sqlite3_vfs_unregister(this); }
    JournalBufferVfs(const JournalBufferVfs&) = delete;
    JournalBufferVfs& operator=(const JournalBufferVfs&) = delete;
    JournalBufferVfs(JournalBufferVfs&&) = delete;
    JournalBufferVfs& operator=(JournalBufferVfs&&) = delete;

    [[nodiscard]] const char* name() const { return zName; }

  private:
    static int open(sqlite3_vfs* vfs, const char* path, sqlite3_file* file, int flags,
                    int* outFlags) {
        sqlite3_vfs* const files = &static_cast<JournalBufferVfs*>(vfs)->default_;
        if ((flags & SQLITE_OPEN_MAIN_JOURNAL) == 0) {
            return files->xOpen(files, path, file, flags, outFlags);
        }
        const int result = openJournal(files, path, file, flags, outFlags);
        if (result != SQLITE_OK) {
            file->pMethods = nullptr;  // otherwise SQLite would close the file
        }
        return result;
    }

    static int openJournal(sqlite3_vfs* files, const char* path, sqlite3_file* file, int flags,
                           int* outFlags) {
        try {
            auto* const journal = new (file) BufferedJournal();
            const int result = files->xOpen(files, path, journal->file(), flags, outFlags);
            if (result == SQLITE_OK) {
                journal->pMethods = &journalMethods;
            } else {
                std::destroy_at(journal);
            }
            return result;
        } catch (const std::bad_alloc&) {
            return SQLITE_NOMEM;
        }
    }

    sqlite3_vfs& default_;
    std::string name_;  // a process may have loaded several copies of this library
};

sqlite3_vfs& defaultVfs() {
    sqlite3_vfs* const vfs = sqlite3_vfs_find(nullptr);
    if (vfs == nullptr) {
        throw Failure(codes::storageFailed);
    }
    return *vfs;
}

}  // namespace

const char* vfsWithJournalBuffer() {
    static JournalBufferVfs vfs(defaultVfs());
    return vfs.name();
}

}  // namespace embedded
