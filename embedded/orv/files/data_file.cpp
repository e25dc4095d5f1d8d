#include "embedded/orv/files/data_file.h"

#include <fcntl.h>

#include "embedded/orv/content/failure.h"
#include "embedded/orv/files/process.h"
#include "embedded/orv/files/storage.h"

namespace embedded {

DataFile::DataFile(std::string path, FileIdentity identity, bool writing)
    : path_(std::move(path)),
      identity_(identity),
      owner_(processGeneration()),
      descriptor_(path_, O_RDONLY) {
    if (!looksLikeDataSource(descriptor_)) {
        throw Failure(codes::notADataSource);
    }
    requireInPlace();
    if (writing) {
        lock_ = std::make_unique<WriteLock>(path_);
    }
    content_ = loadStorage(path_);
}

DataFile::DataFile(std::string path, FileIdentity identity, FileDescriptor descriptor,
                   std::unique_ptr<WriteLock> lock)
    : path_(std::move(path)),
      identity_(identity),
      owner_(processGeneration()),
      descriptor_(std::move(descriptor)),
      lock_(std::move(lock)) {}

bool DataFile::isOfThisProcess() const {
    return owner_ == processGeneration();
}

bool DataFile::isWrittenElsewhere() const {
    const std::lock_guard guard(mutex_);
    return lock_ == nullptr && WriteLock::isHeld(descriptor_);
}

bool DataFile::hasUnsavedChanges() const {
    const std::lock_guard guard(mutex_);
    return changed_;
}

void DataFile::requireThisProcess() const {
    if (!isOfThisProcess()) {
        throw Failure(codes::inUse);
    }
}

void DataFile::requireInPlace() const {
    try {
        if (identityOf(path_) == identity_) {
            return;
        }
    } catch (const Failure&) {  // whatever has the name now, it is not this file
    }
    throw Failure(codes::fileMoved);
}

void DataFile::startWriting() {
    const std::lock_guard guard(mutex_);
    requireThisProcess();
    if (lock_ == nullptr) {
        requireInPlace();
        auto lock = std::make_unique<WriteLock>(path_);
        content_ = loadStorage(path_);
        lock_ = std::move(lock);
    }
}

void DataFile::endWriting() {
    const std::lock_guard guard(mutex_);
    lock_.reset();
}

void DataFile::saveChanges() {
    if (changed_) {
        requireThisProcess();
        requireInPlace();
        content_.endRefilling();
        saveStorage(path_, content_);
        changed_ = false;
    }
}

void DataFile::save() {
    const std::lock_guard guard(mutex_);
    saveChanges();
}

void DataFile::compact() {
    const std::lock_guard guard(mutex_);
    requireThisProcess();
    requireInPlace();
    saveChanges();
    compactStorage(path_);
}

void DataFile::check() const {
    const std::lock_guard guard(mutex_);
    requireInPlace();
    loadStorage(path_);
}

void DataFile::refresh() {
    const std::lock_guard guard(mutex_);
    if (lock_ == nullptr) {
        requireInPlace();
        content_ = loadStorage(path_);
    }
}

void DataFile::reload() {
    const std::lock_guard guard(mutex_);
    requireInPlace();
    Content saved = loadStorage(path_);
    if (!changed_) {
        content_ = std::move(saved);
    }
}

}  // namespace embedded
