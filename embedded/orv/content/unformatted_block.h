// The bytes of a class whose structure only its user knows.
#ifndef PYORV3_EMBEDDED_ORV_CONTENT_UNFORMATTED_BLOCK_H
#define PYORV3_EMBEDDED_ORV_CONTENT_UNFORMATTED_BLOCK_H

#include <cstddef>
#include <span>
#include <utility>
#include <vector>

namespace embedded {

// Written by appending, read at an offset. Operations that fail throw Failure(sizeRefused) and
// leave the block unchanged.
//
// A block can be refilled, even from its own bytes: appended bytes then overwrite the old ones from
// the start, and the remaining old bytes stay readable until the refilling ends.
class UnformattedBlock {
  public:
    static constexpr std::size_t capacity = std::size_t{64} << 20U;     // bytes
    static constexpr std::size_t maxChunkSize = std::size_t{1} << 20U;  // bytes of one call

    UnformattedBlock() = default;
    explicit UnformattedBlock(std::vector<char> bytes)
        : bytes_(std::move(bytes)), position_(bytes_.size()) {}

    // The content as it is to be saved.
    [[nodiscard]] std::span<const char> bytes() const {
        return std::span(bytes_).first(position_ == 0 ? bytes_.size() : position_);
    }

    // chunk: 1 to maxChunkSize bytes.
    void append(std::span<const char> chunk);

    // Fills the chunk (1 to maxChunkSize bytes) with the bytes at the offset, and with zeros after
    // the end of the block. Returns the number of bytes read; 0 if the offset is the end. Throws if
    // the offset is beyond the end.
    std::size_t read(std::size_t offset, std::span<char> chunk) const;

    void beginRefilling();
    // Removes the old bytes after the appended ones, or nothing if none were appended. Called after
    // the content has been saved.
    void endRefilling() noexcept;

  private:
    std::vector<char> bytes_;
    std::size_t position_ = 0;  // offset of the next chunk
};

}  // namespace embedded

#endif
