#include "embedded/orv/files/storage.h"

#include <utility>

#include "embedded/orv/content/failure.h"
#include "embedded/orv/files/foreign_journal.h"
#include "embedded/orv/files/verification.h"

namespace embedded {
namespace {

// The last connection inherited from a parent process; it links to the earlier ones.
Storage* lastInherited = nullptr;

}  // namespace

Storage::Storage(const std::string& name)
    : database_(name), transactions_(database_), writer_(database_) {
    if (!isDataSource(database_)) {
        throw Failure(codes::notADataSource);
    }
    setForeignJournalsAside(database_);
}

void Storage::prepareSaving() {
    if (!database_.isWritable()) {
        throw Failure(codes::accessDenied);
    }
    // SQLite keeps temporary data and changed pages in memory, so that a save needs no file except
    // the journal.
    database_.execute(
        "PRAGMA synchronous = EXTRA; PRAGMA temp_store = MEMORY; PRAGMA cache_spill = OFF");
}

void Storage::readSchema() {
    const std::uint32_t version = requireSoundSchema(database_);
    if (!reader_ || reader_->version() != version) {
        reader_.emplace(database_, version);
    }
    hasSoundDirectory_ = reader_->readPossibleClasses();
}

void Storage::load(Content& content, const NeededClasses& needed) {
    if (readAhead_.load(database_, content, needed)) {
        return;
    }
    const Transactions::Reading reading(transactions_);
    const std::uint32_t dataVersion = database_.dataVersion();
    if (dataVersion_ != dataVersion) {
        readSchema();
        if (!content.isChanged()) {
            content = Content(reader_->classes().classes());
            dataVersion_ = dataVersion;
            readAhead_.fill(database_, *reader_, content);
        }
    }
    const auto missing = content.missing(needed);
    constexpr std::int64_t large = 1 << 20;  // bytes; smaller files need little cache
    if (!missing.empty() && database_.fileSize() > large) {
        database_.limitCache();
    }
    for (const std::uint16_t classCode : missing) {
        if (content.has(classCode)) {
            content.setLoaded(classCode, reader_->read(classCode));
        } else if (!hasSoundDirectory_) {
            throw Failure(codes::damaged);  // the class may be lost
        } else {
            reader_->requireNothingOf(classCode);
            content.setAbsent(classCode);
        }
    }
    if (!missing.empty()) {
        database_.releaseMemory();  // the content has its own copy of the blocks
    }
}

void Storage::startNew() {
    const Transactions::Reading reading(transactions_);
    reader_.emplace(database_, schemaVersion);
    dataVersion_ = database_.dataVersion();
}

void Storage::save(Content& content) {
    Transactions::Writing transaction(transactions_);
    const bool isOwnState = dataVersion_ == database_.dataVersion();
    if (!isOwnState) {
        readSchema();
        if (!hasSoundDirectory_) {
            throw Failure(codes::damaged);
        }
    }
    const bool converts = convertsAtSave();
    if (converts) {
        if (content.isMissing(allClasses)) {
            throw Failure(codes::inUse);  // another program has saved since the classes were loaded
        }
        replaceTables(database_, reader_->version());
        content.replaceAll();
    }
    ClassChecksums classes = converts ? ClassChecksums() : reader_->classes();
    if (isOwnState) {
        writer_.writeChanges(content, classes);
    } else {
        writer_.writeChangedClasses(content, classes);
    }
    transaction.commit();
    // Classes that another program saved are not loaded yet.
    dataVersion_ = isOwnState ? std::optional(database_.dataVersion()) : std::nullopt;
    if (converts) {
        reader_.emplace(database_, schemaVersion);
    }
    reader_->setClasses(std::move(classes));
}

void Storage::check() {
    const Transactions::Reading reading(transactions_);
    requireSoundFile(database_);
    database_.releaseMemory();
}

SalvagedRecords Storage::salvageRecords(std::uint16_t classCode) {
    const Transactions::Reading reading(transactions_);
    readSchema();
    return reader_->salvageRecords(classCode);
}

Block Storage::salvageBlock(std::uint16_t classCode) {
    const Transactions::Reading reading(transactions_);
    readSchema();
    return reader_->salvageBlock(classCode);
}

void Storage::leaveToParent(std::unique_ptr<Storage> storage) noexcept {
    if (storage != nullptr) {
        storage->previousInherited_ = lastInherited;
        lastInherited = storage.release();
    }
}

void Storage::compact() {
    try {
        database_.execute("VACUUM");
    } catch (const Failure& failure) {
        if (failure.code() == codes::damaged) {
            check();  // throws if the file is damaged; otherwise reading it failed
            throw Failure(codes::storageFailed);
        }
        throw;
    }
    dataVersion_.reset();
}

}  // namespace embedded
