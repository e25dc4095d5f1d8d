// The bytes of a class whose inner form is known to its user only.
#ifndef PYORV3_EMBEDDED_ORV_CONTENT_UNFORMATTED_BLOCK_H
#define PYORV3_EMBEDDED_ORV_CONTENT_UNFORMATTED_BLOCK_H

#include <cstddef>
#include <span>
#include <utility>
#include <vector>

namespace embedded {

// Written by appending, read at an offset. Operations that fail throw Failure(sizeRefused) and
// leave the block as it was.
//
// A block can be refilled, also from itself: what is appended then takes the place of the old bytes
// from the first on, and those behind it stay readable until the refilling ends.
class UnformattedBlock {
  public:
    static constexpr std::size_t capacity = std::size_t{64} << 20U;     // bytes
    static constexpr std::size_t longestChunk = std::size_t{1} << 20U;  // bytes of one call

    UnformattedBlock() = default;
    explicit UnformattedBlock(std::vector<char> bytes)
        : bytes_(std::move(bytes)), position_(bytes_.size()) {}

    // The content as it is to be saved.
    [[nodiscard]] std::span<const char> bytes() const {
        return std::span(bytes_).first(position_ == 0 ? bytes_.size() : position_);
    }

    // chunk: 1 to longestChunk bytes.
    void append(std::span<const char> chunk);

    // Fills the chunk (1 to longestChunk bytes) with the bytes from the offset on and with zeros
    // after the block's end. Returns the bytes read; 0 when the offset is the block's end.
    // Refused for an offset beyond the end.
    std::size_t read(std::size_t offset, std::span<char> chunk) const;

    void beginRefilling();
    // The old bytes behind what was appended go; without anything appended the block stays as it
    // was. The content has been saved.
    void endRefilling() noexcept;

  private:
    std::vector<char> bytes_;
    std::size_t position_ = 0;  // where the next chunk goes
};

}  // namespace embedded

#endif
