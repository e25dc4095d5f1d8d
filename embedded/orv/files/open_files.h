// The data sources that are open in this process.
#ifndef PYORV3_EMBEDDED_ORV_FILES_OPEN_FILES_H
#define PYORV3_EMBEDDED_ORV_FILES_OPEN_FILES_H

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "embedded/orv/files/data_file.h"

namespace embedded {

// Opens each file only once, even under several names and by several contexts, and saves it when
// they close it and at the end of the process. Safe for use by several threads. Opening and closing
// wait for each other, but not for work on open files.
class OpenFiles {
  public:
    // Opens for one user. Throws Failure as DataFile, fileNotFound, nameRefused, accessDenied.
    std::shared_ptr<DataFile> open(const std::string& name, bool writing);

    // Creates an empty data source and opens it for one user that writes. If it fails, it leaves no
    // file behind. Throws Failure also: fileExists, nameRefused, accessDenied, storageFailed.
    std::shared_ptr<DataFile> create(const std::string& name);

    // Saves the file and ends the use by one user. If saving fails, the use continues.
    void close(const std::shared_ptr<DataFile>& file, bool writing);
    // As close, but the use ends in any case. If saving fails, the file stays open and is saved at
    // the next opportunity, at the latest at the end of the process.
    void abandon(const std::shared_ptr<DataFile>& file, bool writing);

    // Saves the files that this process opened; prints failures to standard error.
    void saveAll() noexcept;

    // Called first in a forked process. Neither allocates nor waits.
    void leaveToParent() noexcept;

  private:
    struct Entry {
        std::shared_ptr<DataFile> file;
        std::size_t users = 0;
        std::size_t writers = 0;
    };

    Entry* find(const FileIdentity& identity);
    void endUse(const std::shared_ptr<DataFile>& file, bool writing);

    std::mutex mutex_;
    std::map<FileIdentity, Entry> entries_;
};

// Returns the instance of this process. The first call may throw std::bad_alloc.
OpenFiles& openFiles();

// True if the name is that of a readable data source, which may be damaged. Throws Failure:
// storageFailed if that cannot be determined, tooManyOpen.
bool isDataSource(const std::string& name);

}  // namespace embedded

#endif
