#include "embedded/orv/files/block_reader.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <map>
#include <set>
#include <span>
#include <string>
#include <utility>

#include "embedded/orv/content/failure.h"
#include "embedded/pqar/parameter_codes.h"
#include "embedded/pqar/parameter_table.h"

namespace embedded {
namespace {

constexpr std::uint32_t maxNumber = 65535;           // of classes, records and entries
constexpr std::uint16_t lastPositiveClass = 0x7FFF;  // keys are signed in SQL
constexpr std::uint32_t maxCount = std::numeric_limits<std::uint32_t>::max();

std::uint64_t firstKeyOf(std::uint16_t classCode) {
    return keyOfRow(codeOfBlock(classCode), 0, 0);
}

std::uint64_t lastKeyOf(std::uint16_t classCode) {
    return keyOfRow(codeOfBlock(classCode) | maxNumber, maxNumber, maxNumber);
}

[[noreturn]] void refuse() {
    throw Failure(codes::damaged);
}

bool isClass(std::uint16_t classCode) {
    try {
        kindOf(classCode);
    } catch (const Failure&) {
        return false;
    }
    return true;
}

SpectrumBlock spectrumOf(std::span<const char> bytes) {
    constexpr std::size_t width = sizeof(std::int32_t);
    if (bytes.size() % width != 0 || bytes.size() / width > SpectrumBlock::capacity) {
        refuse();
    }
    std::vector<std::int32_t> contents(bytes.size() / width);
    std::ranges::copy(std::as_bytes(bytes), std::as_writable_bytes(std::span(contents)).begin());
    return SpectrumBlock(std::move(contents));
}

UnformattedBlock unformattedOf(std::span<const char> bytes) {
    if (bytes.size() > UnformattedBlock::capacity) {
        refuse();
    }
    return UnformattedBlock({bytes.begin(), bytes.end()});
}

// The class is not one of records.
Block blockOf(std::uint16_t classCode, std::span<const char> bytes) {
    return kindOf(classCode) == BlockKind::Spectrum ? Block(spectrumOf(bytes))
                                                    : Block(unformattedOf(bytes));
}

void addRecordOrEntry(std::vector<Record>& records, std::size_t record, std::size_t entry) {
    if (entry == 0 && record == records.size() + 1) {
        records.emplace_back();
    } else if (entry > 0 && record == records.size() &&
               entry == records.back().entries.size() + 1) {
        records.back().entries.emplace_back();
    } else {
        refuse();
    }
}

// Values of codes that the dictionary does not know are kept: a later dictionary may know them.
void requireFittingValue(std::uint32_t code, std::size_t entry, std::span<const char> bytes) {
    const ParameterDescription* parameter = findParameter(code);
    if (parameter == nullptr) {
        if (bytes.size() > Values::maxValueSize) {
            refuse();
        }
        return;
    }
    const bool hasRightScope = (entry > 0) == (parameter->scope == ParameterScope::Entry);
    const bool hasRightSize =
        parameter->isText()
            ? bytes.size() < parameter->size() &&
                  (bytes.empty() || std::memchr(bytes.data(), '\0', bytes.size()) == nullptr)
            : bytes.size() == parameter->size();
    if (!hasRightScope || !hasRightSize) {
        refuse();
    }
}

void addValue(std::vector<Record>& records, std::uint32_t code, std::size_t record,
              std::size_t entry, std::span<const char> bytes) {
    if (record > records.size() || entry > records[record - 1].entries.size()) {
        refuse();
    }
    requireFittingValue(code, entry, bytes);
    records[record - 1].valuesOf(entry).set(code, {bytes.data(), bytes.size()});
}

// The rows of version 1 with the columns of the later table. NOT INDEXED gives the order of their
// keys. Rows whose numbers do not fit into a key get the key of the block, which read refuses.
constexpr const char* rowsOfVersion1 =
    "SELECT class << 48, 0, content FROM block WHERE class = ?1 >> 48"
    " UNION ALL SELECT iif(record BETWEEN 1 AND 65535 AND entry BETWEEN 0 AND 65535,"
    " (class << 48) + (record << 16) + entry, ?1), 0, x'' FROM place NOT INDEXED"
    " WHERE class = ?1 >> 48"
    " UNION ALL SELECT iif(record BETWEEN 1 AND 65535 AND entry BETWEEN 0 AND 65535,"
    " (code << 32) + (record << 16) + entry, ?1), 0, bytes FROM value"
    " WHERE code BETWEEN ?1 >> 32 AND ?2 >> 32";

}  // namespace

BlockReader::BlockReader(Database& database, std::uint32_t version)
    : version_(version),
      classes_(database, "SELECT class FROM block"),
      rows_(database, hasChecksums() ? "SELECT key, checksum, bytes FROM item"
                                       " WHERE key BETWEEN ? AND ? ORDER BY key"
                                     : rowsOfVersion1),
      rowsBackwards_(database,
                     "SELECT key, checksum, bytes FROM item"
                     " WHERE key BETWEEN ? AND ? ORDER BY key DESC"),
      rowCount_(database, hasChecksums()
                              ? "SELECT count(*) FROM item"
                              : "SELECT (SELECT count(*) FROM block) +"
                                " (SELECT count(*) FROM place) + (SELECT count(*) FROM value)") {}

const ClassChecksums& BlockReader::readClasses() {
    checksums_ = ClassChecksums();
    if (hasChecksums()) {
        checksums_ = readDirectory();
    } else {
        for (Execution row(classes_); row.step();) {
            checksums_.set(static_cast<std::uint16_t>(row.number(0, maxNumber)), 0);
        }
    }
    if (!std::ranges::all_of(checksums_.classes(), isClass)) {
        refuse();
    }
    return checksums_;
}

bool BlockReader::readPossibleClasses() {
    try {
        readClasses();
        isDirectoryDamaged_ = false;
    } catch (const Failure& failure) {
        if (failure.code() != codes::damaged || !hasChecksums()) {
            throw;
        }
        checksums_ = readUnverifiedDirectory();
        isDirectoryDamaged_ = true;
    }
    return !isDirectoryDamaged_;
}

ClassChecksums BlockReader::readUnverifiedDirectory() {
    ClassChecksums directory;
    try {
        const std::uint64_t key = keyOfRow(directoryCode, 0, 0);
        Execution row(rows_, key, key);
        if (row.step()) {
            directory = ClassChecksums(row.bytes(2));
        }
    } catch (const Failure& failure) {
        if (failure.code() != codes::damaged) {
            throw;
        }
    }
    for (const std::uint16_t classCode : directory.classes()) {
        if (!isClass(classCode)) {
            directory.remove(classCode);
        }
    }
    if (directory.classes().empty()) {
        requireReadableRow();
    }
    return directory;
}

void BlockReader::requireReadableRow() {
    if (!Execution(rowsBackwards_, firstKeyOf(0), lastKeyOf(lastPositiveClass)).step()) {
        refuse();
    }
}

ClassChecksums BlockReader::readDirectory() {
    const std::uint64_t key = keyOfRow(directoryCode, 0, 0);
    Execution row(rows_, key, key);
    if (!row.step()) {
        refuse();
    }
    Checksum sum = 0;
    return ClassChecksums(verifiedRow(row, sum).bytes);
}

BlockReader::Row BlockReader::verifiedRow(const Execution& row, Checksum& sum) const {
    const std::uint64_t key = row.bits(0);
    const Row result{static_cast<std::uint32_t>(key >> 32U), static_cast<std::uint16_t>(key >> 16U),
                     static_cast<std::uint16_t>(key), row.bytes(2)};
    const Checksum checksum = checksumOfRow(result.code, result.record, result.entry, result.bytes);
    if (hasChecksums() && row.bits(1) != checksum) {
        refuse();
    }
    sum += checksum;
    return result;
}

Block BlockReader::read(std::uint16_t classCode) {
    Checksum sum = 0;
    Block block = readRows(classCode, kindOf(classCode), sum);
    if (hasChecksums() && sum != checksums_.of(classCode)) {
        refuse();
    }
    return block;
}

Block BlockReader::readRows(std::uint16_t classCode, BlockKind kind, Checksum& sum) {
    const std::uint32_t first = codeOfBlock(classCode);
    Execution rows(rows_, firstKeyOf(classCode), lastKeyOf(classCode));
    if (!rows.step() || rows.isBlob(2) == (kind == BlockKind::Records && !hasChecksums())) {
        refuse();
    }
    const Row head = verifiedRow(rows, sum);
    ++rowsRead_;
    if (head.code != first || head.record != 0 || head.entry != 0) {
        refuse();
    }
    if (kind != BlockKind::Records) {
        Block block = blockOf(classCode, head.bytes);
        if (rows.step()) {
            refuse();
        }
        return block;
    }
    std::vector<Record> records;
    for (; rows.step(); ++rowsRead_) {
        const Row row = verifiedRow(rows, sum);
        if (row.record == 0) {
            refuse();
        } else if (row.code == first) {
            addRecordOrEntry(records, row.record, row.entry);
        } else {
            addValue(records, row.code, row.record, row.entry, row.bytes);
        }
    }
    return RecordBlock(std::move(records), sum - checksumOfRow(first, 0, 0, {}));
}

// ---- Salvage ---------------------------------------------------------------------------------

// The rows of a damaged class by their record.
class BlockReader::Collection {
  public:
    void add(const Row& row) {
        rows_[row.record].insert_or_assign({row.code, row.entry},
                                           std::string(row.bytes.begin(), row.bytes.end()));
    }
    void addWrong(std::size_t record) { wrong_.insert(record); }

    // A wrong row behind the last record may have a wrong key, unless it has the next number.
    [[nodiscard]] SalvagedRecords records() const {
        const std::size_t last = rows_.empty() ? 0 : rows_.rbegin()->first;
        SalvagedRecords records;
        while (records.size() < last || wrong_.contains(records.size() + 1)) {
            records.push_back(record(records.size() + 1));
        }
        return records;
    }

  private:
    // By code and entry.
    using RowsOfRecord = std::map<std::pair<std::uint32_t, std::size_t>, std::string>;

    [[nodiscard]] std::optional<Record> record(std::size_t number) const {
        const auto rows = rows_.find(number);
        if (rows == rows_.end() || wrong_.contains(number)) {
            return std::nullopt;
        }
        try {
            return recordOf(rows->second);
        } catch (const Failure&) {  // a row of the record or of an entry is missing
            return std::nullopt;
        }
    }
    static Record recordOf(const RowsOfRecord& rows) {
        std::vector<Record> record;
        for (const auto& [codeAndEntry, bytes] : rows) {
            const auto& [code, entry] = codeAndEntry;
            if (code == codeOfBlock(classOf(code))) {
                addRecordOrEntry(record, 1, entry);
            } else {
                addValue(record, code, 1, entry, bytes);
            }
        }
        return std::move(record.front());
    }

    std::map<std::size_t, RowsOfRecord> rows_;
    std::set<std::size_t> wrong_;  // records with a row that does not match its checksum
};

// Damage in the structures of SQLite ends the reading, so the rows behind it are read backwards. So
// are those behind a wrong key, which can end the reading as well.
SalvagedRecords BlockReader::salvageRecords(std::uint16_t classCode) {
    const bool isListed = std::ranges::binary_search(checksums_.classes(), classCode);
    if (!hasChecksums() || !(isListed || isDirectoryDamaged_)) {
        return {};
    }
    Collection collection;
    collect(rows_, classCode, collection);
    collect(rowsBackwards_, classCode, collection);
    return collection.records();
}

Block BlockReader::salvageBlock(std::uint16_t classCode) {
    const std::uint64_t key = firstKeyOf(classCode);
    Execution row(rows_, key, key);
    if (!hasChecksums() || !row.step()) {
        throw Failure(codes::noSuchRecord);
    }
    Checksum sum = 0;
    return blockOf(classCode, verifiedRow(row, sum).bytes);
}

void BlockReader::collect(Statement& rows, std::uint16_t classCode, Collection& collection) const {
    try {
        for (Execution row(rows, firstKeyOf(classCode), lastKeyOf(classCode)); row.step();) {
            const std::size_t record = row.bits(0) >> 16U & maxNumber;
            try {
                Checksum sum = 0;
                const Row verified = verifiedRow(row, sum);
                if (classOf(verified.code) == classCode && record > 0) {
                    collection.add(verified);
                }
            } catch (const Failure&) {
                collection.addWrong(record);
            }
        }
    } catch (const Failure& failure) {
        if (failure.code() != codes::damaged) {
            throw;
        }
    }
}

void BlockReader::requireNothingOf(std::uint16_t classCode) {
    if (Execution(rows_, firstKeyOf(classCode), lastKeyOf(classCode)).step()) {
        refuse();
    }
}

void BlockReader::readAll() {
    rowsRead_ = hasChecksums() ? 1 : 0;  // the directory
    for (const std::uint16_t classCode : readClasses().classes()) {
        read(classCode);
    }
    Execution count(rowCount_);
    if (!count.step() || count.number(0, maxCount) != rowsRead_) {
        refuse();
    }
}

}  // namespace embedded
