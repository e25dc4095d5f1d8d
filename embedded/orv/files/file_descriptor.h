// What the library asks of files besides SQLite.
#ifndef PYORV3_EMBEDDED_ORV_FILES_FILE_DESCRIPTOR_H
#define PYORV3_EMBEDDED_ORV_FILES_FILE_DESCRIPTOR_H

#include <sys/stat.h>
#include <sys/types.h>

#include <array>
#include <compare>
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

// True if the file has further names (hard links). Opens nothing. Throws Failure as identityOf.
bool hasSeveralNames(const std::string& path);

// Throws the Failure for the system's error number, or std::bad_alloc.
[[noreturn]] void throwSystemFailure(int error);

// An open file, closed with the object and not inherited by programs that are started.
class FileDescriptor {
  public:
    // What a system call returned: a descriptor, or -1. Throws the Failure for its error.
    explicit FileDescriptor(int number);
    // flags, mode: as for open. Throws Failure: fileNotFound, accessDenied, tooManyOpen,
    // storageFailed.
    FileDescriptor(const std::string& path, int flags, mode_t mode = 0);
    ~FileDescriptor() { close(); }
    FileDescriptor(FileDescriptor&& other) noexcept;
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    [[nodiscard]] int number() const { return number_; }
    // Another number for the same opening of the file, with which it shares its locks.
    [[nodiscard]] FileDescriptor duplicate() const;
    void close() noexcept;

  private:
    int number_;
};

// Keeps two descriptors for the time when a file is saved: SQLite opens the journal, and the
// folder to sync it.
class ReservedDescriptors {
  public:
    // Throws Failure(tooManyOpen).
    ReservedDescriptors();

    // While it lives, the descriptors are free for use.
    class Use {
      public:
        explicit Use(ReservedDescriptors& reserved);
        // Reserves them again, as far as nobody else has taken them.
        ~Use();
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        Use(Use&&) = delete;
        Use& operator=(Use&&) = delete;

      private:
        ReservedDescriptors& reserved_;
    };

  private:
    std::array<FileDescriptor, 2> descriptors_;
};

}  // namespace embedded

#endif
