// Classes for the handles of SQLite; its error results become exceptions.
#ifndef PYORV3_EMBEDDED_ORV_FILES_DATABASE_H
#define PYORV3_EMBEDDED_ORV_FILES_DATABASE_H

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace embedded {

// One connection to a database file. Used by one thread at a time, and only by the process that
// opened it. Every operation throws std::bad_alloc or Failure: damaged for wrong content of the
// file; inUse if another program locks the file for longer than a second; accessDenied;
// tooManyOpen; fileMoved; storageFailed for other errors.
class Database {
  public:
    // Opens an existing file, for writing if the system permits it. Runs no code from its schema.
    // Even reading may write: it rolls back the transaction of a writer that was killed.
    // name: begins with / or ./, because SQLite interprets other names; or is ":memory:".
    explicit Database(const std::string& name);
    // Opens a copy in memory of a file with this content, for reading.
    explicit Database(std::span<const unsigned char> image);

    // The file's absolute path.
    [[nodiscard]] std::string path() const;

    // Runs one or several statements without results.
    void execute(const char* sql);

    // The following use the connection's own descriptor: closing another descriptor of the file
    // would release the locks that all connections of this process have on it.
    //
    // Reads the start of the file without SQLite's cache; bytes after the end of the file are 0.
    void readStart(std::span<unsigned char> start);
    [[nodiscard]] std::int64_t fileSize();
    // Waits until the content of the file is on the disk.
    void sync();
    // True if the system failed to read the file, which SQLite reports as damage.
    [[nodiscard]] bool readingFailed() const;

    // Returns a number that changes with each commit to the file by any connection, as of the first
    // read of the current transaction.
    [[nodiscard]] std::uint32_t dataVersion();
    [[nodiscard]] bool isWritable() const;
    // Returns the number of rows that the last statement changed.
    [[nodiscard]] int changedRows() const { return sqlite3_changes(handle_.get()); }

    // Limits the page cache from now on, for reading a file once from start to end.
    void limitCache();
    // Releases the page cache.
    void releaseMemory();

    // Holds SQLite's exclusive lock, which blocks all other connections. Acquired between two
    // transactions of this connection.
    class ExclusiveLock {
      public:
        explicit ExclusiveLock(Database& database);
        ~ExclusiveLock();
        ExclusiveLock(const ExclusiveLock&) = delete;
        ExclusiveLock& operator=(const ExclusiveLock&) = delete;
        ExclusiveLock(ExclusiveLock&&) = delete;
        ExclusiveLock& operator=(ExclusiveLock&&) = delete;

        // False if another connection uses the file.
        [[nodiscard]] bool isHeld() const { return isHeld_; }

      private:
        sqlite3_file& file_;
        bool isHeld_;
    };

    [[nodiscard]] sqlite3* handle() const { return handle_.get(); }

    // Throws the exception for a result of SQLite that is not a success.
    void check(int result) const;

  private:
    struct Closer {
        void operator()(sqlite3* handle) const { sqlite3_close_v2(handle); }
    };
    [[nodiscard]] sqlite3_file& file() const;
    [[noreturn]] void failBusy() const;
    [[noreturn]] void failToOpen() const;

    std::unique_ptr<sqlite3, Closer> handle_;
};

// A statement that is prepared at its first use and reused afterwards.
class Statement {
  public:
    // sql must live as long as the object.
    Statement(Database& database, const char* sql) : database_(database), sql_(sql) {}

    sqlite3_stmt* prepared();
    [[nodiscard]] Database& database() const { return database_; }

  private:
    struct Finaliser {
        void operator()(sqlite3_stmt* handle) const { sqlite3_finalize(handle); }
    };

    Database& database_;
    const char* sql_;
    std::unique_ptr<sqlite3_stmt, Finaliser> handle_;
};

// One execution of a statement; the destructor ends it.
class Execution {
  public:
    // arguments: numbers, bytes that must live as long as the object, and nullptr for NULL.
    template <typename... Arguments>
    explicit Execution(Statement& statement, const Arguments&... arguments)
        : database_(statement.database()), handle_(statement.prepared()) {
        bindNext(arguments...);
    }
    ~Execution() { sqlite3_reset(handle_); }
    Execution(const Execution&) = delete;
    Execution& operator=(const Execution&) = delete;
    Execution(Execution&&) = delete;
    Execution& operator=(Execution&&) = delete;

    // Sets further arguments, before the first step.
    template <typename... Arguments>
    void bindNext(const Arguments&... arguments) {
        (bind(++boundParameters_, arguments), ...);
    }

    // Advances to the next row. False if there is none.
    bool step();

    // Return a column of the row; columns are numbered from 0. number: throws Failure(damaged)
    // unless the column has a whole number from 0 to max. bits: throws Failure(damaged) unless it
    // has a whole number. bytes: valid until the next step.
    [[nodiscard]] std::uint32_t number(int column, std::uint32_t max) const;
    [[nodiscard]] std::uint64_t bits(int column) const;
    [[nodiscard]] bool isBlob(int column) const;
    [[nodiscard]] std::span<const char> bytes(int column) const;
    [[nodiscard]] std::string_view text(int column) const;

  private:
    void bind(int parameter, std::int64_t value);
    void bind(int parameter, std::uint64_t value);
    void bind(int parameter, std::span<const char> bytes);
    void bind(int parameter, std::nullptr_t);

    Database& database_;
    sqlite3_stmt* handle_;
    int boundParameters_ = 0;
};

// Runs a statement without rows to its end.
template <typename... Arguments>
void run(Statement& statement, const Arguments&... arguments) {
    Execution(statement, arguments...).step();
}

// The transactions of one connection, one at a time.
class Transactions {
  public:
    explicit Transactions(Database& database);

    // A read transaction: all reads during its life see the same saved state. It keeps a statement
    // open, because SQLite ends an implicit transaction with its last statement.
    class Reading {
      public:
        explicit Reading(Transactions& transactions);

      private:
        Execution firstRead_;
    };

    // A write transaction; the destructor rolls it back unless it was committed.
    class Writing {
      public:
        explicit Writing(Transactions& transactions);
        ~Writing();
        Writing(const Writing&) = delete;
        Writing& operator=(const Writing&) = delete;
        Writing(Writing&&) = delete;
        Writing& operator=(Writing&&) = delete;

        void commit();

      private:
        Transactions& transactions_;
        bool open_ = true;
    };

  private:
    // Rolls back a transaction whose rollback failed earlier because memory ran out.
    void endOpenTransaction();

    Database& database_;
    Statement firstRead_;  // reads a value that every file has, before the schema is read
    Statement begin_;
    Statement commit_;
    Statement rollback_;
};

}  // namespace embedded

#endif
