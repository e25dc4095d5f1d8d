// The bytes of a class whose inner form is its user's own.
#ifndef PYORV3_EMBEDDED_ORV_UNFORMATTED_BLOCK_H
#define PYORV3_EMBEDDED_ORV_UNFORMATTED_BLOCK_H

#include <cstddef>
#include <span>
#include <utility>
#include <vector>

namespace embedded {

// Written by appending, read at an offset. Operations that fail throw Failure(sizeRefused) and
// leave the block as it was.
class UnformattedBlock {
  public:
    static constexpr std::size_t capacity = std::size_t{64} << 20U;     // bytes
    static constexpr std::size_t longestChunk = std::size_t{1} << 20U;  // bytes of one call

    UnformattedBlock() = default;
    explicit UnformattedBlock(std::vector<char> bytes) : bytes_(std::move(bytes)) {}

    [[nodiscard]] const std::vector<char>& bytes() const { return bytes_; }

    // chunk: 1 to longestChunk bytes.
    void append(std::span<const char> chunk);

    // Fills the chunk (1 to longestChunk bytes) with the bytes from the offset on and with zeros
    // after the block's end. Returns the bytes read; 0 when the offset is the block's end.
    // Refused for an offset beyond the end.
    std::size_t read(std::size_t offset, std::span<char> chunk) const;

  private:
    std::vector<char> bytes_;
};

}  // namespace embedded

#endif
