// The blocks without records: the channel contents of the spectrum, and the bytes of a class whose
// inner form is its user's own.
#ifndef PYORV3_EMBEDDED_ORV_CONTENT_PLAIN_BLOCKS_H
#define PYORV3_EMBEDDED_ORV_CONTENT_PLAIN_BLOCKS_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace embedded {

// Signed 32-bit contents of channels that count from 1. Operations that fail throw Failure and
// leave the spectrum as it was: sizeRefused for channels outside the permitted range.
class SpectrumBlock {
  public:
    static constexpr std::size_t capacity = 65535;  // channels

    SpectrumBlock() = default;
    explicit SpectrumBlock(std::vector<std::int32_t> contents) : contents_(std::move(contents)) {}

    [[nodiscard]] std::size_t channelCount() const { return contents_.size(); }
    [[nodiscard]] const std::vector<std::int32_t>& contents() const { return contents_; }

    // Makes the spectrum at least this long; new channels hold 0. No content is lost.
    void extend(std::size_t channelCount);

    // Writes successive channels from firstChannel on, at most up to channel limit.
    void put(std::size_t firstChannel, std::span<const std::int32_t> contents, std::size_t limit);

    // Reads successive channels from firstChannel on; those up to channel limit that were never
    // written hold 0, and beyond it nothing is read.
    void get(std::size_t firstChannel, std::span<std::int32_t> contents, std::size_t limit) const;

  private:
    std::vector<std::int32_t> contents_;
};

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
