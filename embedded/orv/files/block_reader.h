// Reads the blocks of a data source from the rows of a database.
#ifndef PYORV3_EMBEDDED_ORV_FILES_BLOCK_READER_H
#define PYORV3_EMBEDDED_ORV_FILES_BLOCK_READER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "embedded/orv/content/checksum.h"
#include "embedded/orv/content/content.h"
#include "embedded/orv/files/class_checksums.h"
#include "embedded/orv/files/database.h"

namespace embedded {

// The records of a damaged class in their order; nullopt for those that are lost.
using SalvagedRecords = std::vector<std::optional<Record>>;

// Reads within a transaction of its caller. Functions throw as Database, and Failure(damaged) for
// rows that contradict each other, the format, the dictionary or their checksums.
class BlockReader {
  public:
    // version: of the schema.
    BlockReader(Database& database, std::uint32_t version);

    [[nodiscard]] std::uint32_t version() const { return version_; }

    // Reads the directory: which classes have a block, and their checksums, which the functions
    // below use.
    const ClassChecksums& readClasses();
    // As readClasses, but reads as much as possible of a damaged directory and returns false. A
    // class whose rows match its checksum there is sound nevertheless; any other one is damaged.
    // Throws Failure(damaged) if no row at all can be read.
    bool readPossibleClasses();
    [[nodiscard]] const ClassChecksums& classes() const { return checksums_; }
    // Sets the checksums after a save.
    void setClasses(ClassChecksums classes) noexcept { checksums_ = std::move(classes); }

    // Reads the block of a class that has one.
    Block read(std::uint16_t classCode);

    // Returns the records of a damaged class of records whose readable rows all match their
    // checksums. Rows may be missing, so a record may lack values. A class without a block or
    // without checksums has none.
    SalvagedRecords salvageRecords(std::uint16_t classCode);
    // Returns the block of a damaged class of another kind if its row matches its checksum. Throws
    // Failure(noSuchRecord) if there is no such row.
    Block salvageBlock(std::uint16_t classCode);

    // Throws Failure(damaged) if a class without a block has rows.
    void requireNothingOf(std::uint16_t classCode);

    // Reads and discards every block. Throws Failure(damaged) if a row belongs to no block.
    void readAll();

  private:
    struct Row {
        std::uint32_t code;
        std::size_t record;
        std::size_t entry;
        std::span<const char> bytes;
    };

    [[nodiscard]] bool hasChecksums() const { return version_ > 1; }
    ClassChecksums readDirectory();
    // Ignores all checksums and unknown classes.
    ClassChecksums readUnverifiedDirectory();
    void requireReadableRow();
    // Returns the current row of a class, verifies its checksum and adds that to the sum.
    Row verifiedRow(const Execution& row, Checksum& sum) const;
    [[nodiscard]] Block readRows(std::uint16_t classCode, BlockKind kind, Checksum& sum);

    class Collection;
    // Adds the rows that the statement can read.
    void collect(Statement& rows, std::uint16_t classCode, Collection& collection) const;

    const std::uint32_t version_;
    ClassChecksums checksums_;
    bool isDirectoryDamaged_ = false;
    Statement classes_;  // of version 1
    Statement rows_;
    Statement rowsBackwards_;
    Statement rowCount_;
    std::uint64_t rowsRead_ = 0;
};

}  // namespace embedded

#endif
