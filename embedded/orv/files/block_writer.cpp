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
    : deleteBlock_(database, "DELETE FROM block WHERE class = ?"),
      putBlock_(database, "INSERT OR REPLACE INTO block VALUES(?, ?)"),
      deletePlaces_(database, "DELETE FROM place WHERE class = ? AND record BETWEEN ? AND ?"),
      nextCode_(database, "SELECT code FROM value WHERE code > ? ORDER BY code LIMIT 1"),
      deleteValues_(database, "DELETE FROM value WHERE code = ? AND record BETWEEN ? AND ?"),
      putPlace_(database, "INSERT OR REPLACE INTO place VALUES(?, ?, ?)"),
      putValue_(database, "INSERT OR REPLACE INTO value VALUES(?, ?, ?, ?)") {}

void BlockWriter::writeChanges(const Content& content) {
    write(content, false);
}

void BlockWriter::writeChangedClasses(const Content& content) {
    write(content, true);
}

void BlockWriter::write(const Content& content, bool wholeClasses) {
    for (const std::uint16_t classCode : content.removedClasses()) {
        removeClass(classCode);
    }
    for (const auto& [classCode, block, anew] : content.changedBlocks()) {
        writeBlock(classCode, *block, anew || wholeClasses);
    }
}

void BlockWriter::removeClass(std::uint16_t classCode) {
    run(deleteBlock_, std::int64_t{classCode});
    deleteRecords(classCode, 0, noLast);
}

void BlockWriter::writeBlock(std::uint16_t classCode, const Block& block, bool anew) {
    if (const auto* spectrum = std::get_if<SpectrumBlock>(&block)) {
        run(putBlock_, std::int64_t{classCode}, bytesOf(*spectrum));
    } else if (const auto* unformatted = std::get_if<UnformattedBlock>(&block)) {
        run(putBlock_, std::int64_t{classCode}, unformatted->bytes());
    } else if (anew) {
        run(putBlock_, std::int64_t{classCode}, nullptr);
        writeRecords(classCode, std::get<RecordBlock>(block), 0, noLast);
    } else {
        writeRecordChanges(classCode, std::get<RecordBlock>(block));
    }
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
            run(putPlace_, std::int64_t{classCode}, number(record), number(entry));
        } else if (const auto bytes = holder.valuesOf(entry).find(code)) {
            run(putValue_, std::int64_t{code}, number(record), number(entry),
                std::span<const char>(*bytes));
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

// Values stand by their code first, so that those of some records are looked for code by code.
void BlockWriter::deleteRecords(std::uint16_t classCode, std::size_t first, std::size_t last) {
    run(deletePlaces_, std::int64_t{classCode}, number(first), number(last));
    std::int64_t code = (std::int64_t{classCode} << 16U) - 1;
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
        run(deleteValues_, code, number(first), number(last));
    }
}

void BlockWriter::writeRecord(std::uint16_t classCode, std::size_t recordNumber,
                              const Record& record) {
    for (std::size_t entry = 0; entry <= record.entries.size(); ++entry) {
        run(putPlace_, std::int64_t{classCode}, number(recordNumber), number(entry));
        for (const Value value : record.valuesOf(entry)) {
            run(putValue_, std::int64_t{value.code}, number(recordNumber), number(entry),
                std::span<const char>(value.bytes));
        }
    }
}

}  // namespace embedded
