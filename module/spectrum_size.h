// The sizes that a spectrum's storage comes in.
#ifndef PYORV3_MODULE_SPECTRUM_SIZE_H
#define PYORV3_MODULE_SPECTRUM_SIZE_H

#include <cstdint>

namespace pyORV3 {

inline constexpr std::int32_t largestSpectrumSize = 32768;

// A channel count rounded up to a power of two from 256 to 32,768; anything larger gives 32,768,
// zero and negative counts 256.
[[nodiscard]] constexpr std::int32_t roundedSpectrumSize(std::int64_t channelCount) noexcept {
    std::int32_t size = 256;
    while (size < channelCount && size < largestSpectrumSize) {
        size *= 2;
    }
    return size;
}

}  // namespace pyORV3

#endif
