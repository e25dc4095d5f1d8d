// The channel contents of a spectrum.
#ifndef PYORV3_EMBEDDED_ORV_CONTENT_SPECTRUM_BLOCK_H
#define PYORV3_EMBEDDED_ORV_CONTENT_SPECTRUM_BLOCK_H

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

}  // namespace embedded

#endif
