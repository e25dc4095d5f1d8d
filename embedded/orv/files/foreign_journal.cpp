#include "embedded/orv/files/foreign_journal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "embedded/orv/content/failure.h"
#include "embedded/orv/files/file_descriptor.h"
#include "embedded/orv/files/file_name.h"
#include "embedded/orv/files/first_page.h"
#include "embedded/orv/files/rollback_journal.h"
#include "embedded/orv/files/verification.h"

namespace embedded {
namespace {

enum class Journal {
    Needed,     // it belongs to this file or is harmless: left to SQLite
    Completed,  // its transaction is complete in the file
    Foreign,    // it belongs to another file or state
};

bool isRegularFile(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

// True if the file is consistent without the journal, as its checksums show.
bool isSoundWithoutJournal(Database& database) {
    std::vector<unsigned char> image(static_cast<std::size_t>(database.fileSize()));
    database.readStart(image);
    try {
        Database copy(image);
        requireSoundFile(copy);
    } catch (const Failure&) {
        return false;
    }
    return true;
}

// The change counter of a new file begins at a random number and each save increases it by one. So
// a journal belongs to this file if its header equals that of the file (no page was written yet) or
// if the counter of the file is the next one.
//
// The counter is also the next one if a copy of the earlier state was saved once and then replaced
// the file, or if the file was saved once by another of its names. The file is consistent then.
Journal kindOf(const RollbackJournal& journal, Database& database, const FirstPage& page) {
    if (!journal.hasPages()) {  // a rollback would only change the size
        return journal.databaseSize() == database.fileSize() ? Journal::Needed : Journal::Foreign;
    }
    const auto& before = journal.firstPage();
    const std::uint32_t commits = before ? page.changeCounter() - before->changeCounter() : 1;
    if (commits == 0) {
        const bool isSame = std::ranges::equal(page.header(), before->header());
        return isSame ? Journal::Needed : Journal::Foreign;
    }
    if (commits > 1) {
        return Journal::Foreign;
    }
    const bool isDecidable = page.isOfDataSource() && page.schemaVersion() > 1;
    if (!isDecidable || !isSoundWithoutJournal(database)) {
        return Journal::Needed;
    }
    return before ? Journal::Completed : Journal::Foreign;
}

void requireSuccess(int result) {
    if (result != 0 && errno != ENOENT) {
        throwSystemFailure(errno);
    }
}

void handleJournal(Database& database, const FirstPage& page, const std::string& path) {
    const auto journal = RollbackJournal::read(path + "-journal");
    const Journal kind = journal ? kindOf(*journal, database, page) : Journal::Needed;
    if (kind == Journal::Completed) {
        database.sync();
        requireSuccess(unlink((path + "-journal").c_str()));
    } else if (kind == Journal::Foreign) {
        requireSuccess(std::rename((path + "-journal").c_str(), (path + ".journal").c_str()));
    }
}

// The header of a file in write-ahead mode is written before its log exists.
void handleLog(const FirstPage& page, const std::string& path) {
    if (!page.usesWriteAheadLog()) {
        requireSuccess(std::rename((path + "-wal").c_str(), (path + ".wal").c_str()));
        requireSuccess(unlink((path + "-shm").c_str()));
    }
}

}  // namespace

void setForeignJournalsAside(Database& database) {
    const std::string path = database.path();
    const auto hasJournal = [&path] { return isRegularFile(path + "-journal"); };
    const auto hasLog = [&path] { return isRegularFile(path + "-wal"); };
    if (!database.isWritable() || (!hasJournal() && !hasLog())) {
        return;
    }
    const Database::ExclusiveLock lock(database);
    if (!lock.isHeld()) {
        return;  // the program that locks the file has handled the journal or is writing it
    }
    const FirstPage page(database);
    // A writer may have completed its save before the lock was acquired.
    if (hasJournal()) {
        handleJournal(database, page, path);
    }
    if (hasLog()) {
        handleLog(page, path);
    }
    const FileDescriptor folder(folderOf(path), O_RDONLY | O_DIRECTORY);
    fsync(folder.number());
}

}  // namespace embedded
