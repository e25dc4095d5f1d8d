#include "embedded/orv/entry_points/context.h"

#include <limits>
#include <mutex>
#include <new>
#include <utility>

#include "embedded/orv/content/classes.h"
#include "embedded/orv/content/failure.h"
#include "embedded/orv/files/inputs.h"
#include "embedded/orv/files/open_files.h"

namespace embedded {

std::uint32_t codeOfCurrentException() noexcept {
    try {
        throw;
    } catch (const Failure& failure) {
        return failure.code();
    } catch (const std::bad_alloc&) {
        return codes::outOfMemory;
    } catch (...) {
        return codes::internalFailure;
    }
}

void Context::open(const std::string& path, bool writing) {
    if (file_ != nullptr) {
        throw Failure(codes::alreadyOpen);
    }
    openingState_ = 0;
    creationRefused_ = false;
    try {
        file_ = openFiles().open(path, writing);
    } catch (const Failure& failure) {
        if (failure.code() != codes::damaged) {
            throw;
        }
        openingState_ = unusableBit;
        throw Failure(codes::openedWithRemark);
    }
    writing_ = writing;
    if (file_->isWrittenElsewhere()) {
        openingState_ = writtenElsewhereBit;
    }
}

void Context::create(const std::string& path) {
    if (file_ != nullptr) {
        throw Failure(codes::alreadyOpen);
    }
    openingState_ = 0;
    creationRefused_ = true;
    file_ = openFiles().create(path);
    creationRefused_ = false;
    writing_ = true;
}

void Context::close() {
    if (std::exchange(creationRefused_, false)) {
        return;
    }
    static_cast<void>(source());  // throws if there is none
    openFiles().close(file_, writing_);
    file_.reset();
    salvaging_ = false;
}

void Context::abandon() {
    salvaging_ = false;
    if (const auto file = std::exchange(file_, nullptr)) {
        openFiles().abandon(file, writing_);
    }
}

std::uint32_t Context::sourceState() const {
    if (file_ == nullptr) {
        return 0;
    }
    const bool writable = writing_ && !file_->isDamaged();
    return openBit | (file_->hasUnsavedChanges() ? changedBit : 0) | (writable ? 0 : readOnlyBit);
}

DataFile& Context::source() const {
    if (file_ == nullptr) {
        throw Failure(codes::noSourceOpen);
    }
    return *file_;
}

DataFile& Context::writableSource() const {
    DataFile& file = source();
    if (!writing_) {
        throw Failure(codes::readOnly);
    }
    return file;
}

void Context::startSalvage() {
    static_cast<void>(source());  // throws if there is none
    salvaging_ = true;
}

Block Context::record(std::uint16_t classCode, std::size_t record) const {
    if (salvaging_) {
        return source().salvagedRecord(classCode, record);
    }
    return source().read({{classCode}}, [=](const Content& content) {
        return blockOfRecord(content, classCode, record);
    });
}

void Context::beginInputs() {
    inputs_ = inputNames();
    inputIndex_ = 0;
}

std::optional<std::string> Context::nextInput() {
    if (inputIndex_ == inputs_.size()) {
        return std::nullopt;
    }
    return inputs_[inputIndex_++];
}

Contexts& contexts() {
    // Never destroyed: threads may still run while the process ends.
    static auto& all = *std::make_unique<Contexts>().release();
    return all;
}

OrvContext Contexts::create() {
    auto context = std::make_shared<Context>();
    const std::unique_lock guard(mutex_);
    if (last_ == std::numeric_limits<OrvContext>::max()) {
        throw Failure(codes::noHandleLeft);
    }
    contexts_.emplace(last_ + 1, std::move(context));
    return ++last_;
}

std::shared_ptr<Context> Contexts::find(OrvContext handle) const {
    const std::shared_lock guard(mutex_);
    const auto row = contexts_.find(handle);
    if (row == contexts_.end()) {
        throw Failure(codes::unknownContext);
    }
    return row->second;
}

std::shared_ptr<Context> Contexts::remove(OrvContext handle) {
    const std::unique_lock guard(mutex_);
    const auto row = contexts_.find(handle);
    if (row == contexts_.end()) {
        throw Failure(codes::unknownContext);
    }
    auto removed = std::move(row->second);
    contexts_.erase(row);
    return removed;
}

}  // namespace embedded
