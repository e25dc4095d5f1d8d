// Checks a whole file.
#ifndef PYORV3_EMBEDDED_ORV_FILES_VERIFICATION_H
#define PYORV3_EMBEDDED_ORV_FILES_VERIFICATION_H

#include "embedded/orv/files/database.h"

namespace embedded {

// Checks the schema, the structures of SQLite and all rows with their checksums. Called within a
// transaction. Throws Failure: damaged; storageFailed if the system failed to read the file.
void requireSoundFile(Database& database);

}  // namespace embedded

#endif
