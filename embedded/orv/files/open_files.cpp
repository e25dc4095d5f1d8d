#include "embedded/orv/files/open_files.h"

#include <fcntl.h>

#include <cstdio>
#include <utility>

#include "embedded/orv/content/failure.h"
#include "embedded/orv/files/new_file.h"
#include "embedded/orv/files/process.h"

namespace embedded {
namespace {

// Saves at the normal end of the process what scripts did not close.
class SaveAtExit {
  public:
    explicit SaveAtExit(OpenFiles& files) : files_(files) {}
    ~SaveAtExit() { files_.saveAll(); }
    SaveAtExit(const SaveAtExit&) = delete;
    SaveAtExit& operator=(const SaveAtExit&) = delete;
    SaveAtExit(SaveAtExit&&) = delete;
    SaveAtExit& operator=(SaveAtExit&&) = delete;

  private:
    OpenFiles& files_;
};

}  // namespace

OpenFiles& openFiles() {
    // Never destroyed: threads may still be at work while the process ends.
    static auto& files = *std::make_unique<OpenFiles>().release();
    static const SaveAtExit saveAtExit(files);
    return files;
}

OpenFiles::Entry* OpenFiles::find(const FileIdentity& identity) {
    const auto found = entries_.find(identity);
    if (found == entries_.end()) {
        return nullptr;
    }
    if (!found->second.file->isOfThisProcess()) {
        entries_.erase(found);
        return nullptr;
    }
    return &found->second;
}

std::shared_ptr<DataFile> OpenFiles::open(const std::string& name, bool writing) {
    std::string path = absolutePath(name);
    const std::lock_guard guard(mutex_);
    user_ = processGeneration();
    const FileIdentity identity = identityOf(path);
    Entry* entry = find(identity);
    if (entry == nullptr) {
        auto file = std::make_shared<DataFile>(std::move(path), identity, writing);
        entry = &entries_.emplace(identity, Entry{std::move(file)}).first->second;
    } else if (writing) {
        entry->file->startWriting();
    } else {
        entry->file->refresh();
    }
    ++entry->users;
    entry->writers += writing ? 1 : 0;
    return entry->file;
}

std::shared_ptr<DataFile> OpenFiles::create(const std::string& name) {
    const std::lock_guard guard(mutex_);
    user_ = processGeneration();
    NewFile made(name);
    const std::string& temporary = made.temporaryPath();
    const FileIdentity identity = identityOf(temporary);
    auto file =
        std::make_shared<DataFile>(made.finalPath(), identity, FileDescriptor(temporary, O_RDONLY),
                                   std::make_unique<WriteLock>(temporary));
    entries_.insert_or_assign(identity, Entry{file, 1, 1});
    try {
        made.publish();
    } catch (...) {
        entries_.erase(identity);
        throw;
    }
    return file;
}

void OpenFiles::close(const std::shared_ptr<DataFile>& file, bool writing) {
    const std::lock_guard guard(mutex_);
    if (file->isOfThisProcess()) {
        file->save();
    }
    endUse(file, writing);
}

void OpenFiles::abandon(const std::shared_ptr<DataFile>& file, bool writing) {
    const std::lock_guard guard(mutex_);
    try {
        if (file->isOfThisProcess()) {
            file->save();
        }
    } catch (...) {
        endUse(file, writing);
        throw;
    }
    endUse(file, writing);
}

void OpenFiles::endUse(const std::shared_ptr<DataFile>& file, bool writing) {
    Entry* entry = find(file->identity());
    if (entry == nullptr || entry->file != file) {
        return;  // the use of a file that the parent process opened
    }
    --entry->users;
    entry->writers -= writing ? 1 : 0;
    if (file->hasUnsavedChanges()) {
        return;
    }
    if (entry->writers == 0) {
        file->endWriting();
    }
    if (entry->users == 0) {
        entries_.erase(file->identity());
    }
}

void OpenFiles::saveAll() noexcept {
    // A forked process that opened nothing has nothing to save, and must not wait for a mutex that
    // another thread of its parent may have held when it was forked.
    if (user_ != processGeneration()) {
        return;
    }
    const std::lock_guard guard(mutex_);
    for (const auto& [identity, entry] : entries_) {
        try {
            if (entry.file->isOfThisProcess()) {
                entry.file->save();
            }
        } catch (const std::exception&) {
            // Where even this cannot be reported, there is nobody left to tell.
            static_cast<void>(
                std::fprintf(stderr, "%s: could not be saved\n", entry.file->path().c_str()));
        }
    }
}

bool OpenFiles::isDataSource(const std::string& name) {
    const std::lock_guard guard(mutex_);
    try {
        return find(identityOf(name)) != nullptr ||
               looksLikeDataSource(FileDescriptor(name, O_RDONLY));
    } catch (const Failure&) {
        return false;
    }
}

}  // namespace embedded
