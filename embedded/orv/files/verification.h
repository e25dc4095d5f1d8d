// The check of a whole file.
#ifndef PYORV3_EMBEDDED_ORV_FILES_VERIFICATION_H
#define PYORV3_EMBEDDED_ORV_FILES_VERIFICATION_H

#include "embedded/orv/files/database.h"

namespace embedded {

// Reads everything: the schema, SQLite's structures, all rows with their checksums. Called within a
// transaction. Throws Failure: damaged; storageFailed if the system failed to read the file.
void requireSoundFile(Database& database);

}  // namespace embedded

#endif
