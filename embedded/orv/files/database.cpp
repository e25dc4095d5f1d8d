#include "embedded/orv/files/database.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <limits>
#include <new>
#include <thread>

#include "embedded/orv/content/failure.h"
#include "embedded/orv/content/unformatted_block.h"
#include "embedded/orv/files/journal_buffer.h"

namespace embedded {
namespace {

// Waits for another program that locks the file. The waits are short so that a reader finds the
// gaps between the saves of a writer that saves continuously.
int waitWhileBusy(void* /*unused*/, int waitsSoFar) {
    constexpr int maxWait = 900;  // milliseconds of sleep; the calls take additional time
    if (waitsSoFar >= maxWait) {
        return 0;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return 1;
}

struct Limit {
    int category;
    int value;
};

// Slightly above the needs of the format and of VACUUM.
constexpr std::array limits = {
    Limit{SQLITE_LIMIT_LENGTH, static_cast<int>(UnformattedBlock::capacity) + 4096},
    Limit{SQLITE_LIMIT_SQL_LENGTH, 100'000},
    Limit{SQLITE_LIMIT_EXPR_DEPTH, 100},
    Limit{SQLITE_LIMIT_COMPOUND_SELECT, 10},
    Limit{SQLITE_LIMIT_VDBE_OP, 10'000},
    Limit{SQLITE_LIMIT_FUNCTION_ARG, 10},
    Limit{SQLITE_LIMIT_ATTACHED, 1},  // the copy that VACUUM makes
    Limit{SQLITE_LIMIT_LIKE_PATTERN_LENGTH, 100},
    Limit{SQLITE_LIMIT_VARIABLE_NUMBER, 100},
    Limit{SQLITE_LIMIT_TRIGGER_DEPTH, 1},
    Limit{SQLITE_LIMIT_WORKER_THREADS, 0},
};

constexpr std::array<std::array<int, 2>, 4> settings = {{
    {SQLITE_DBCONFIG_DEFENSIVE, 1},
    {SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0},
    {SQLITE_DBCONFIG_ENABLE_TRIGGER, 0},
    {SQLITE_DBCONFIG_ENABLE_VIEW, 0},
}};

}  // namespace

Database::Database(const std::string& name) {
    sqlite3* opened = nullptr;
    // The caller ensures that only one thread at a time uses the connection.
    const int result = sqlite3_open_v2(
        name.c_str(), &opened, SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_READWRITE, vfsWithJournalBuffer());
    handle_.reset(opened);
    check(result);
    check(sqlite3_extended_result_codes(opened, 1));
    check(sqlite3_busy_handler(opened, waitWhileBusy, nullptr));
    for (const Limit& limit : limits) {
        sqlite3_limit(opened, limit.category, limit.value);
    }
    for (const auto& [setting, value] : settings) {
        check(sqlite3_db_config(opened, setting, value, nullptr));
    }
    execute("PRAGMA cell_size_check = ON");
}

Database::Database(std::span<const unsigned char> image) : Database(":memory:") {
    auto* const copy = static_cast<unsigned char*>(sqlite3_malloc64(image.size()));
    if (copy == nullptr) {
        throw std::bad_alloc();
    }
    std::ranges::copy(image, copy);
    const auto size = static_cast<sqlite3_int64>(image.size());
    check(sqlite3_deserialize(handle_.get(), "main", copy, size, size,
                              SQLITE_DESERIALIZE_FREEONCLOSE | SQLITE_DESERIALIZE_READONLY));
}

// ---- Failures --------------------------------------------------------------------------------

void Database::check(int result) const {
    switch (result) {  // extended results that need a code of their own
        case SQLITE_IOERR_NOMEM:
            throw std::bad_alloc();
        case SQLITE_IOERR_LOCK:
        case SQLITE_IOERR_RDLOCK:
        case SQLITE_IOERR_UNLOCK:
        case SQLITE_IOERR_CHECKRESERVEDLOCK:
            throw Failure(codes::accessDenied);
        case SQLITE_READONLY_DBMOVED:
            throw Failure(codes::fileMoved);
        default:
            break;
    }
    switch (result & 0xFF) {  // primary results
        case SQLITE_OK:
        case SQLITE_ROW:
        case SQLITE_DONE:
            return;
        case SQLITE_NOMEM:
            throw std::bad_alloc();
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
        case SQLITE_ERROR:  // the tables do not fit the statements
        case SQLITE_CONSTRAINT:
            throw Failure(readingFailed() ? codes::storageFailed : codes::damaged);
        case SQLITE_TOOBIG:
            throw Failure(codes::damaged);
        case SQLITE_READONLY:
        case SQLITE_PERM:
            throw Failure(codes::accessDenied);
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
        case SQLITE_PROTOCOL:
            failBusy();
        case SQLITE_CANTOPEN:
            failToOpen();
        default:
            throw Failure(codes::storageFailed);
    }
}

// SQLite also reports a file as busy if the file system does not support locks.
void Database::failBusy() const {
    int reserved = 0;
    sqlite3_file& file = this->file();
    const bool canBeLocked = file.pMethods != nullptr &&
                             file.pMethods->xCheckReservedLock(&file, &reserved) == SQLITE_OK;
    throw Failure(canBeLocked ? codes::inUse : codes::accessDenied);
}

void Database::failToOpen() const {
    switch (handle_ == nullptr ? ENOMEM : sqlite3_system_errno(handle_.get())) {
        case EMFILE:
        case ENFILE:
            throw Failure(codes::tooManyOpen);
        case EACCES:
        case EPERM:
        case EROFS:
            throw Failure(codes::accessDenied);
        case ENOMEM:
            throw std::bad_alloc();
        default:
            throw Failure(codes::storageFailed);
    }
}

// ---- The file --------------------------------------------------------------------------------

std::string Database::path() const {
    return sqlite3_db_filename(handle_.get(), "main");
}

sqlite3_file& Database::file() const {
    sqlite3_file* file = nullptr;
    if (sqlite3_file_control(handle_.get(), "main", SQLITE_FCNTL_FILE_POINTER, &file) !=
            SQLITE_OK ||
        file == nullptr) {
        throw Failure(codes::storageFailed);
    }
    return *file;
}

void Database::readStart(std::span<unsigned char> start) {
    sqlite3_file& file = this->file();
    const int result = file.pMethods->xRead(&file, start.data(), static_cast<int>(start.size()), 0);
    if (result != SQLITE_IOERR_SHORT_READ) {
        check(result);
    }
}

std::int64_t Database::fileSize() {
    sqlite3_file& file = this->file();
    sqlite3_int64 size = 0;
    check(file.pMethods->xFileSize(&file, &size));
    return size;
}

void Database::sync() {
    sqlite3_file& file = this->file();
    check(file.pMethods->xSync(&file, SQLITE_SYNC_NORMAL));
}

Database::ExclusiveLock::ExclusiveLock(Database& database)
    : file_(database.file()),
      isHeld_(file_.pMethods->xLock(&file_, SQLITE_LOCK_SHARED) == SQLITE_OK &&
              file_.pMethods->xLock(&file_, SQLITE_LOCK_EXCLUSIVE) == SQLITE_OK) {}

Database::ExclusiveLock::~ExclusiveLock() {
    file_.pMethods->xUnlock(&file_, SQLITE_LOCK_NONE);
}

bool Database::readingFailed() const {
    sqlite3_file& file = this->file();
    int error = 0;
    if (file.pMethods->xFileControl(&file, SQLITE_FCNTL_LAST_ERRNO, &error) == SQLITE_OK &&
        error != 0) {
        return true;
    }
    std::array<char, 65536> bytes{};
    sqlite3_int64 size = 0;
    int result = file.pMethods->xFileSize(&file, &size);
    for (sqlite3_int64 offset = 0; result == SQLITE_OK && offset < size; offset += bytes.size()) {
        const auto length = std::min<sqlite3_int64>(size - offset, bytes.size());
        result = file.pMethods->xRead(&file, bytes.data(), static_cast<int>(length), offset);
    }
    return result != SQLITE_OK;
}

std::uint32_t Database::dataVersion() {
    unsigned int version = 0;
    check(sqlite3_file_control(handle_.get(), "main", SQLITE_FCNTL_DATA_VERSION, &version));
    return version;
}

bool Database::isWritable() const {
    return sqlite3_db_readonly(handle_.get(), "main") == 0;
}

void Database::limitCache() {
    execute("PRAGMA cache_size = -128");  // KiB
}

void Database::releaseMemory() {
    sqlite3_db_release_memory(handle_.get());
}

void Database::execute(const char* sql) {
    check(sqlite3_exec(handle_.get(), sql, nullptr, nullptr, nullptr));
}

// ---- Statements ------------------------------------------------------------------------------

sqlite3_stmt* Statement::prepared() {
    if (handle_ == nullptr) {
        sqlite3_stmt* prepared = nullptr;
        database_.check(sqlite3_prepare_v3(database_.handle(), sql_, -1, SQLITE_PREPARE_PERSISTENT,
                                           &prepared, nullptr));
        handle_.reset(prepared);
    }
    return handle_.get();
}

void Execution::bind(int parameter, std::int64_t value) {
    database_.check(sqlite3_bind_int64(handle_, parameter, value));
}

void Execution::bind(int parameter, std::uint64_t value) {
    bind(parameter, static_cast<std::int64_t>(value));
}

void Execution::bind(int parameter, std::span<const char> bytes) {
    // A null pointer would store NULL instead of an empty value.
    const char* data = bytes.empty() ? "" : bytes.data();
    database_.check(sqlite3_bind_blob64(handle_, parameter, data, bytes.size(), SQLITE_STATIC));
}

void Execution::bind(int parameter, std::nullptr_t) {
    database_.check(sqlite3_bind_null(handle_, parameter));
}

bool Execution::step() {
    const int result = sqlite3_step(handle_);
    database_.check(result);
    return result == SQLITE_ROW;
}

std::uint64_t Execution::bits(int column) const {
    if (sqlite3_column_type(handle_, column) != SQLITE_INTEGER) {
        throw Failure(codes::damaged);
    }
    return static_cast<std::uint64_t>(sqlite3_column_int64(handle_, column));
}

bool Execution::isBlob(int column) const {
    return sqlite3_column_type(handle_, column) == SQLITE_BLOB;
}

std::uint32_t Execution::number(int column, std::uint32_t max) const {
    const std::int64_t value = sqlite3_column_int64(handle_, column);
    if (sqlite3_column_type(handle_, column) != SQLITE_INTEGER || value < 0 || value > max) {
        throw Failure(codes::damaged);
    }
    return static_cast<std::uint32_t>(value);
}

std::span<const char> Execution::bytes(int column) const {
    const auto* const data = static_cast<const char*>(sqlite3_column_blob(handle_, column));
    const int size = sqlite3_column_bytes(handle_, column);
    if (data == nullptr && sqlite3_errcode(database_.handle()) == SQLITE_NOMEM) {
        throw std::bad_alloc();
    }
    return {data, static_cast<std::size_t>(size)};
}

std::string_view Execution::text(int column) const {
    const auto text = bytes(column);
    return {text.data(), text.size()};
}

// ---- Transactions ----------------------------------------------------------------------------

Transactions::Transactions(Database& database)
    : database_(database),
      firstRead_(database, "PRAGMA user_version"),
      begin_(database, "BEGIN IMMEDIATE"),
      commit_(database, "COMMIT"),
      rollback_(database, "ROLLBACK") {}

void Transactions::endOpenTransaction() {
    if (sqlite3_get_autocommit(database_.handle()) == 0) {
        run(rollback_);
    }
}

Transactions::Reading::Reading(Transactions& transactions)
    : firstRead_((transactions.endOpenTransaction(), transactions.firstRead_)) {
    firstRead_.step();
}

Transactions::Writing::Writing(Transactions& transactions) : transactions_(transactions) {
    transactions_.endOpenTransaction();
    transactions_.rollback_.prepared();  // memory may have run out when it is needed
    run(transactions_.begin_);
}

Transactions::Writing::~Writing() {
    if (open_) {
        // Ignore the result: some failures have already ended the transaction.
        sqlite3_step(transactions_.rollback_.prepared());
        sqlite3_reset(transactions_.rollback_.prepared());
    }
}

void Transactions::Writing::commit() {
    run(transactions_.commit_);
    open_ = false;
}

}  // namespace embedded
