// Blocks that most scripts read, loaded when a file is opened.
#ifndef PYORV3_EMBEDDED_ORV_FILES_READ_AHEAD_H
#define PYORV3_EMBEDDED_ORV_FILES_READ_AHEAD_H

#include <optional>

#include "embedded/orv/content/content.h"
#include "embedded/orv/files/block_reader.h"
#include "embedded/orv/files/database.h"
#include "embedded/orv/files/schema.h"

namespace embedded {

// The measurement and spectrum of a small file, with the state of the file that they belong to.
// Reading them in the transaction of the opening costs less than another transaction later.
class ReadAhead {
  public:
    // Reads the blocks if the file is small, within a transaction of the caller. Ignores failures,
    // which the call that needs a block reports.
    void fill(Database& database, BlockReader& reader, const Content& content);

    // Moves the needed classes into the content. False if the caller must read the file because a
    // class was not read ahead or the file has been saved since.
    bool load(Database& database, Content& content, const NeededClasses& needed);

  private:
    struct Ahead {
        HeaderState state;
        Blocks blocks;
    };
    std::optional<Ahead> ahead_;
};

}  // namespace embedded

#endif
