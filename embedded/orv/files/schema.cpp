#include "embedded/orv/files/schema.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "embedded/orv/content/failure.h"
#include "embedded/orv/files/class_checksums.h"
#include "embedded/orv/files/first_page.h"

namespace embedded {
namespace {

struct Table {
    std::string_view name;
    std::string_view sql;  // creates it
};
using Tables = std::span<const Table>;

constexpr std::array<Table, 3> tablesOfVersion1 = {{
    {"block", "CREATE TABLE block(class INTEGER PRIMARY KEY, content BLOB)"},
    {"place",
     "CREATE TABLE place(class INTEGER, record INTEGER, entry INTEGER,\n"
     "                   PRIMARY KEY(class, record, entry)) WITHOUT ROWID"},
    {"value",
     "CREATE TABLE value(code INTEGER, record INTEGER, entry INTEGER, bytes BLOB NOT NULL,\n"
     "                   PRIMARY KEY(code, record, entry)) WITHOUT ROWID"},
}};
constexpr std::array<Table, 1> tablesOfVersion2 = {{
    {"item",
     "CREATE TABLE item(key INTEGER PRIMARY KEY, checksum INTEGER NOT NULL,"
     " bytes BLOB NOT NULL)"},
}};

Tables tablesOf(std::uint32_t version) {
    return version == 1 ? Tables(tablesOfVersion1) : Tables(tablesOfVersion2);
}

bool isSpace(char character) {
    return std::string_view(" \t\n\f\r").find(character) != std::string_view::npos;
}

bool isPunctuation(char character) {
    return std::string_view("(),").find(character) != std::string_view::npos;
}

// Returns the statement with one blank between words and no other white space.
std::string withoutSpareSpace(std::string_view sql) {
    std::string text;
    bool pending = false;
    for (const char character : sql) {
        if (isSpace(character)) {
            pending = true;
            continue;
        }
        if (pending && !text.empty() && !isPunctuation(text.back()) && !isPunctuation(character)) {
            text += ' ';
        }
        pending = false;
        text += character;
    }
    return text;
}

// ---- The header of the file ------------------------------------------------------------------

// True if the file has all pages of its header. SQLite would read missing bytes of the last page as
// zeros.
bool isWhole(Database& database, const FirstPage& page) {
    return page.usesWriteAheadLog() ||
           database.fileSize() >= std::int64_t{page.pageSize()} * page.pageCount();
}

// True if the schema in the file is byte for byte the one that this library creates. Ignores the
// numbers in the header that saves and VACUUM change. False if the pages have another size or may
// be in a write-ahead log.
bool hasUnchangedSchema(const FirstPage& page) {
    const std::vector<char>& created = emptyDataSource();
    const auto bytes = page.bytes();
    const auto isSame = [&](std::size_t begin, std::size_t end) {
        return std::memcmp(&bytes[begin], &created[begin], end - begin) == 0;
    };
    return created.size() >= bytes.size() && isSame(16, 24) && isSame(44, 92) &&
           isSame(FirstPage::headerSize, bytes.size());
}

// ---- The tables ------------------------------------------------------------------------------

// Returns the statement of the table with this name, or an empty one if it is not ours.
std::string_view statementOf(Tables tables, std::string_view table) {
    for (const auto& [name, sql] : tables) {
        if (name == table) {
            return sql;
        }
    }
    return {};
}

// Throws Failure(damaged) for an index with an expression, a condition or a constraint.
void requirePlainIndexes(Database& database) {
    Statement odd(database,
                  "SELECT 1 FROM sqlite_schema AS t, pragma_index_list(t.name) AS i,"
                  " pragma_index_xinfo(i.name) AS c"
                  " WHERE t.type = 'table' AND t.name IN ('block', 'place', 'value', 'item')"
                  " AND i.origin <> 'pk' AND (i.\"unique\" OR i.partial OR c.cid < -1)");
    if (Execution(odd).step()) {
        throw Failure(codes::damaged);
    }
}

void requireTables(Database& database, Tables tables) {
    std::size_t count = 0;
    bool indexed = false;
    Statement schema(database, "SELECT type, name, tbl_name, sql FROM sqlite_schema");
    for (Execution row(schema); row.step();) {
        const std::string_view sql = statementOf(tables, row.text(1));
        if (row.text(0) == "table" && !sql.empty()) {
            if (row.text(3) != sql && withoutSpareSpace(row.text(3)) != withoutSpareSpace(sql)) {
                throw Failure(codes::damaged);
            }
            ++count;
        }
        indexed = indexed || (row.text(0) == "index" && !statementOf(tables, row.text(2)).empty());
    }
    if (count != tables.size()) {
        throw Failure(codes::damaged);
    }
    if (indexed) {
        requirePlainIndexes(database);
    }
}

void createTables(Database& database) {
    for (const auto& [name, sql] : tablesOf(schemaVersion)) {
        database.execute(std::string(sql).c_str());
    }
    database.execute(("PRAGMA user_version = " + std::to_string(schemaVersion)).c_str());
    Statement directory(database, "INSERT INTO item VALUES(?, ?, ?)");
    const std::span<const char> noClasses;
    run(directory, keyOfRow(directoryCode, 0, 0), checksumOfRow(directoryCode, 0, 0, noClasses),
        noClasses);
}

std::vector<char> createEmptyDataSource() {
    Database database(":memory:");
    createTables(database);
    database.execute(("PRAGMA application_id = " + std::to_string(applicationId)).c_str());
    sqlite3_int64 size = 0;
    const std::unique_ptr<unsigned char, decltype(&sqlite3_free)> image(
        sqlite3_serialize(database.handle(), "main", &size, 0), sqlite3_free);
    if (image == nullptr) {
        throw std::bad_alloc();
    }
    return {image.get(), image.get() + size};
}

}  // namespace

const std::vector<char>& emptyDataSource() {
    // Never destroyed: threads may still run while the process ends.
    static const auto& image =
        *std::make_unique<const std::vector<char>>(createEmptyDataSource()).release();
    return image;
}

bool isDataSource(Database& database) {
    return FirstPage(database).isOfDataSource();
}

std::optional<HeaderState> headerState(Database& database) {
    std::array<unsigned char, 40> header{};
    database.readStart(header);
    if (FirstPage(header).usesWriteAheadLog()) {
        return std::nullopt;
    }
    HeaderState state{};
    std::copy(header.end() - state.size(), header.end(), state.begin());
    return state;
}

std::uint32_t requireSoundSchema(Database& database) {
    const FirstPage page(database);
    const std::uint32_t version = page.schemaVersion();
    if (!page.isOfDataSource() || version == 0 || version > schemaVersion ||
        !isWhole(database, page) || !page.hasPlausibleFreeList()) {
        throw Failure(codes::damaged);
    }
    if (!hasUnchangedSchema(page)) {
        requireTables(database, tablesOf(version));
    }
    return version;
}

void replaceTables(Database& database, std::uint32_t oldVersion) {
    for (const auto& [name, sql] : tablesOf(oldVersion)) {
        database.execute(("DROP TABLE " + std::string(name)).c_str());
    }
    createTables(database);
}

}  // namespace embedded
