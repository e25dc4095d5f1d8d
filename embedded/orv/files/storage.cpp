#include "embedded/orv/files/storage.h"

#include <cstring>
#include <filesystem>
#include <limits>
#include <system_error>
#include <utility>

#include "embedded/orv/content/failure.h"
#include "embedded/orv/files/database.h"
#include "embedded/pqar/parameter_table.h"

namespace embedded {
namespace {

constexpr const char* schema = R"(
    CREATE TABLE block(class INTEGER PRIMARY KEY, content BLOB);
    CREATE TABLE place(class INTEGER, record INTEGER, entry INTEGER,
                       PRIMARY KEY(class, record, entry)) WITHOUT ROWID;
    CREATE TABLE value(code INTEGER, record INTEGER, entry INTEGER, bytes BLOB NOT NULL,
                       PRIMARY KEY(code, record, entry)) WITHOUT ROWID;
)";

constexpr std::uint32_t largestNumber = 65535;  // of classes, records and entries

std::uint16_t number16(const Statement& row, int column) {
    return static_cast<std::uint16_t>(row.integer(column, largestNumber));
}

// ---- Loading --------------------------------------------------------------------------------

Spectrum spectrumOf(std::span<const char> bytes) {
    constexpr std::size_t width = sizeof(std::int32_t);
    if (bytes.size() % width != 0 || bytes.size() / width > Spectrum::capacity) {
        throw Failure(codes::damaged);
    }
    std::vector<std::int32_t> contents(bytes.size() / width);
    if (!bytes.empty()) {
        std::memcpy(contents.data(), bytes.data(), bytes.size());
    }
    return Spectrum(std::move(contents));
}

Block emptyBlockOfFile(std::uint16_t classCode) {
    try {
        return emptyBlock(classCode);
    } catch (const Failure&) {
        throw Failure(codes::damaged);
    }
}

Content::Blocks loadBlocks(Database& database) {
    Content::Blocks blocks;
    Statement row(database, "SELECT class, content FROM block");
    while (row.step()) {
        const std::uint16_t classCode = number16(row, 0);
        Block block = emptyBlockOfFile(classCode);
        const auto bytes = row.bytes(1);
        if (std::holds_alternative<Spectrum>(block)) {
            block = spectrumOf(bytes);
        } else if (std::holds_alternative<UnformattedBlock>(block)) {
            if (bytes.size() > UnformattedBlock::capacity) {
                throw Failure(codes::damaged);
            }
            block = UnformattedBlock({bytes.begin(), bytes.end()});
        }
        blocks.emplace(classCode, std::move(block));
    }
    return blocks;
}

using RecordsByClass = std::map<std::uint16_t, std::vector<Record>>;

RecordsByClass loadRecords(Database& database) {
    RecordsByClass records;
    Statement row(database, "SELECT class, record, entry FROM place ORDER BY class, record, entry");
    while (row.step()) {
        auto& ofClass = records[number16(row, 0)];
        const std::size_t record = number16(row, 1);
        const std::size_t entry = number16(row, 2);
        if (entry == 0 && record == ofClass.size() + 1) {
            ofClass.emplace_back();
        } else if (entry > 0 && record > 0 && record == ofClass.size() &&
                   entry == ofClass.back().entries.size() + 1) {
            ofClass.back().entries.emplace_back();
        } else {
            throw Failure(codes::damaged);
        }
    }
    return records;
}

// Values of codes that the dictionary does not know are kept: a later dictionary may know them.
void requireFittingValue(std::uint32_t code, std::uint32_t entry, std::span<const char> bytes) {
    const ParameterDescription* parameter = findParameter(code);
    if (parameter == nullptr) {
        return;
    }
    const bool rightPlace = (entry > 0) == (parameter->scope == ParameterScope::Entry);
    const bool rightSize =
        parameter->isText()
            ? bytes.size() < parameter->size() &&
                  (bytes.empty() || std::memchr(bytes.data(), '\0', bytes.size()) == nullptr)
            : bytes.size() == parameter->size();
    if (!rightPlace || !rightSize) {
        throw Failure(codes::damaged);
    }
}

void loadValues(Database& database, RecordsByClass& records) {
    Statement row(database, "SELECT code, record, entry, bytes FROM value");
    while (row.step()) {
        const auto code = row.integer(0, std::numeric_limits<std::uint32_t>::max());
        const std::size_t record = number16(row, 1);
        const std::size_t entry = number16(row, 2);
        const auto bytes = row.bytes(3);
        const auto ofClass = records.find(static_cast<std::uint16_t>(code >> 16U));
        if (ofClass == records.end() || record == 0 || record > ofClass->second.size() ||
            entry > ofClass->second[record - 1].entries.size()) {
            throw Failure(codes::damaged);
        }
        requireFittingValue(code, static_cast<std::uint32_t>(entry), bytes);
        Record& holder = ofClass->second[record - 1];
        Values& values = entry == 0 ? holder.values : holder.entries[entry - 1];
        values.emplace(code, ValueBytes(bytes.begin(), bytes.end()));
    }
}

// SQLite itself reads what is missing of the last page as zeros.
void requireWholeFile(Database& database, const std::string& path) {
    const std::int64_t size =
        database.number("PRAGMA page_count") * database.number("PRAGMA page_size");
    std::error_code failure;
    const auto present = std::filesystem::file_size(path, failure);
    if (failure) {
        throw Failure(codes::storageFailed);
    }
    if (std::cmp_less(present, size)) {
        throw Failure(codes::damaged);
    }
}

void requireIntact(Database& database) {
    if (database.number("PRAGMA application_id") != applicationId ||
        database.number("PRAGMA user_version") != schemaVersion ||
        database.text("PRAGMA quick_check(1)") != "ok") {
        throw Failure(codes::damaged);
    }
}

// ---- Saving ---------------------------------------------------------------------------------

// Writes the records of blocks: a place for each record and entry, and the values there.
class RecordWriter {
  public:
    explicit RecordWriter(Database& database)
        : place_(database, "INSERT INTO place VALUES(?, ?, ?)"),
          value_(database, "INSERT INTO value VALUES(?, ?, ?, ?)") {}

    void write(std::int64_t classCode, const RecordBlock& block) {
        std::int64_t number = 0;
        for (const Record& record : block.records()) {
            std::int64_t entry = 0;
            write(classCode, ++number, entry, record.values);
            for (const Values& values : record.entries) {
                write(classCode, number, ++entry, values);
            }
        }
    }

  private:
    void write(std::int64_t classCode, std::int64_t record, std::int64_t entry,
               const Values& values) {
        place_.bind(1, classCode);
        place_.bind(2, record);
        place_.bind(3, entry);
        place_.run();
        for (const auto& [code, bytes] : values) {
            value_.bind(1, std::int64_t{code});
            value_.bind(2, record);
            value_.bind(3, entry);
            value_.bind(4, bytes);
            value_.run();
        }
    }

    Statement place_;
    Statement value_;
};

std::span<const char> bytesOf(const Spectrum& spectrum) {
    const auto bytes = std::as_bytes(std::span(spectrum.contents()));
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

void saveBlocks(Database& database, const Content& content) {
    Statement blockRow(database, "INSERT INTO block VALUES(?, ?)");
    RecordWriter records(database);
    for (const auto& [classCode, block] : content.blocks()) {
        blockRow.bind(1, std::int64_t{classCode});
        if (const auto* spectrum = std::get_if<Spectrum>(&block)) {
            blockRow.bind(2, bytesOf(*spectrum));
        } else if (const auto* unformatted = std::get_if<UnformattedBlock>(&block)) {
            blockRow.bind(2, unformatted->bytes());
        } else {
            blockRow.bindNull(2);
            records.write(classCode, std::get<RecordBlock>(block));
        }
        blockRow.run();
    }
}

}  // namespace

void createStorage(const std::string& path) {
    Database database(path, DatabaseUse::Create);
    Transaction transaction(database, "BEGIN EXCLUSIVE");
    database.execute(schema);
    database.execute(("PRAGMA application_id = " + std::to_string(applicationId)).c_str());
    database.execute(("PRAGMA user_version = " + std::to_string(schemaVersion)).c_str());
    transaction.commit();
}

Content loadStorage(const std::string& path) {
    Database database(path, DatabaseUse::Read);
    Transaction transaction(database, "BEGIN");
    requireIntact(database);
    requireWholeFile(database, path);
    Content::Blocks blocks = loadBlocks(database);
    RecordsByClass records = loadRecords(database);
    loadValues(database, records);
    for (auto& [classCode, ofClass] : records) {
        const auto found = blocks.find(classCode);
        if (found == blocks.end() || !std::holds_alternative<RecordBlock>(found->second)) {
            throw Failure(codes::damaged);
        }
        found->second = RecordBlock(std::move(ofClass));
    }
    transaction.commit();
    return Content(std::move(blocks));
}

void saveStorage(const std::string& path, const Content& content) {
    Database database(path, DatabaseUse::Write);
    Transaction transaction(database, "BEGIN IMMEDIATE");
    database.execute("DELETE FROM block; DELETE FROM place; DELETE FROM value;");
    saveBlocks(database, content);
    transaction.commit();
}

void compactStorage(const std::string& path) {
    Database database(path, DatabaseUse::Write);
    database.execute("VACUUM");
}

}  // namespace embedded
