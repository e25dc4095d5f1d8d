// Writes changed blocks of a data source to the rows of a database.
#ifndef PYORV3_EMBEDDED_ORV_FILES_BLOCK_WRITER_H
#define PYORV3_EMBEDDED_ORV_FILES_BLOCK_WRITER_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "embedded/orv/content/content.h"
#include "embedded/orv/files/class_checksums.h"
#include "embedded/orv/files/database.h"

namespace embedded {

// Writes within a transaction of its caller. Functions throw as Database.
class BlockWriter {
  public:
    explicit BlockWriter(Database& database);

    // Deletes and writes only the changed rows. classes: the checksums of the classes in the file,
    // which the function updates.
    void writeChanges(const Content& content, ClassChecksums& classes);

    // As writeChanges, but rewrites all rows of each changed class because the saved rows are not
    // known.
    void writeChangedClasses(const Content& content, ClassChecksums& classes);

  private:
    struct Row {
        std::uint64_t key;
        Checksum checksum;
        std::span<const char> bytes;
    };
    static void appendRows(std::vector<Row>& rows, std::uint16_t classCode, std::size_t number,
                           const Record& record);

    void write(const Content& content, bool wholeClasses, ClassChecksums& classes);
    // Return the checksum of the class.
    Checksum writeBlock(std::uint16_t classCode, const Block& block, bool isReplaced);
    Checksum writeRecordBlock(std::uint16_t classCode, const RecordBlock& records, bool isReplaced);
    void writeRecordChanges(std::uint16_t classCode, const RecordBlock& block);
    void writeValueChanges(std::uint16_t classCode, const RecordBlock& block);
    // Replaces the stored rows of these records, or of all from the first on if last is noLast.
    void writeRecords(std::uint16_t classCode, const RecordBlock& block, std::size_t first,
                      std::size_t last);
    void deleteRecords(std::uint16_t classCode, std::size_t first, std::size_t last);
    void insertRows(std::span<const Row> rows);
    // Write a row and return its checksum. writeRow is faster if the row exists, insertRow if not.
    Checksum writeRow(std::uint32_t code, std::size_t record, std::size_t entry,
                      std::span<const char> bytes);
    Checksum insertRow(std::uint32_t code, std::size_t record, std::size_t entry,
                       std::span<const char> bytes);

    Statement nextKey_;
    Statement deleteRows_;
    Statement updateRow_;
    Statement insertRow_;
    Statement insertRows_;
};

}  // namespace embedded

#endif
