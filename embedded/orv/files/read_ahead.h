// Blocks that are read at the opening because most files are opened for them.
#ifndef PYORV3_EMBEDDED_ORV_FILES_READ_AHEAD_H
#define PYORV3_EMBEDDED_ORV_FILES_READ_AHEAD_H

#include <optional>

#include "embedded/orv/content/content.h"
#include "embedded/orv/files/block_reader.h"
#include "embedded/orv/files/database.h"
#include "embedded/orv/files/schema.h"

namespace embedded {

// The measurement and the spectrum of a small file, and the state of the file that they are of.
// Reading them in the transaction of the opening costs less than another transaction later.
class ReadAhead {
  public:
    // Reads the blocks if the file is small, within a transaction of the caller. Ignores failures:
    // the call that needs the block will meet them again.
    void fill(Database& database, BlockReader& reader, const Content& content);

    // Moves the needed classes into the content. False if the caller must read the file: a class
    // is not here, or something has been saved since.
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
