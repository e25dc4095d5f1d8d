// The channel contents of a spectrum.
#ifndef PYORV3_EMBEDDED_ORV_CONTENT_SPECTRUM_BLOCK_H
#define PYORV3_EMBEDDED_ORV_CONTENT_SPECTRUM_BLOCK_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace embedded {

// Signed 32-bit contents of channels, which are numbered from 1. Operations on channels outside the
// permitted range throw Failure(sizeRefused) and leave the spectrum unchanged.
class SpectrumBlock {
  public:
    static constexpr std::size_t capacity = 65535;  // channels

    SpectrumBlock() = default;
    explicit SpectrumBlock(std::vector<std::int32_t> contents) : contents_(std::move(contents)) {}

    [[nodiscard]] std::size_t channelCount() const { return contents_.size(); }
    [[nodiscard]] const std::vector<std::int32_t>& contents() const { return contents_; }

    // Extends the spectrum to at least this many channels; new ones are 0.
    void extend(std::size_t channelCount);

    // Writes successive channels from firstChannel on. The last one may be channel `limit`.
    void put(std::size_t firstChannel, std::span<const std::int32_t> contents, std::size_t limit);

    // Reads successive channels from firstChannel on. The last one may be channel `limit`; channels
    // that were never written are 0.
    void get(std::size_t firstChannel, std::span<std::int32_t> contents, std::size_t limit) const;

  private:
    std::vector<std::int32_t> contents_;
};

}  // namespace embedded

#endif
