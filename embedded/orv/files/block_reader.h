// From the rows of a database to the blocks of a data source.
#ifndef PYORV3_EMBEDDED_ORV_FILES_BLOCK_READER_H
#define PYORV3_EMBEDDED_ORV_FILES_BLOCK_READER_H

#include <cstdint>
#include <vector>

#include "embedded/orv/content/content.h"
#include "embedded/orv/files/database.h"

namespace embedded {

// Reads within a transaction of its caller. Functions throw Failure(damaged) for rows that
// contradict each other, the format or the dictionary, and as Database.
class BlockReader {
  public:
    explicit BlockReader(Database& database);

    // The classes that have a block.
    std::vector<std::uint16_t> classes();

    // The block of one of them.
    Block read(std::uint16_t classCode);

    // Refuses rows of a class that has no block.
    void requireNothingOf(std::uint16_t classCode);

    // Every block, and that no row belongs to none of them. Keeps nothing in memory.
    void readAll();

  private:
    [[nodiscard]] Block readContent(std::uint16_t classCode, BlockKind kind) const;
    std::vector<Record> readPlaces(std::uint16_t classCode);
    void readValues(std::uint16_t classCode, std::vector<Record>& records);

    Database& database_;
    Statement classes_;
    Statement places_;
    Statement values_;
    Statement placeCount_;
    Statement valueCount_;
    // Rows read so far.
    std::uint64_t placesRead_ = 0;
    std::uint64_t valuesRead_ = 0;
};

}  // namespace embedded

#endif
