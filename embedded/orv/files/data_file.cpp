#include "embedded/orv/files/data_file.h"

#include "embedded/orv/content/classes.h"
#include "embedded/orv/content/failure.h"

namespace embedded {

DataFile::DataFile(const std::string& name, FileIdentity identity)
    : storage_(std::make_unique<Storage>(name)), path_(storage_->path()), identity_(identity) {
    loadFromFile(noClass);
}

DataFile::DataFile(const std::string& name, FileIdentity identity,
                   std::unique_ptr<WriteAccess> access)
    : storage_(std::make_unique<Storage>(name)),
      path_(storage_->path()),
      identity_(identity),
      access_(std::move(access)) {
    storage_->prepareSaving();
    storage_->startNew();
    content_.setNew();
}

bool DataFile::isWrittenElsewhere() const {
    const std::lock_guard guard(mutex_);
    return access_ == nullptr && WriteAccess::isHeld(path_);
}

bool DataFile::hasUnsavedChanges() const {
    const std::lock_guard guard(mutex_);
    return content_.isChanged();
}

bool DataFile::isDamaged() const {
    const std::lock_guard guard(mutex_);
    return damaged_;
}

void DataFile::requireThisProcess() const {
    if (inherited_) {
        throw Failure(codes::inUse);
    }
}

void DataFile::requireUndamaged() const {
    if (damaged_) {
        throw Failure(codes::readOnly);
    }
}

void DataFile::requireNotMoved() const {
    try {
        if (identityOf(path_) == identity_) {
            return;
        }
    } catch (const Failure&) {  // the name no longer belongs to this file
    }
    throw Failure(codes::fileMoved);
}

// ---- Loading ---------------------------------------------------------------------------------

Storage& DataFile::storage() {
    if (storage_ == nullptr) {
        if (content_.isChanged()) {
            throw Failure(codes::inUse);  // the parent may save the same changes
        }
        storage_ = std::make_unique<Storage>(path_);
    }
    return *storage_;
}

void DataFile::load(const NeededClasses& needed) {
    if (content_.isMissing(needed)) {
        loadFromFile(needed);
    }
    if (needed.all && !hasAllClasses_) {
        throw Failure(codes::damaged);
    }
}

void DataFile::loadFromFile(const NeededClasses& needed) {
    requireNotMoved();
    try {
        storage().load(content_, needed);
        hasAllClasses_ = storage().hasSoundDirectory();
        damaged_ = damaged_ || !hasAllClasses_;
    } catch (const Failure& failure) {
        damaged_ = damaged_ || failure.code() == codes::damaged;
        throw;
    }
}

Block DataFile::salvagedRecord(std::uint16_t classCode, std::size_t record) {
    const std::lock_guard guard(mutex_);
    if (!salvaged_ || salvaged_->first != classCode) {
        try {
            load({{classCode}});
            return blockOfRecord(content_, classCode, record);
        } catch (const Failure& failure) {
            if (failure.code() != codes::damaged) {
                throw;
            }
        }
        if (kindOf(classCode) != BlockKind::Records) {
            if (record != 1) {
                throw Failure(codes::noSuchRecord);
            }
            return storage().salvageBlock(classCode);
        }
        salvaged_ = {classCode, storage().salvageRecords(classCode)};
    }
    const SalvagedRecords& records = salvaged_->second;
    if (record == 0 || record > records.size()) {
        throw Failure(codes::noSuchRecord);
    }
    if (!records[record - 1]) {
        throw Failure(codes::damaged);
    }
    return RecordBlock({*records[record - 1]});
}

void DataFile::refresh() {
    const std::lock_guard guard(mutex_);
    if (access_ == nullptr) {
        loadFromFile(noClass);
    }
}

void DataFile::checkFile() {
    requireNotMoved();
    storage().check();
    damaged_ = false;
}

void DataFile::check() {
    const std::lock_guard guard(mutex_);
    checkFile();
}

void DataFile::verify() {
    const std::lock_guard guard(mutex_);
    checkFile();
    loadFromFile(noClass);
}

// ---- Saving ----------------------------------------------------------------------------------

void DataFile::startWriting() {
    const std::lock_guard guard(mutex_);
    requireThisProcess();
    if (access_ == nullptr) {
        requireNotMoved();
        auto access = std::make_unique<WriteAccess>(path_);
        storage().prepareSaving();
        loadFromFile(noClass);
        if (!hasAllClasses_) {
            throw Failure(codes::damaged);
        }
        // Check now whether the file can be converted. Check it too if it has several names: an
        // interrupted save may have left its journal beside another name, and a new save would
        // make the rollback impossible.
        if (storage().convertsAtSave() || hasSeveralNames(path_)) {
            checkFile();
        }
        access_ = std::move(access);
    }
}

void DataFile::endWriting() {
    const std::lock_guard guard(mutex_);
    access_.reset();
}

void DataFile::saveChanges() {
    if (content_.isChanged()) {
        requireThisProcess();
        requireNotMoved();
        if (storage().convertsAtSave()) {
            storage().load(content_, allClasses);
        }
        const ReservedDescriptors::Use use(access_->reserved());
        storage().save(content_);
        content_.changesSaved();
    }
}

void DataFile::save() {
    const std::lock_guard guard(mutex_);
    saveChanges();
}

void DataFile::compact() {
    const std::lock_guard guard(mutex_);
    requireThisProcess();
    requireUndamaged();
    requireNotMoved();
    saveChanges();
    const ReservedDescriptors::Use use(access_->reserved());
    storage().compact();
}

// ---- Forks -----------------------------------------------------------------------------------

void DataFile::leaveToParent() noexcept {
    inherited_ = true;
    Storage::leaveToParent(std::move(storage_));
    if (access_ != nullptr) {
        access_->leaveToParent();
    }
}

}  // namespace embedded
