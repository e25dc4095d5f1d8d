#include "embedded/orv/content/spectrum_block.h"

#include <algorithm>

#include "embedded/orv/content/failure.h"

namespace embedded {
namespace {

void requireRange(std::size_t firstChannel, std::size_t count, std::size_t limit) {
    if (firstChannel == 0 || firstChannel > limit || count > limit - firstChannel + 1) {
        throw Failure(codes::sizeRefused);
    }
}

}  // namespace

void SpectrumBlock::extend(std::size_t channelCount) {
    if (channelCount > capacity) {
        throw Failure(codes::sizeRefused);
    }
    contents_.resize(std::max(channelCount, contents_.size()));
}

void SpectrumBlock::put(std::size_t firstChannel, std::span<const std::int32_t> contents,
                        std::size_t limit) {
    requireRange(firstChannel, contents.size(), limit);
    extend(firstChannel - 1 + contents.size());
    std::ranges::copy(contents, contents_.begin() + static_cast<std::ptrdiff_t>(firstChannel - 1));
}

void SpectrumBlock::get(std::size_t firstChannel, std::span<std::int32_t> contents,
                        std::size_t limit) const {
    requireRange(firstChannel, contents.size(), limit);
    const std::size_t start = std::min(firstChannel - 1, contents_.size());
    const std::size_t stored = std::min(contents.size(), contents_.size() - start);
    const auto stop = std::copy_n(contents_.begin() + static_cast<std::ptrdiff_t>(start), stored,
                                  contents.begin());
    std::fill(stop, contents.end(), 0);
}

}  // namespace embedded
