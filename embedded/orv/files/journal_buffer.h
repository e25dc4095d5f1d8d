// Writes rollback journals in few large pieces.
#ifndef PYORV3_EMBEDDED_ORV_FILES_JOURNAL_BUFFER_H
#define PYORV3_EMBEDDED_ORV_FILES_JOURNAL_BUFFER_H

namespace embedded {

// Returns the name of a VFS of SQLite that differs from the default one in rollback journals:
// SQLite writes three small pieces for each page; this VFS collects them until SQLite syncs the
// journal. Before that sync SQLite does not change the file to which the journal belongs, so pieces
// that are lost with a killed process are not needed. Throws Failure(storageFailed).
const char* vfsWithJournalBuffer();

}  // namespace embedded

#endif
