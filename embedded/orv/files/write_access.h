// What a process holds while it may write a data source.
#ifndef PYORV3_EMBEDDED_ORV_FILES_WRITE_ACCESS_H
#define PYORV3_EMBEDDED_ORV_FILES_WRITE_ACCESS_H

#include <string>

#include "embedded/orv/files/file_descriptor.h"

namespace embedded {

// The lock by which one process at a time writes a data source, and what its saves need. Held from
// the opening for writing to its end, over any number of transactions. The lock lies on a byte
// that SQLite neither locks nor stores anything at, so that it keeps no reader away. The system
// releases it when the process ends, however it ends.
//
// The end of a WriteAccess closes a descriptor of the file: no transaction of this process may be
// under way on it.
class WriteAccess {
  public:
    // path: absolute. Throws Failure: inUse when another process has it; nameRefused and
    // accessDenied for what could not be saved; fileNotFound, tooManyOpen.
    explicit WriteAccess(const std::string& path);
    // The same for a new file that is open for writing and whose path was found savable.
    explicit WriteAccess(FileDescriptor file);
    ~WriteAccess();
    WriteAccess(const WriteAccess&) = delete;
    WriteAccess& operator=(const WriteAccess&) = delete;
    WriteAccess(WriteAccess&&) = delete;
    WriteAccess& operator=(WriteAccess&&) = delete;

    // To be used while the file is saved.
    [[nodiscard]] ReservedDescriptors& reserved() { return reserved_; }

    // In a forked process: the parent goes on with the access, and alone.
    void leaveToParent() noexcept { file_.close(); }

    // Whether another process, or this one, has the access.
    static bool isHeld(const std::string& path);

  private:
    FileDescriptor file_;
    ReservedDescriptors reserved_;
};

}  // namespace embedded

#endif
