// SQLite's handles as classes, its results as Failure.
#ifndef PYORV3_EMBEDDED_ORV_FILES_DATABASE_H
#define PYORV3_EMBEDDED_ORV_FILES_DATABASE_H

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace embedded {

// How a file is opened. Reading may write all the same: it brings a file in order whose writer
// was killed.
enum class DatabaseUse : std::uint8_t { Create, Write, Read };

// One connection to a database file, closed with the object; used by one thread. Every operation
// throws Failure: damaged where the file's content is to blame, storageFailed for the rest, and
// std::bad_alloc.
class Database {
  public:
    // Waits for other processes that load or save the file for up to 10 seconds at a time.
    Database(const std::string& path, DatabaseUse use);

    // One statement or several, without results.
    void execute(const char* sql);

    // The one number that the statement gives.
    std::int64_t number(const char* sql);
    // The one text that the statement gives.
    std::string text(const char* sql);

    [[nodiscard]] sqlite3* handle() const { return handle_.get(); }

  private:
    struct Closer {
        void operator()(sqlite3* handle) const { sqlite3_close_v2(handle); }
    };
    std::unique_ptr<sqlite3, Closer> handle_;
};

// A prepared statement. Parameters and columns count as SQLite counts them: from 1 and from 0.
class Statement {
  public:
    Statement(Database& database, const char* sql);

    // Values that are bound must live until the next call of run or step.
    void bind(int parameter, std::int64_t value);
    void bind(int parameter, std::span<const char> bytes);
    void bindNull(int parameter);

    // Goes to the next row; false when there is none.
    bool step();
    // Runs a statement that gives no rows and makes it ready for the next values.
    void run();

    // A column of the row. integer: within 0 to largest, else Failure(damaged). bytes: valid until
    // the next step.
    [[nodiscard]] std::uint32_t integer(int column, std::uint32_t largest) const;
    [[nodiscard]] std::int64_t integer(int column) const;
    [[nodiscard]] std::span<const char> bytes(int column) const;

  private:
    struct Finaliser {
        void operator()(sqlite3_stmt* handle) const { sqlite3_finalize(handle); }
    };
    sqlite3* database_;
    std::unique_ptr<sqlite3_stmt, Finaliser> handle_;
};

// A transaction that is undone unless it is committed.
class Transaction {
  public:
    // begin: the statement that begins it.
    Transaction(Database& database, const char* begin);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    Transaction(Transaction&&) = delete;
    Transaction& operator=(Transaction&&) = delete;

    void commit();

  private:
    Database& database_;
    bool open_ = true;
};

}  // namespace embedded

#endif
