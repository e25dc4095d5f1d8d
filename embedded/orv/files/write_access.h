// The right of a process to write a data source.
#ifndef PYORV3_EMBEDDED_ORV_FILES_WRITE_ACCESS_H
#define PYORV3_EMBEDDED_ORV_FILES_WRITE_ACCESS_H

#include <string>

#include "embedded/orv/files/file_descriptor.h"

namespace embedded {

// The lock that permits one process at a time to write a data source, and the descriptors that its
// saves need. Held as long as the source is open for writing, over any number of transactions. The
// locked byte is one that SQLite neither locks nor stores, so readers are not blocked. The system
// releases the lock if the process ends or is killed.
//
// The destructor closes a descriptor of the file, so this process must have no active transaction.
class WriteAccess {
  public:
    // path: absolute. Throws Failure: inUse if another process has access; nameRefused or
    // accessDenied if the file could not be saved; fileNotFound, tooManyOpen.
    explicit WriteAccess(const std::string& path);
    // file: a new file, open for writing, whose path has passed requireSavable.
    explicit WriteAccess(FileDescriptor file);
    ~WriteAccess();
    WriteAccess(const WriteAccess&) = delete;
    WriteAccess& operator=(const WriteAccess&) = delete;
    WriteAccess(WriteAccess&&) = delete;
    WriteAccess& operator=(WriteAccess&&) = delete;

    // The descriptors for the next save.
    [[nodiscard]] ReservedDescriptors& reserved() { return reserved_; }

    // Called in a forked process: only the parent keeps the access.
    void leaveToParent() noexcept { file_.close(); }

    // True if this or another process has access.
    static bool isHeld(const std::string& path);

  private:
    FileDescriptor file_;
    ReservedDescriptors reserved_;
};

}  // namespace embedded

#endif
