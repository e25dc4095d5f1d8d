// One data source that is open in this process, however many contexts have it open.
#ifndef PYORV3_EMBEDDED_ORV_FILES_DATA_FILE_H
#define PYORV3_EMBEDDED_ORV_FILES_DATA_FILE_H

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "embedded/orv/content/content.h"
#include "embedded/orv/files/file_descriptor.h"
#include "embedded/orv/files/write_lock.h"

namespace embedded {

// Holds the file's content in memory, so that calls on values never touch the disk, and saves it
// whole. Any thread may call any function; one call at a time is served. A process forked from the
// one that opened the file has a copy of what was in memory: it may read it and not write it.
//
// Functions throw Failure as storage.h says, and fileMoved when another file or none has the name.
class DataFile {
  public:
    // An existing file, loaded from its absolute path. writing: takes the write lock before.
    // Throws Failure also: notADataSource; inUse when another process writes the file.
    DataFile(std::string path, FileIdentity identity, bool writing);
    // A new and empty file that is about to get its name.
    DataFile(std::string path, FileIdentity identity, FileDescriptor descriptor,
             std::unique_ptr<WriteLock> lock);

    [[nodiscard]] const FileIdentity& identity() const { return identity_; }
    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] bool isOfThisProcess() const;
    [[nodiscard]] bool isWrittenElsewhere() const;
    [[nodiscard]] bool hasUnsavedChanges() const;

    // Calls read with the content and returns its result.
    template <typename Read>
    auto read(Read read) const {
        const std::lock_guard guard(mutex_);
        return read(std::as_const(content_));
    }

    // Calls change with the content, which change leaves as it was when it throws.
    // Throws Failure(inUse) in a forked process.
    template <typename Change>
    void change(Change change) {
        const std::lock_guard guard(mutex_);
        requireThisProcess();
        change(content_);
        changed_ = true;
    }

    // Takes the write lock unless it is held, and loads what other processes have written so far.
    // Throws Failure(inUse).
    void startWriting();
    // Releases the write lock. Everything has been saved.
    void endWriting();

    // Makes unsaved changes durable. Throws Failure(inUse) in a forked process with changes.
    void save();
    // Saves, and makes the file as small as it can be.
    void compact();
    // Reads the file and checks that it holds together. Throws Failure(damaged).
    void check() const;
    // Checks, and takes over what another process has saved unless there are unsaved changes.
    void reload();
    // Takes over what another process has saved, unless this one writes the file.
    void refresh();

  private:
    void requireThisProcess() const;
    void requireInPlace() const;
    void saveChanges();

    const std::string path_;
    const FileIdentity identity_;
    const std::uint32_t owner_;
    // Keeps the file's identity from being given to another file; without SQLite's locks.
    FileDescriptor descriptor_;
    std::unique_ptr<WriteLock> lock_;
    mutable std::mutex mutex_;
    Content content_;
    bool changed_ = false;
};

}  // namespace embedded

#endif
