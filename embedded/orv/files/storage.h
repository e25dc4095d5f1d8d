// A data source's content in its file, an SQLite 3 database (FORMAT.md).
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

// The connection to the file of one data source. It lives as long as the source is open and is
// used by the process alone that made it. Functions throw Failure as Database.
class Storage {
  public:
    // Throws Failure also: notADataSource.
    explicit Storage(const std::string& name);

    // The file's absolute path, by which SQLite names the journal.
    [[nodiscard]] std::string path() const { return database_.path(); }

    // Makes the connection fit for save: what was saved is on the disk, and so are the names of
    // files that a power cut must not bring back. Throws Failure(accessDenied).
    void prepareSaving();

    // Brings the content to the saved state: if anything was saved since it was loaded and it has
    // no unsaved changes, it is replaced by the file's classes, none of them loaded. Then loads the
    // needed classes. All that is loaded is of one saved state. If the needed classes were read
    // ahead, this only reads the file's header.
    void load(Content& content, const NeededClasses& needed);

    // In place of the first load of a file that this process has just created and that holds
    // nothing: there is nothing to verify.
    void startNew();

    // True if the next save replaces the tables of an earlier version by those of this one. All
    // classes must be loaded for it. Not before the first load.
    [[nodiscard]] bool convertsAtSave() const { return reader_->version() < schemaVersion; }

    // Writes the changes in one transaction that is on the disk when the call returns: a process
    // killed during the call leaves the old content or the new. If it throws, the file has its old
    // content.
    void save(Content& content);

    // Reads everything. Throws Failure(damaged) for contradictions and wrong checksums.
    void check();

    // Gives the file's unused room back to the file system.
    void compact();

    // In a forked process: SQLite's connections must be neither used nor closed in one, so that
    // this one stays as it is for ever. Neither allocates nor waits.
    static void leaveToParent(std::unique_ptr<Storage> storage) noexcept;

  private:
    // Checks the schema, and reads which classes the file has with the reader for its version.
    void readSchema();

    Database database_;
    Transactions transactions_;
    std::optional<BlockReader> reader_;  // set by the first load
    BlockWriter writer_;
    ReadAhead readAhead_;
    // Identifies the saved state that the content was loaded from; nullopt if that is not known.
    std::optional<std::uint32_t> dataVersion_;
    Storage* leftBefore_ = nullptr;
};

}  // namespace embedded

#endif
