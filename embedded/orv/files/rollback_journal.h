// Reads the file format of SQLite's rollback journals.
#ifndef PYORV3_EMBEDDED_ORV_FILES_ROLLBACK_JOURNAL_H
#define PYORV3_EMBEDDED_ORV_FILES_ROLLBACK_JOURNAL_H

#include <cstdint>
#include <optional>
#include <string>

#include "embedded/orv/files/first_page.h"

namespace embedded {

// A rollback journal begins with a header of one sector: magic, number of page records, seed of
// their checksums, page count of the database, sector size, page size. The page records follow:
// page number, page, checksum. A large transaction has several such parts.
class RollbackJournal {
  public:
    // Reads the file. nullopt if SQLite ignores it because it is missing, too short or not a
    // journal.
    static std::optional<RollbackJournal> read(const std::string& path);

    // Returns the size in bytes that a rollback gives the database.
    [[nodiscard]] std::int64_t databaseSize() const { return databaseSize_; }
    // True if a rollback would write pages.
    [[nodiscard]] bool hasPages() const { return hasPages_; }
    // The database's first page before the transaction; nullopt if the journal does not contain it.
    [[nodiscard]] const std::optional<FirstPage>& firstPage() const { return firstPage_; }

  private:
    std::int64_t databaseSize_ = 0;
    bool hasPages_ = false;
    std::optional<FirstPage> firstPage_;
};

}  // namespace embedded

#endif
