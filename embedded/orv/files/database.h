// SQLite's handles as classes, its results as Failure.
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

// One connection to a database file, closed with the object; used by one thread at a time, and by
// the process alone that opened it. Every operation throws Failure: damaged where the file's
// content is to blame; inUse when another program holds the file for longer than a second;
// accessDenied; tooManyOpen; fileMoved; storageFailed for the rest; and std::bad_alloc.
class Database {
  public:
    // An existing file, writable where the system lets it be. Nothing that its schema holds is
    // run. Reading may write all the same: it brings a file in order whose writer was killed.
    // name: begins with / or ./, as SQLite gives other names meanings of its own; or is ":memory:".
    explicit Database(const std::string& name);
    // A copy in memory of a file with this content, for reading.
    explicit Database(std::span<const unsigned char> image);

    // The file's absolute path.
    [[nodiscard]] std::string path() const;

    // One statement or several, without results.
    void execute(const char* sql);

    // The file as it is on the disk, past SQLite's cache. The start is cut off or filled with zeros
    // to the size of the span. These use the connection's own descriptor: closing another one of
    // the file would release the locks that any connection of this process has on it.
    void readStart(std::span<unsigned char> start);
    [[nodiscard]] std::int64_t fileSize();
    // Waits until the file's content is on the disk.
    void sync();
    // Whether the system has failed to read the file: SQLite calls damaged what is then missing.
    [[nodiscard]] bool readingFailed() const;

    // A number that changes whenever anything is committed to the file, through this connection or
    // another one; known to the moment at which the present transaction began to read.
    [[nodiscard]] std::uint32_t dataVersion();
    [[nodiscard]] bool isWritable() const;
    // The number of rows that the last statement has changed.
    [[nodiscard]] int changedRows() const { return sqlite3_changes(handle_.get()); }

    // Keeps few pages from now on, as what is read through once from end to end needs.
    void keepFewPages();
    // Lets memory go that only makes reading the same again quicker.
    void releaseMemory();

    // SQLite's lock that keeps all other connections out, held with the object. Taken between two
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

    // Throws the Failure for a result of SQLite that is none of success.
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

// A statement that is prepared when it is first used and kept for the next time.
class Statement {
  public:
    // sql lives as long as the object.
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

// One execution of a statement, which ends with the object.
class Execution {
  public:
    // arguments: numbers, bytes that live as long as the object, and nullptr for NULL.
    template <typename... Arguments>
    explicit Execution(Statement& statement, const Arguments&... arguments)
        : database_(statement.database()), handle_(statement.prepared()) {
        int parameter = 0;
        (bind(++parameter, arguments), ...);
    }
    ~Execution() { sqlite3_reset(handle_); }
    Execution(const Execution&) = delete;
    Execution& operator=(const Execution&) = delete;
    Execution(Execution&&) = delete;
    Execution& operator=(Execution&&) = delete;

    // Goes to the next row; false when there is none.
    bool step();

    // A column of the row, counted from 0. number: a whole number from 0 to max, else
    // Failure(damaged). bits: those of a whole number, else Failure(damaged). bytes: valid until
    // the next step.
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

    // A transaction that only reads: what is read while it lives is of one saved state. SQLite ends
    // a transaction that was not begun expressly when the last of its statements ends.
    class Reading {
      public:
        explicit Reading(Transactions& transactions);

      private:
        Execution firstLook_;
    };

    // A transaction that writes, which is undone unless it is committed.
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
    // Undoes a transaction whose undoing failed before, for lack of memory.
    void endWhatIsLeft();

    Database& database_;
    Statement firstLook_;  // at what stands in every file, before its schema is read
    Statement begin_;
    Statement commit_;
    Statement rollback_;
};

}  // namespace embedded

#endif
