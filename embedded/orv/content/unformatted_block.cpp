#include "embedded/orv/content/unformatted_block.h"

#include <algorithm>

#include "embedded/orv/content/failure.h"

namespace embedded {
namespace {

void requireChunk(std::size_t length) {
    if (length == 0 || length > UnformattedBlock::maxChunkSize) {
        throw Failure(codes::sizeRefused);
    }
}

}  // namespace

void UnformattedBlock::append(std::span<const char> chunk) {
    requireChunk(chunk.size());
    if (chunk.size() > capacity - position_) {
        throw Failure(codes::sizeRefused);
    }
    bytes_.resize(std::max(bytes_.size(), position_ + chunk.size()));
    std::copy(chunk.begin(), chunk.end(), bytes_.begin() + static_cast<std::ptrdiff_t>(position_));
    position_ += chunk.size();
}

void UnformattedBlock::beginRefilling() {
    endRefilling();
    position_ = 0;
}

void UnformattedBlock::endRefilling() noexcept {
    if (position_ != 0) {
        bytes_.resize(position_);  // position_ never exceeds the size
    }
    position_ = bytes_.size();
}

std::size_t UnformattedBlock::read(std::size_t offset, std::span<char> chunk) const {
    requireChunk(chunk.size());
    if (offset > bytes_.size()) {
        throw Failure(codes::sizeRefused);
    }
    const std::size_t stored = std::min(chunk.size(), bytes_.size() - offset);
    const auto stop =
        std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(offset), stored, chunk.begin());
    std::fill(stop, chunk.end(), '\0');
    return stored;
}

}  // namespace embedded
