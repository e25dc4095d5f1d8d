#include "parameters/byte_stream.h"

#include <algorithm>
#include <utility>

namespace Tarsel::Utility {

ByteStream::ByteStream(std::uint32_t byteCount) {
    grow(byteCount);
}

void ByteStream::grow(std::uint32_t byteCount) {
    if (byteCount <= size_) {
        return;
    }
    auto grown = std::make_unique<std::uint8_t[]>(byteCount);
    std::copy_n(data_.get(), size_, grown.get());
    data_ = std::move(grown);
    size_ = byteCount;
}

std::uint32_t ByteStream::allocate(std::uint32_t byteCount) {
    if (byteCount == size_) {
        std::fill_n(data_.get(), size_, std::uint8_t{0});
        return byteCount;
    }
    data_ = byteCount == 0 ? nullptr : std::make_unique<std::uint8_t[]>(byteCount);
    size_ = byteCount;
    return byteCount;
}

void ByteStream::clear() noexcept {
    data_.reset();
    size_ = 0;
}

}  // namespace Tarsel::Utility
