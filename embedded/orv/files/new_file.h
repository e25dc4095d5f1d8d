// Creates the file of a data source.
#ifndef PYORV3_EMBEDDED_ORV_FILES_NEW_FILE_H
#define PYORV3_EMBEDDED_ORV_FILES_NEW_FILE_H

#include <string>

#include "embedded/orv/files/file_descriptor.h"

namespace embedded {

// A new data source. The file is complete on the disk before it gets its name in one step. Until
// then it has no name if the file system supports that, so that a killed process leaves nothing
// behind; otherwise it has a temporary name ".new-...".
//
// The destructor deletes a published file unless keep was called.
class NewFile {
  public:
    // name: the future name of the file. Throws Failure: nameRefused, fileNotFound if the directory
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

    // Gives the file its name. Throws Failure(fileExists) if the name is taken.
    void publish();
    void keep() noexcept { published_ = false; }

  private:
    const std::string path_;
    const FileDescriptor folder_;
    std::string temporaryPath_;  // empty if the file has no name
    const FileDescriptor file_;
    bool published_ = false;
};

}  // namespace embedded

#endif
