#include "embedded/orv/files/verification.h"

#include "embedded/orv/content/failure.h"
#include "embedded/orv/files/block_reader.h"
#include "embedded/orv/files/schema.h"

namespace embedded {
namespace {

bool passesQuickCheck(Database& database) {
    Statement check(database, "PRAGMA quick_check(1)");
    Execution row(check);
    return row.step() && row.text(0) == "ok";
}

}  // namespace

void requireSoundFile(Database& database) {
    BlockReader reader(database, requireSoundSchema(database));
    if (!passesQuickCheck(database)) {
        throw Failure(database.readingFailed() ? codes::storageFailed : codes::damaged);
    }
    reader.readAll();
}

}  // namespace embedded
