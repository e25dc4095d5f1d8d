// From what was changed in the blocks of a data source to the rows of a database.
#ifndef PYORV3_EMBEDDED_ORV_FILES_BLOCK_WRITER_H
#define PYORV3_EMBEDDED_ORV_FILES_BLOCK_WRITER_H

#include <cstdint>

#include "embedded/orv/content/content.h"
#include "embedded/orv/files/database.h"

namespace embedded {

// Writes within a transaction of its caller. Functions throw as Database.
class BlockWriter {
  public:
    explicit BlockWriter(Database& database);

    // Deletes and writes the rows of what was changed and no others.
    void writeChanges(const Content& content);

    // As writeChanges, but each changed class whole: what was saved of it is not known.
    void writeChangedClasses(const Content& content);

  private:
    void write(const Content& content, bool wholeClasses);
    void removeClass(std::uint16_t classCode);
    void writeBlock(std::uint16_t classCode, const Block& block, bool anew);
    void writeRecordChanges(std::uint16_t classCode, const RecordBlock& block);
    void writeValueChanges(std::uint16_t classCode, const RecordBlock& block);
    // Replaces what is stored of these records and, where there is no last, of those behind.
    void writeRecords(std::uint16_t classCode, const RecordBlock& block, std::size_t first,
                      std::size_t last);
    void deleteRecords(std::uint16_t classCode, std::size_t first, std::size_t last);
    void writeRecord(std::uint16_t classCode, std::size_t number, const Record& record);

    Statement deleteBlock_;
    Statement putBlock_;
    Statement deletePlaces_;
    Statement nextCode_;
    Statement deleteValues_;
    Statement putPlace_;
    Statement putValue_;
};

}  // namespace embedded

#endif
