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

// Sees to it that a file is open once, whatever names and contexts it is opened by, and that it is
// saved when they close it and at the latest when the process ends. Any thread may call any
// function. Opening and closing wait for each other; work on open files does not wait for them.
class OpenFiles {
  public:
    // Opens for one user. Throws Failure as DataFile, fileNotFound, nameRefused, accessDenied.
    std::shared_ptr<DataFile> open(const std::string& name, bool writing);

    // Makes an empty data source and opens it for one user that writes. A name that is taken is
    // refused (fileExists), and a creation that fails leaves nothing behind.
    // Throws Failure also: nameRefused, accessDenied, storageFailed.
    std::shared_ptr<DataFile> create(const std::string& name);

    // Saves the file and ends one user's use of it. When saving fails, the use goes on.
    void close(const std::shared_ptr<DataFile>& file, bool writing);
    // As close, but the use ends in any case. What could not be saved stays here and is saved at
    // the next opportunity, which is the end of the process when there is none before.
    void abandon(const std::shared_ptr<DataFile>& file, bool writing);

    // Saves what this process opened; reports what cannot be saved on the standard error stream.
    void saveAll() noexcept;

    // In a forked process, before anything else. Neither allocates nor waits.
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

// The one of this process. Throws std::bad_alloc when it is made.
OpenFiles& openFiles();

// Whether the name stands for a data source, damaged or not, that may be read. Throws
// Failure(storageFailed) where that cannot be said, and tooManyOpen.
bool isDataSource(const std::string& name);

}  // namespace embedded

#endif
