// What the library asks of files besides SQLite.
#ifndef PYORV3_EMBEDDED_ORV_FILES_FILE_DESCRIPTOR_H
#define PYORV3_EMBEDDED_ORV_FILES_FILE_DESCRIPTOR_H

#include <sys/types.h>

#include <compare>
#include <optional>
#include <string>

namespace embedded {

// Which file a name stands for, whatever the name.
struct FileIdentity {
    dev_t device;
    ino_t inode;

    // NOLINTNEXTLINE(modernize-use-nullptr): the check mistakes the comparison for one with 0
    auto operator<=>(const FileIdentity&) const = default;
};

// The regular file with this name. Opens nothing: closing any descriptor of a file would release
// the locks by which a transaction of this process holds it.
// Throws Failure: fileNotFound, notADataSource for what is no regular file, accessDenied,
// nameRefused.
FileIdentity identityOf(const std::string& path);

// The name from the root, without links. Throws as identityOf.
std::string absolutePath(const std::string& name);

// Throws the Failure for the system's error number.
[[noreturn]] void throwSystemFailure(int error);

// An open file, closed with the object and not inherited by programs that are started.
class FileDescriptor {
  public:
    // flags: as for open. Throws Failure: fileNotFound, accessDenied, storageFailed.
    FileDescriptor(const std::string& path, int flags);
    ~FileDescriptor();
    FileDescriptor(FileDescriptor&& other) noexcept;
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    [[nodiscard]] int number() const { return number_; }

  private:
    int number_;
};

// Whether the file begins as a data source does, damaged or not.
bool looksLikeDataSource(const FileDescriptor& file);

}  // namespace embedded

#endif
