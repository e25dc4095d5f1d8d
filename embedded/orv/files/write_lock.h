// The lock by which one process at a time writes a data source.
#ifndef PYORV3_EMBEDDED_ORV_FILES_WRITE_LOCK_H
#define PYORV3_EMBEDDED_ORV_FILES_WRITE_LOCK_H

#include <cstdint>
#include <string>

#include "embedded/orv/files/file_descriptor.h"

namespace embedded {

// Held from the opening for writing to its end, over any number of transactions. It lies on a byte
// that SQLite neither locks nor stores anything at, so that it keeps no reader away. The system
// releases it when the process ends, however it ends.
//
// The end of a WriteLock closes a descriptor of the file: no transaction of this process may be
// under way on it.
class WriteLock {
  public:
    // Throws Failure: inUse when another process holds it; accessDenied, fileNotFound.
    explicit WriteLock(const std::string& path);
    ~WriteLock();
    WriteLock(const WriteLock&) = delete;
    WriteLock& operator=(const WriteLock&) = delete;
    WriteLock(WriteLock&&) = delete;
    WriteLock& operator=(WriteLock&&) = delete;

    // Whether a process holds it. file: any descriptor of the data source.
    static bool isHeld(const FileDescriptor& file);

  private:
    FileDescriptor file_;
    std::uint32_t owner_;
};

}  // namespace embedded

#endif
