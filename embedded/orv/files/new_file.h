// A data source file that is about to get its name.
#ifndef PYORV3_EMBEDDED_ORV_FILES_NEW_FILE_H
#define PYORV3_EMBEDDED_ORV_FILES_NEW_FILE_H

#include <string>

#include "embedded/orv/files/file_descriptor.h"

namespace embedded {

// Complete on the disk before it appears under its name in one step, so that a data source is never
// seen half made. Where the file system has files without a name, nothing else is ever seen, also
// of a creation that is killed; elsewhere it has a temporary name ".new-..." before.
//
// A name that it gave goes with the object unless it is kept.
class NewFile {
  public:
    // name: where the file shall be. Throws Failure: nameRefused, fileNotFound for a folder that
    // does not exist, accessDenied, tooManyOpen, storageFailed.
    explicit NewFile(const std::string& name);
    ~NewFile();
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    NewFile(NewFile&&) = delete;
    NewFile& operator=(NewFile&&) = delete;

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] FileIdentity identity() const;
    // Open for reading and writing.
    [[nodiscard]] FileDescriptor descriptor() const { return file_.duplicate(); }

    // Gives the file its name, unless something has it (Failure(fileExists)).
    void publish();
    void keep() noexcept { published_ = false; }

  private:
    const std::string path_;
    const FileDescriptor folder_;
    std::string temporaryPath_;  // empty where the file has no name
    const FileDescriptor file_;
    bool published_ = false;
};

}  // namespace embedded

#endif
