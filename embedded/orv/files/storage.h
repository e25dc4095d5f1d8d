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

    // Brings the content to the saved state: when anything was saved since the content was loaded,
    // it is given up, unless it has unsaved changes, and has the file's classes instead, none of
    // them loaded. Then loads the needed classes. All that is loaded is of one saved state. Where
    // the needed classes were read ahead, the file's header alone is looked at.
    void load(Content& content, const NeededClasses& needed);

    // Writes what was changed in one transaction that is on the disk when the call returns: a
    // process killed during the call leaves the old content or the new. When it throws, the file
    // has its old content.
    void save(const Content& content);

    // Reads everything. Throws Failure(damaged) for what does not hold together.
    void check();

    // Gives the file's unused room back to the file system.
    void compact();

    // In a forked process: SQLite's connections must be neither used nor closed in one, so that
    // this one stays as it is for ever. Neither allocates nor waits.
    static void leaveToParent(std::unique_ptr<Storage> storage) noexcept;

  private:
    // Blocks that no call has needed yet, and the state of the file that they are of.
    struct ReadAhead {
        HeaderState state;
        Blocks blocks;
    };

    // Loads what is needed out of what was read ahead; false where the file must be looked at.
    bool loadReadAhead(Content& content, const NeededClasses& needed);
    void readAhead(const Content& content);
    bool passesQuickCheck();

    Database database_;
    Transactions transactions_;
    BlockReader reader_;
    BlockWriter writer_;
    // Of the saved state that the content was loaded from; nothing when that is not known.
    std::optional<std::uint32_t> version_;
    std::optional<ReadAhead> ahead_;
    Storage* leftBefore_ = nullptr;
};

}  // namespace embedded

#endif
