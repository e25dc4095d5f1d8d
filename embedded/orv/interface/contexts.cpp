#include "embedded/orv/interface/contexts.h"

#include <limits>
#include <mutex>

#include "embedded/orv/content/failure.h"

namespace embedded {

Contexts& contexts() {
    // Never destroyed: threads may still be at work while the process ends.
    static auto& all = *std::make_unique<Contexts>().release();
    return all;
}

OrvContext Contexts::create() {
    auto made = std::make_shared<Context>();
    const std::unique_lock guard(mutex_);
    if (last_ == std::numeric_limits<OrvContext>::max()) {
        throw Failure(codes::noHandleLeft);
    }
    contexts_.emplace(last_ + 1, std::move(made));
    return ++last_;
}

std::shared_ptr<Context> Contexts::find(OrvContext handle) const {
    const std::shared_lock guard(mutex_);
    const auto found = contexts_.find(handle);
    if (found == contexts_.end()) {
        throw Failure(codes::unknownContext);
    }
    return found->second;
}

std::shared_ptr<Context> Contexts::remove(OrvContext handle) {
    const std::unique_lock guard(mutex_);
    const auto found = contexts_.find(handle);
    if (found == contexts_.end()) {
        throw Failure(codes::unknownContext);
    }
    auto removed = std::move(found->second);
    contexts_.erase(found);
    return removed;
}

}  // namespace embedded
