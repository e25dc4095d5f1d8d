// One data source that is open in this process, shared by all contexts that have it open.
#ifndef PYORV3_EMBEDDED_ORV_FILES_DATA_FILE_H
#define PYORV3_EMBEDDED_ORV_FILES_DATA_FILE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "embedded/orv/content/content.h"
#include "embedded/orv/files/file_descriptor.h"
#include "embedded/orv/files/storage.h"
#include "embedded/orv/files/write_access.h"

namespace embedded {

// Keeps the loaded classes and all changes in memory: calls access the disk only if they need a
// class for the first time or save. Safe for use by several threads, one call at a time.
//
// A forked process has a copy of the loaded classes and may only read. It reads other classes with
// a connection of its own, unless the copy has unsaved changes.
//
// Functions throw Failure as Storage does, and fileMoved if the name no longer belongs to the file.
class DataFile {
  public:
    // Opens an existing file. Throws Failure also: notADataSource, damaged.
    DataFile(const std::string& name, FileIdentity identity);
    // Opens a file that this process has just created for writing.
    DataFile(const std::string& name, FileIdentity identity, std::unique_ptr<WriteAccess> access);

    [[nodiscard]] const FileIdentity& identity() const { return identity_; }
    // Absolute.
    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] bool isOfThisProcess() const { return !inherited_; }
    [[nodiscard]] bool isWrittenElsewhere() const;
    [[nodiscard]] bool hasUnsavedChanges() const;
    // True if a class of the file was found to be damaged.
    [[nodiscard]] bool isDamaged() const;

    // Loads the needed classes, calls read with the content and returns its result. If a class is
    // damaged, throws Failure(damaged); the other classes remain readable.
    template <typename Read>
    auto read(const NeededClasses& needed, Read read) {
        const std::lock_guard guard(mutex_);
        load(needed);
        return read(std::as_const(content_));
    }

    // Returns a record as a block with a single record. If the class is damaged, returns the
    // record nevertheless if all of its rows that can be read match their checksums; values may be
    // missing. Throws Failure as blockOfRecord, and damaged for a record that is lost.
    Block salvagedRecord(std::uint16_t classCode, std::size_t record);

    // Loads the needed classes and calls change with the content. If change throws, it must leave
    // the content unchanged. Throws Failure: inUse in a forked process, readOnly if a class of the
    // file is damaged.
    template <typename Change>
    auto change(const NeededClasses& needed, Change change) {
        const std::lock_guard guard(mutex_);
        requireThisProcess();
        load(needed);
        requireUndamaged();
        return change(content_);
    }

    // Acquires write access if the file does not have it. Throws Failure as WriteAccess.
    void startWriting();
    // Releases write access. The caller must have saved.
    void endWriting();

    // Writes unsaved changes to the disk. Throws Failure(inUse) in a forked process with changes.
    void save();
    // Saves and reduces the file to its minimum size.
    void compact();
    // Reads and checks the whole file. Throws Failure(damaged).
    void check();
    // As check. Then reloads what another process has saved, unless there are unsaved changes.
    void verify();
    // Reloads what another process has saved, unless this process writes the file.
    void refresh();

    // Called first in a forked process: gives up connection and lock, which belong to the parent.
    // Neither allocates nor waits.
    void leaveToParent() noexcept;

  private:
    void requireThisProcess() const;
    void requireUndamaged() const;
    void requireNotMoved() const;
    void load(const NeededClasses& needed);
    void loadFromFile(const NeededClasses& needed);
    void checkFile();
    Storage& storage();
    void saveChanges();

    mutable std::mutex mutex_;
    std::unique_ptr<Storage> storage_;  // null: left to the parent process
    const std::string path_;
    const FileIdentity identity_;
    std::unique_ptr<WriteAccess> access_;
    Content content_;
    // The class of the last salvaged record.
    std::optional<std::pair<std::uint16_t, SalvagedRecords>> salvaged_;
    bool damaged_ = false;
    bool hasAllClasses_ = true;  // false: a damaged directory may lack classes of the file
    bool inherited_ = false;
};

}  // namespace embedded

#endif
