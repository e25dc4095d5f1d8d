// Operations on files that SQLite does not offer.
#ifndef PYORV3_EMBEDDED_ORV_FILES_FILE_DESCRIPTOR_H
#define PYORV3_EMBEDDED_ORV_FILES_FILE_DESCRIPTOR_H

#include <sys/stat.h>
#include <sys/types.h>

#include <array>
#include <compare>
#include <string>

namespace embedded {

// Identifies a file independently of its names.
struct FileIdentity {
    dev_t device;
    ino_t inode;

    // NOLINTNEXTLINE(modernize-use-nullptr): the check mistakes the comparison for one with 0
    auto operator<=>(const FileIdentity&) const = default;
};

// Returns the identity of the regular file with this name. Does not open it: closing any descriptor
// of a file would release the locks of a transaction of this process.
// Throws Failure: fileNotFound, notADataSource if it is not a regular file, accessDenied,
// nameRefused.
FileIdentity identityOf(const std::string& path);

// True if the file has further names (hard links). Does not open it. Throws Failure as identityOf.
bool hasSeveralNames(const std::string& path);

// Throws the Failure for the system's error number, or std::bad_alloc.
[[noreturn]] void throwSystemFailure(int error);

// Owns an open file. Started programs do not inherit it.
class FileDescriptor {
  public:
    // number: the result of a system call. Throws the Failure for errno if it is -1.
    explicit FileDescriptor(int number);
    // Opens a file. flags, mode: as for open. Throws Failure: fileNotFound, accessDenied,
    // tooManyOpen, storageFailed.
    FileDescriptor(const std::string& path, int flags, mode_t mode = 0);
    ~FileDescriptor() { close(); }
    FileDescriptor(FileDescriptor&& other) noexcept;
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    [[nodiscard]] int number() const { return number_; }
    // Returns a duplicate of the descriptor, which shares its locks.
    [[nodiscard]] FileDescriptor duplicate() const;
    void close() noexcept;

  private:
    int number_;
};

// Reserves two descriptors for saving a file: SQLite opens the journal, and its directory to sync
// it.
class ReservedDescriptors {
  public:
    // Throws Failure(tooManyOpen).
    ReservedDescriptors();

    // Frees the descriptors during its life.
    class Use {
      public:
        explicit Use(ReservedDescriptors& reserved);
        // Reserves the descriptors again if they are still free.
        ~Use();
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        Use(Use&&) = delete;
        Use& operator=(Use&&) = delete;

      private:
        ReservedDescriptors& reserved_;
    };

  private:
    const FileDescriptor original_;  // duplicating it costs less than opening a file
    std::array<FileDescriptor, 2> descriptors_;
};

}  // namespace embedded

#endif
