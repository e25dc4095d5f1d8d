#include "embedded/orv/files/database.h"

#include <new>

#include "embedded/orv/content/failure.h"

namespace embedded {
namespace {

constexpr int busyMilliseconds = 10'000;

void check(int result) {
    switch (result & 0xFF) {  // the primary result code
        case SQLITE_OK:
        case SQLITE_ROW:
        case SQLITE_DONE:
            return;
        case SQLITE_NOMEM:
            throw std::bad_alloc();
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
        case SQLITE_ERROR:  // the tables are not those that the statements know
        case SQLITE_CONSTRAINT:
            throw Failure(codes::damaged);
        case SQLITE_READONLY:
        case SQLITE_PERM:
            throw Failure(codes::accessDenied);
        default:
            throw Failure(codes::storageFailed);
    }
}

int openFlags(DatabaseUse use) {
    // The caller sees to it that one thread uses a connection.
    const int common = SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_READWRITE;
    return use == DatabaseUse::Create ? common | SQLITE_OPEN_CREATE : common;
}

}  // namespace

Database::Database(const std::string& path, DatabaseUse use) {
    sqlite3* opened = nullptr;
    const int result = sqlite3_open_v2(path.c_str(), &opened, openFlags(use), nullptr);
    handle_.reset(opened);
    check(result);
    check(sqlite3_busy_timeout(opened, busyMilliseconds));
    check(sqlite3_db_config(opened, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr));
    // A file comes from anywhere: nothing that its schema holds may run.
    check(sqlite3_db_config(opened, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr));
    check(sqlite3_db_config(opened, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr));
    check(sqlite3_db_config(opened, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr));
    execute("PRAGMA synchronous = FULL; PRAGMA cell_size_check = ON;");
}

void Database::execute(const char* sql) {
    check(sqlite3_exec(handle_.get(), sql, nullptr, nullptr, nullptr));
}

std::int64_t Database::number(const char* sql) {
    Statement statement(*this, sql);
    if (!statement.step()) {
        throw Failure(codes::damaged);
    }
    return statement.integer(0);
}

std::string Database::text(const char* sql) {
    Statement statement(*this, sql);
    if (!statement.step()) {
        throw Failure(codes::damaged);
    }
    const auto bytes = statement.bytes(0);
    return {bytes.begin(), bytes.end()};
}

Statement::Statement(Database& database, const char* sql) : database_(database.handle()) {
    sqlite3_stmt* prepared = nullptr;
    check(sqlite3_prepare_v2(database_, sql, -1, &prepared, nullptr));
    handle_.reset(prepared);
}

void Statement::bind(int parameter, std::int64_t value) {
    check(sqlite3_bind_int64(handle_.get(), parameter, value));
}

void Statement::bind(int parameter, std::span<const char> bytes) {
    // An empty value is a blob of no bytes; a null pointer would make it NULL.
    const char* const data = bytes.empty() ? "" : bytes.data();
    check(sqlite3_bind_blob64(handle_.get(), parameter, data, bytes.size(), SQLITE_STATIC));
}

void Statement::bindNull(int parameter) {
    check(sqlite3_bind_null(handle_.get(), parameter));
}

bool Statement::step() {
    const int result = sqlite3_step(handle_.get());
    check(result);
    return result == SQLITE_ROW;
}

void Statement::run() {
    step();
    check(sqlite3_reset(handle_.get()));
}

std::int64_t Statement::integer(int column) const {
    return sqlite3_column_int64(handle_.get(), column);
}

std::uint32_t Statement::integer(int column, std::uint32_t largest) const {
    const std::int64_t value = integer(column);
    if (value < 0 || value > largest) {
        throw Failure(codes::damaged);
    }
    return static_cast<std::uint32_t>(value);
}

std::span<const char> Statement::bytes(int column) const {
    const auto* const data = static_cast<const char*>(sqlite3_column_blob(handle_.get(), column));
    const int size = sqlite3_column_bytes(handle_.get(), column);
    if (data == nullptr) {
        if (sqlite3_errcode(database_) == SQLITE_NOMEM) {
            throw std::bad_alloc();
        }
        return {};
    }
    return {data, static_cast<std::size_t>(size)};
}

Transaction::Transaction(Database& database, const char* begin) : database_(database) {
    database_.execute(begin);
}

Transaction::~Transaction() {
    if (open_) {
        // Some failures have ended the transaction already, so that this one has nothing to undo.
        sqlite3_exec(database_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
    }
}

void Transaction::commit() {
    database_.execute("COMMIT");
    open_ = false;
}

}  // namespace embedded
