// A data source file that has no name yet.
#ifndef PYORV3_EMBEDDED_ORV_FILES_NEW_FILE_H
#define PYORV3_EMBEDDED_ORV_FILES_NEW_FILE_H

#include <string>

namespace embedded {

// Made complete under a temporary name in the folder where it shall be, so that a data source is
// never seen half made. The temporary name goes with the object.
class NewFile {
  public:
    // name: where the file shall be. Throws Failure: nameRefused, fileNotFound for a folder that
    // does not exist, accessDenied, storageFailed.
    explicit NewFile(const std::string& name);
    ~NewFile();
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    NewFile(NewFile&&) = delete;
    NewFile& operator=(NewFile&&) = delete;

    [[nodiscard]] const std::string& temporaryPath() const { return temporaryPath_; }
    [[nodiscard]] const std::string& finalPath() const { return finalPath_; }

    // Gives the file its name, unless something has it (Failure(fileExists)).
    void publish();

  private:
    std::string folder_;
    std::string finalPath_;
    std::string temporaryPath_;
};

}  // namespace embedded

#endif
