#include "embedded/orv/files/block_writer.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <span>

#include "embedded/pqar/parameter_codes.h"

namespace embedded {
namespace {

constexpr std::size_t noLast = std::numeric_limits<std::int64_t>::max();

std::int64_t number(std::size_t value) {
    return static_cast<std::int64_t>(value);
}

std::span<const char> bytesOf(const SpectrumBlock& spectrum) {
    const auto bytes = std::as_bytes(std::span(spectrum.contents()));
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

BlockWriter::BlockWriter(Database& database)
    : nextCode_(database, "SELECT code FROM item WHERE code > ? ORDER BY code LIMIT 1"),
      deleteRows_(database, "DELETE FROM item WHERE code = ? AND record BETWEEN ? AND ?"),
      putRow_(database, "INSERT OR REPLACE INTO item VALUES(?, ?, ?, ?, ?)") {}

void BlockWriter::writeChanges(const Content& content, ClassChecksums& classes) {
    write(content, false, classes);
}

void BlockWriter::writeChangedClasses(const Content& content, ClassChecksums& classes) {
    write(content, true, classes);
}

void BlockWriter::write(const Content& content, bool wholeClasses, ClassChecksums& classes) {
    for (const std::uint16_t classCode : content.removedClasses()) {
        deleteRecords(classCode, 0, noLast);
        classes.remove(classCode);
    }
    for (const auto& [classCode, block, isReplaced] : content.changedBlocks()) {
        classes.set(classCode, writeBlock(classCode, *block, isReplaced || wholeClasses));
    }
    writeRow(directoryCode, 0, 0, classes.bytes());
}

Checksum BlockWriter::writeBlock(std::uint16_t classCode, const Block& block, bool isReplaced) {
    const std::uint32_t code = codeOfBlock(classCode);
    if (const auto* spectrum = std::get_if<SpectrumBlock>(&block)) {
        return writeRow(code, 0, 0, bytesOf(*spectrum));
    }
    if (const auto* unformatted = std::get_if<UnformattedBlock>(&block)) {
        return writeRow(code, 0, 0, unformatted->bytes());
    }
    const auto& records = std::get<RecordBlock>(block);
    if (!isReplaced) {
        writeRecordChanges(classCode, records);
        return checksumOfRow(code, 0, 0, {}) + records.checksum();
    }
    writeRecords(classCode, records, 0, noLast);
    return writeRow(code, 0, 0, {}) + records.checksum();
}

void BlockWriter::writeRecordChanges(std::uint16_t classCode, const RecordBlock& block) {
    const RecordChanges& changes = block.changes();
    writeValueChanges(classCode, block);
    for (const std::size_t record : changes.records()) {
        writeRecords(classCode, block, record, record);
    }
    if (changes.movedFrom() != RecordChanges::noRecord) {
        writeRecords(classCode, block, changes.movedFrom(), noLast);
    }
}

void BlockWriter::writeValueChanges(std::uint16_t classCode, const RecordBlock& block) {
    for (const auto& [record, entry, code] : block.changes().values()) {
        const Record& holder = block.record(record);
        if (block.changes().records().contains(record) || entry > holder.entries.size()) {
            continue;
        }
        if (code == RecordChanges::newEntry) {
            writeRow(codeOfBlock(classCode), record, entry, {});
        } else if (const auto bytes = holder.valuesOf(entry).find(code)) {
            writeRow(code, record, entry, *bytes);
        }
    }
}

void BlockWriter::writeRecords(std::uint16_t classCode, const RecordBlock& block, std::size_t first,
                               std::size_t last) {
    deleteRecords(classCode, first, last);
    const std::size_t stop = std::min(last, block.recordCount());
    for (std::size_t record = std::max<std::size_t>(first, 1); record <= stop; ++record) {
        writeRecord(classCode, record, block.record(record));
    }
}

// The key of a row begins with its code, so that the rows of some records are deleted code by code.
void BlockWriter::deleteRecords(std::uint16_t classCode, std::size_t first, std::size_t last) {
    std::int64_t code = std::int64_t{codeOfBlock(classCode)} - 1;
    for (;;) {
        {
            Execution next(nextCode_, code);
            if (!next.step()) {
                break;
            }
            code = next.number(0, std::numeric_limits<std::uint32_t>::max());
        }
        if (classOf(static_cast<std::uint32_t>(code)) != classCode) {
            break;
        }
        run(deleteRows_, code, number(first), number(last));
    }
}

void BlockWriter::writeRecord(std::uint16_t classCode, std::size_t recordNumber,
                              const Record& record) {
    for (std::size_t entry = 0; entry <= record.entries.size(); ++entry) {
        writeRow(codeOfBlock(classCode), recordNumber, entry, {});
        for (const Value value : record.valuesOf(entry)) {
            writeRow(value.code, recordNumber, entry, value.bytes);
        }
    }
}

Checksum BlockWriter::writeRow(std::uint32_t code, std::size_t record, std::size_t entry,
                               std::span<const char> bytes) {
    const Checksum checksum = checksumOfRow(code, record, entry, bytes);
    run(putRow_, std::int64_t{code}, number(record), number(entry), bytes, checksum);
    return checksum;
}

}  // namespace embedded
