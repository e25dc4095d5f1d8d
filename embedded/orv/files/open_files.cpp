#include "embedded/orv/files/open_files.h"

#include <cstdio>
#include <utility>

#include "embedded/orv/content/failure.h"
#include "embedded/orv/files/file_name.h"
#include "embedded/orv/files/fork_gate.h"
#include "embedded/orv/files/new_file.h"
#include "embedded/orv/files/schema.h"

namespace embedded {
namespace {

// Saves files that scripts did not close, at the normal end of the process.
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

// Returns the name in a form that SQLite does not interpret.
std::string plainName(const std::string& name) {
    return name.starts_with('/') ? name : "./" + name;
}

}  // namespace

OpenFiles& openFiles() {
    // Never destroyed: threads may still run while the process ends.
    static auto& files = *[] {
        auto created = std::make_unique<OpenFiles>();
        callInForkedProcess([] { openFiles().leaveToParent(); });
        return created.release();
    }();
    static const SaveAtExit saveAtExit(files);
    return files;
}

bool isDataSource(const std::string& name) {
    try {
        identityOf(name);  // throws if it is not a regular file: opening a pipe would wait
        Database database(plainName(name));
        return isDataSource(database);
    } catch (const Failure& failure) {
        switch (failure.code()) {
            case codes::fileNotFound:
            case codes::notADataSource:
            case codes::accessDenied:
            case codes::nameRefused:
                return false;
            default:
                throw;
        }
    }
}

OpenFiles::Entry* OpenFiles::find(const FileIdentity& identity) {
    const auto entry = entries_.find(identity);
    if (entry == entries_.end()) {
        return nullptr;
    }
    if (!entry->second.file->isOfThisProcess()) {
        entries_.erase(entry);
        return nullptr;
    }
    return &entry->second;
}

std::shared_ptr<DataFile> OpenFiles::open(const std::string& name, bool writing) {
    const std::lock_guard guard(mutex_);
    const FileIdentity identity = identityOf(name);
    Entry* entry = find(identity);
    if (entry == nullptr) {
        auto file = std::make_shared<DataFile>(plainName(name), identity);
        if (writing) {
            file->startWriting();
        }
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
    NewFile newFile(name);
    auto access = std::make_unique<WriteAccess>(newFile.descriptor());
    newFile.publish();
    auto file = std::make_shared<DataFile>(newFile.path(), newFile.identity(), std::move(access));
    entries_.insert_or_assign(file->identity(), Entry{file, 1, 1});
    newFile.keep();
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
    const LibraryCall call;
    const std::lock_guard guard(mutex_);
    for (const auto& [identity, entry] : entries_) {
        try {
            if (entry.file->isOfThisProcess()) {
                entry.file->save();
            }
        } catch (const std::exception&) {
            // Ignore a failure to print.
            static_cast<void>(
                std::fprintf(stderr, "%s: could not be saved\n", entry.file->path().c_str()));
        }
    }
}

void OpenFiles::leaveToParent() noexcept {
    for (const auto& [identity, entry] : entries_) {
        entry.file->leaveToParent();
    }
}

}  // namespace embedded
