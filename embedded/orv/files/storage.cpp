#include "embedded/orv/files/storage.h"

#include <algorithm>
#include <array>
#include <utility>

#include "embedded/orv/content/failure.h"
#include "embedded/pqar/parameter_codes.h"

namespace embedded {
namespace {

// What most files are opened for.
constexpr std::array<std::uint16_t, 2> classesAhead = {QAR_CLS_MEASUREMENT, QAR_CLS_SPECTRUM};

// The last connection that was left to a parent process; the others hang on it.
Storage* lastLeft = nullptr;

}  // namespace

Storage::Storage(const std::string& name)
    : database_(name), transactions_(database_), reader_(database_), writer_(database_) {
    if (!isDataSource(database_)) {
        throw Failure(codes::notADataSource);
    }
}

void Storage::prepareSaving() {
    if (!database_.isWritable()) {
        throw Failure(codes::accessDenied);
    }
    // In memory, so that no save needs more files than the journal: what SQLite puts aside within
    // a transaction, and changed pages until they are all written at once.
    database_.execute(
        "PRAGMA synchronous = EXTRA; PRAGMA temp_store = MEMORY; PRAGMA cache_spill = OFF");
}

bool Storage::loadReadAhead(Content& content, const NeededClasses& needed) {
    const auto missing = content.missing(needed);
    const auto isAhead = [this](std::uint16_t code) { return ahead_->blocks.contains(code); };
    if (!ahead_ || missing.empty() || !std::ranges::all_of(missing, isAhead) ||
        headerState(database_) != ahead_->state) {
        return false;
    }
    for (const std::uint16_t classCode : missing) {
        if (const auto block = ahead_->blocks.extract(classCode)) {
            content.setLoaded(classCode, std::move(block.mapped()));
        }
    }
    return true;
}

// Of a file so small that this costs less than another transaction.
void Storage::readAhead(const Content& content) {
    constexpr std::int64_t small = 1 << 16;  // bytes
    ahead_.reset();
    try {
        const auto state = headerState(database_);
        if (state && database_.fileSize() <= small) {
            Blocks blocks;
            for (const std::uint16_t classCode : classesAhead) {
                if (content.has(classCode)) {
                    blocks.emplace(classCode, reader_.read(classCode));
                }
            }
            ahead_ = ReadAhead{*state, std::move(blocks)};
        }
    } catch (const std::exception&) {  // the call that needs the class will meet it again
        return;
    }
}

void Storage::load(Content& content, const NeededClasses& needed) {
    if (loadReadAhead(content, needed)) {
        return;
    }
    const Transactions::Reading reading(transactions_);
    const std::uint32_t version = database_.dataVersion();
    if (version_ != version) {
        requireSoundSchema(database_);
        if (!content.isChanged()) {
            content = Content(reader_.classes());
            version_ = version;
            readAhead(content);
        }
    }
    const auto missing = content.missing(needed);
    constexpr std::int64_t large = 1 << 20;  // bytes, beside which the pages kept count for little
    if (!missing.empty() && database_.fileSize() > large) {
        database_.keepFewPages();
    }
    for (const std::uint16_t classCode : missing) {
        if (content.has(classCode)) {
            content.setLoaded(classCode, reader_.read(classCode));
        } else {
            reader_.requireNothingOf(classCode);
            content.setAbsent(classCode);
        }
    }
    if (!missing.empty()) {
        database_.releaseMemory();  // what was read is in memory now, and not twice
    }
}

void Storage::save(const Content& content) {
    Transactions::Writing transaction(transactions_);
    const bool isOwnState = version_ == database_.dataVersion();
    if (isOwnState) {
        writer_.writeChanges(content);
    } else {
        requireSoundSchema(database_);
        writer_.writeChangedClasses(content);
    }
    transaction.commit();
    // What another program saved of the other classes is not loaded yet.
    version_ = isOwnState ? std::optional(database_.dataVersion()) : std::nullopt;
}

bool Storage::passesQuickCheck() {
    Statement check(database_, "PRAGMA quick_check(1)");
    Execution row(check);
    return row.step() && row.text(0) == "ok";
}

void Storage::check() {
    const Transactions::Reading reading(transactions_);
    requireSoundSchema(database_);
    if (!passesQuickCheck()) {
        throw Failure(database_.readingFailed() ? codes::storageFailed : codes::damaged);
    }
    reader_.readAll();
    database_.releaseMemory();
}

void Storage::leaveToParent(std::unique_ptr<Storage> storage) noexcept {
    if (storage != nullptr) {
        storage->leftBefore_ = lastLeft;
        lastLeft = storage.release();
    }
}

void Storage::compact() {
    try {
        database_.execute("VACUUM");
    } catch (const Failure& failure) {
        if (failure.code() == codes::damaged) {
            check();  // so it is, unless what failed was the reading
            throw Failure(codes::storageFailed);
        }
        throw;
    }
    version_.reset();
}

}  // namespace embedded
