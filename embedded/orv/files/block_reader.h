// From the rows of a database to the blocks of a data source.
#ifndef PYORV3_EMBEDDED_ORV_FILES_BLOCK_READER_H
#define PYORV3_EMBEDDED_ORV_FILES_BLOCK_READER_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "embedded/orv/content/checksum.h"
#include "embedded/orv/content/content.h"
#include "embedded/orv/files/class_checksums.h"
#include "embedded/orv/files/database.h"

namespace embedded {

// Reads within a transaction of its caller. Functions throw Failure(damaged) for rows that
// contradict each other, the format, the dictionary or their checksums, and as Database.
class BlockReader {
  public:
    // version: of the schema.
    BlockReader(Database& database, std::uint32_t version);

    [[nodiscard]] std::uint32_t version() const { return version_; }

    // Reads which classes have a block, and their checksums, which the functions below use.
    const ClassChecksums& readClasses();
    [[nodiscard]] const ClassChecksums& classes() const { return checksums_; }
    // Replaces the checksums after the caller has saved.
    void setClasses(ClassChecksums classes) noexcept { checksums_ = std::move(classes); }

    // Reads the block of a class that has one.
    Block read(std::uint16_t classCode);

    // Refuses rows of a class that has no block.
    void requireNothingOf(std::uint16_t classCode);

    // Reads every block, and refuses rows that belong to none. Keeps nothing in memory.
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
    // The current row of a class. Adds its checksum, which it verifies, to the sum.
    Row verifiedRow(const Execution& row, Checksum& sum) const;
    [[nodiscard]] Block readRows(std::uint16_t classCode, BlockKind kind, Checksum& sum);

    const std::uint32_t version_;
    ClassChecksums checksums_;
    Statement classes_;  // of version 1
    Statement rows_;
    Statement rowCount_;
    std::uint64_t rowsRead_ = 0;
};

}  // namespace embedded

#endif
