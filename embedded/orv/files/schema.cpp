#include "embedded/orv/files/schema.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "embedded/orv/content/failure.h"

namespace embedded {
namespace {

// As they stand in a file that this library makes.
constexpr std::array<std::array<std::string_view, 2>, 3> tables = {{
    {"block", "CREATE TABLE block(class INTEGER PRIMARY KEY, content BLOB)"},
    {"place",
     "CREATE TABLE place(class INTEGER, record INTEGER, entry INTEGER,\n"
     "                   PRIMARY KEY(class, record, entry)) WITHOUT ROWID"},
    {"value",
     "CREATE TABLE value(code INTEGER, record INTEGER, entry INTEGER, bytes BLOB NOT NULL,\n"
     "                   PRIMARY KEY(code, record, entry)) WITHOUT ROWID"},
}};

bool isSpace(char character) {
    return std::string_view(" \t\n\f\r").find(character) != std::string_view::npos;
}

bool isPunctuation(char character) {
    return std::string_view("(),").find(character) != std::string_view::npos;
}

// The statement with one blank between words and none elsewhere.
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

constexpr std::size_t headerSize = 100;
constexpr unsigned char writeAheadLog = 2;  // at byte 18: pages may stand in the log alone

// The start of the file, which is its first page where pages have the usual size: the header, then
// the table of the schema.
using FirstPage = std::array<unsigned char, 4096>;

FirstPage firstPageOf(Database& database) {
    FirstPage page{};
    database.readStart(page);
    return page;
}

// The number in successive bytes, the most significant first.
std::uint32_t numberAt(const FirstPage& header, std::size_t place, std::size_t width) {
    std::uint32_t number = 0;
    for (std::size_t byte = place; byte < place + width; ++byte) {
        number = number << 8U | header.at(byte);
    }
    return number;
}

bool isOfDataSource(const FirstPage& header) {
    constexpr std::string_view magic{"SQLite format 3\0", 16};
    return std::memcmp(header.data(), magic.data(), magic.size()) == 0 &&
           numberAt(header, 68, 4) == applicationId;
}

// SQLite itself reads what is missing of the last page as zeros.
void requireWholeFile(Database& database, const FirstPage& header) {
    if (header[18] == writeAheadLog) {
        return;
    }
    const std::uint32_t stated = numberAt(header, 16, 2);
    const std::int64_t pageSize = stated == 1 ? 65536 : stated;
    const bool pagesAreCounted = numberAt(header, 24, 4) == numberAt(header, 92, 4);
    if (pagesAreCounted && database.fileSize() < pageSize * numberAt(header, 28, 4)) {
        throw Failure(codes::damaged);
    }
}

// Whether the schema stands in the file byte by byte as this library makes it, so that nothing has
// been changed in it or added. The header's numbers that any save or VACUUM changes count for
// nothing. Never of a file whose pages have another size or may stand in a log.
bool hasSchemaAsMade(const FirstPage& page) {
    const std::vector<char>& made = emptyDataSource();
    const auto isSame = [&](std::size_t begin, std::size_t end) {
        return std::memcmp(&page[begin], &made[begin], end - begin) == 0;
    };
    return made.size() >= page.size() && isSame(16, 24) && isSame(44, 92) &&
           isSame(headerSize, page.size());
}

// ---- The tables ------------------------------------------------------------------------------

// The statement of the table with this name; empty where it is none of ours.
std::string_view statementOf(std::string_view table) {
    for (const auto& [name, sql] : tables) {
        if (name == table) {
            return sql;
        }
    }
    return {};
}

// A plain index names columns and constrains nothing.
void requirePlainIndexes(Database& database) {
    Statement odd(database,
                  "SELECT 1 FROM sqlite_schema AS t, pragma_index_list(t.name) AS i,"
                  " pragma_index_xinfo(i.name) AS c"
                  " WHERE t.type = 'table' AND t.name IN ('block', 'place', 'value')"
                  " AND i.origin <> 'pk' AND (i.\"unique\" OR i.partial OR c.cid < -1)");
    if (Execution(odd).step()) {
        throw Failure(codes::damaged);
    }
}

void requireOurTables(Database& database) {
    std::size_t found = 0;
    bool indexed = false;
    Statement schema(database, "SELECT type, name, tbl_name, sql FROM sqlite_schema");
    for (Execution row(schema); row.step();) {
        const std::string_view sql = statementOf(row.text(1));
        if (row.text(0) == "table" && !sql.empty()) {
            if (row.text(3) != sql && withoutSpareSpace(row.text(3)) != withoutSpareSpace(sql)) {
                throw Failure(codes::damaged);
            }
            ++found;
        }
        indexed = indexed || (row.text(0) == "index" && !statementOf(row.text(2)).empty());
    }
    if (found != tables.size()) {
        throw Failure(codes::damaged);
    }
    if (indexed) {
        requirePlainIndexes(database);
    }
}

std::vector<char> makeEmptyDataSource() {
    Database database(":memory:");
    for (const auto& [name, sql] : tables) {
        database.execute(std::string(sql).c_str());
    }
    const auto setHeader = [&](const char* field, std::uint32_t number) {
        database.execute(("PRAGMA " + std::string(field) + " = " + std::to_string(number)).c_str());
    };
    setHeader("application_id", applicationId);
    setHeader("user_version", schemaVersion);
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
    // Never destroyed: threads may still be at work while the process ends.
    static const auto& image =
        *std::make_unique<const std::vector<char>>(makeEmptyDataSource()).release();
    return image;
}

bool isDataSource(Database& database) {
    return isOfDataSource(firstPageOf(database));
}

std::optional<HeaderState> headerState(Database& database) {
    std::array<unsigned char, 40> header{};
    database.readStart(header);
    if (header[18] == writeAheadLog) {
        return std::nullopt;
    }
    HeaderState state{};
    std::copy(header.end() - state.size(), header.end(), state.begin());
    return state;
}

void requireSoundSchema(Database& database) {
    const FirstPage page = firstPageOf(database);
    if (!isOfDataSource(page) || numberAt(page, 60, 4) != schemaVersion) {
        throw Failure(codes::damaged);
    }
    requireWholeFile(database, page);
    if (!hasSchemaAsMade(page)) {
        requireOurTables(database);
    }
}

}  // namespace embedded
