// The SQLite 3 database that stores the content of a data source (FORMAT.md).
#ifndef PYORV3_EMBEDDED_ORV_FILES_STORAGE_H
#define PYORV3_EMBEDDED_ORV_FILES_STORAGE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "embedded/orv/content/content.h"
#include "embedded/orv/files/block_reader.h"
#include "embedded/orv/files/block_writer.h"
#include "embedded/orv/files/database.h"
#include "embedded/orv/files/read_ahead.h"
#include "embedded/orv/files/schema.h"

namespace embedded {

// The connection to the file of one data source. It lives as long as the source is open and is used
// only by the process that created it. Functions throw Failure as Database.
class Storage {
  public:
    // Throws Failure also: notADataSource.
    explicit Storage(const std::string& name);

    // Returns the absolute path of the file, from which SQLite derives the name of the journal.
    [[nodiscard]] std::string path() const { return database_.path(); }

    // Prepares the connection for saving: each commit is synced, including the deletion of the
    // journal, which a power cut must not undo. Throws Failure(accessDenied).
    void prepareSaving();

    // Loads the needed classes. If the file was saved since the content was loaded and the content
    // has no unsaved changes, all loaded classes are dropped first, so that all loaded classes
    // belong to the same saved state. If the needed classes were read ahead, this only reads the
    // header of the file.
    void load(Content& content, const NeededClasses& needed);

    // Replaces the first load for an empty file that this process has just created, which need not
    // be verified.
    void startNew();

    // True if the next save converts the tables of an earlier version, for which all classes must
    // be loaded. Called after the first load.
    [[nodiscard]] bool convertsAtSave() const { return reader_->version() < schemaVersion; }

    // Writes the changes in one transaction, which is on the disk when the call returns. If the
    // process is killed during the call, the file has either the old or the new content. If the
    // call throws, the file has its old content.
    void save(Content& content);

    // Reads the whole file. Throws Failure(damaged) for contradictions and wrong checksums.
    void check();

    // False if the directory was damaged when it was last read.
    [[nodiscard]] bool hasSoundDirectory() const { return hasSoundDirectory_; }

    // Return the verified content of a damaged class, as the functions of BlockReader.
    SalvagedRecords salvageRecords(std::uint16_t classCode);
    Block salvageBlock(std::uint16_t classCode);

    // Returns unused space of the file to the file system.
    void compact();

    // Called in a forked process, which must neither use nor close connections of SQLite: keeps the
    // connection until the process ends. Neither allocates nor waits.
    static void leaveToParent(std::unique_ptr<Storage> storage) noexcept;

  private:
    // Checks the schema, creates the reader for its version and reads the classes of the file.
    void readSchema();

    Database database_;
    Transactions transactions_;
    std::optional<BlockReader> reader_;  // set by the first load
    bool hasSoundDirectory_ = true;
    BlockWriter writer_;
    ReadAhead readAhead_;
    // The saved state from which the content was loaded; nullopt if it is not known.
    std::optional<std::uint32_t> dataVersion_;
    Storage* previousInherited_ = nullptr;
};

}  // namespace embedded

#endif
