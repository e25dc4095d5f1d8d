// A data source's content in its file, an SQLite 3 database (FORMAT.md).
#ifndef PYORV3_EMBEDDED_ORV_FILES_STORAGE_H
#define PYORV3_EMBEDDED_ORV_FILES_STORAGE_H

#include <cstdint>
#include <string>

#include "embedded/orv/content/content.h"

namespace embedded {

// "QAR3" as the database's application id; at byte 68 of the file, most significant byte first.
inline constexpr std::uint32_t applicationId = 0x51415233;
// The database's user version.
inline constexpr std::int64_t schemaVersion = 1;

// Makes the database of an empty data source. The file must not exist or be empty.
// Throws Failure: storageFailed, accessDenied.
void createStorage(const std::string& path);

// Reads a file whole, as it was at one moment. Throws Failure: damaged for a file that is cut off,
// does not hold together or has a newer schema version; storageFailed, accessDenied.
Content loadStorage(const std::string& path);

// Replaces the file's content in one transaction that is on the disk when the call returns: a
// process killed during the call leaves the old content or the new.
// Throws Failure: storageFailed, accessDenied, damaged; the file has its old content then.
void saveStorage(const std::string& path, const Content& content);

// Gives the file's unused room back to the file system. Throws as saveStorage.
void compactStorage(const std::string& path);

}  // namespace embedded

#endif
