// One data source that is open in this process, however many contexts have it open.
#ifndef PYORV3_EMBEDDED_ORV_FILES_DATA_FILE_H
#define PYORV3_EMBEDDED_ORV_FILES_DATA_FILE_H

#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "embedded/orv/content/content.h"
#include "embedded/orv/files/file_descriptor.h"
#include "embedded/orv/files/storage.h"
#include "embedded/orv/files/write_access.h"

namespace embedded {

// Keeps in memory what was asked for and what was changed: calls touch the disk when they need a
// class for the first time, and when the source is saved. Any thread may call any function; one
// call at a time is served.
//
// A process forked from the one that opened the file has a copy of what was in memory. It may read
// that and not write it; what is not in memory it reads with a connection of its own, unless the
// copy has unsaved changes.
//
// Functions throw Failure as storage.h says, and fileMoved when another file or none has the name.
class DataFile {
  public:
    // An existing file. Throws Failure also: notADataSource, damaged.
    DataFile(const std::string& name, FileIdentity identity);
    // A file that this process has just created, open for writing.
    DataFile(const std::string& name, FileIdentity identity, std::unique_ptr<WriteAccess> access);

    [[nodiscard]] const FileIdentity& identity() const { return identity_; }
    // Absolute.
    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] bool isOfThisProcess() const { return !inherited_; }
    [[nodiscard]] bool isWrittenElsewhere() const;
    [[nodiscard]] bool hasUnsavedChanges() const;
    // A class of the file was found damaged.
    [[nodiscard]] bool isDamaged() const;

    // Calls read with the content, in which the needed classes are loaded, and returns its result.
    // A class that is found damaged gives Failure(damaged) and leaves the others readable.
    template <typename Read>
    auto read(const NeededClasses& needed, Read read) {
        const std::lock_guard guard(mutex_);
        load(needed);
        return read(std::as_const(content_));
    }

    // Calls change with the content, which change leaves as it was when it throws.
    // Throws Failure: inUse in a forked process, readOnly for a file with a damaged class.
    template <typename Change>
    auto change(const NeededClasses& needed, Change change) {
        const std::lock_guard guard(mutex_);
        requireThisProcess();
        load(needed);
        requireUndamaged();
        return change(content_);
    }

    // Gets the access for writing unless it is there. Throws Failure as WriteAccess.
    void startWriting();
    // Releases it. Everything has been saved.
    void endWriting();

    // Makes unsaved changes durable. Throws Failure(inUse) in a forked process with changes.
    void save();
    // Saves, and makes the file as small as it can be.
    void compact();
    // Reads the whole file and checks that it holds together. Throws Failure(damaged).
    void check();
    // Checks, and takes over what another process has saved unless there are unsaved changes.
    void verify();
    // Takes over what another process has saved, unless this one writes the file.
    void refresh();

    // In a forked process, before anything else: leaves to the parent what only one of the two can
    // use. Neither allocates nor waits.
    void leaveToParent() noexcept;

  private:
    void requireThisProcess() const;
    void requireUndamaged() const;
    void requireInPlace() const;
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
    bool damaged_ = false;
    bool inherited_ = false;
};

}  // namespace embedded

#endif
