// Journals beside a file that belong to another file.
#ifndef PYORV3_EMBEDDED_ORV_FILES_FOREIGN_JOURNAL_H
#define PYORV3_EMBEDDED_ORV_FILES_FOREIGN_JOURNAL_H

#include "embedded/orv/files/database.h"

namespace embedded {

// SQLite rolls back any journal that it finds under the name of a file, even if the file was
// replaced, restored or created after the journal was left behind. This renames such journals to
// `NAME.journal` before SQLite reads the file, so that the file which they belong to can still be
// recovered. FORMAT.md describes how a journal is recognised.
//
// Called before the first transaction of a connection. Throws Failure as Database, accessDenied if
// the journal cannot be renamed.
void setForeignJournalsAside(Database& database);

}  // namespace embedded

#endif
